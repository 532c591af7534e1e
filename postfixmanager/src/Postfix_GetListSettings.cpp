#include "Backend.h"
#include "CallTrace.h"
#include "maps/MapLines.h"
#include "maps/MapReader.h"

#include <iostream>

namespace
{

int membersFromDatabase(const PostfixManager& manager, const std::string& list,
                        VectorString& members)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return PostfixResult::NotRead;

    const bool read = sql.readFirstFields(
        "select destination from virtual_aliases where source= '" + list + "'",
        [&](const std::string& destination) { members.push_back(destination); });
    if (!read) {
        std::cout << "No list member found" << std::endl;
        return PostfixResult::NotRead;
    }
    return PostfixResult::Done;
}

// Each blank-separated word of the value is an entry as it stands: commas stay, and two blanks in a
// row give an empty one.
int membersFromMap(const std::string& list, VectorString& members)
{
    MapReader map(VALIASFILE, list);
    if (!map.isOpen())
        return PostfixResult::NotRead;
    std::string_view line;
    while (map.nextLine(line)) {
        // The whole key, unlike the alias queries.
        if (line.empty() || mapKey(line) != list)
            continue;
        while (contains(line, " ")) {
            line = textAfter(line, ' ');
            members.emplace_back(textBefore(line, ' '));
        }
    }
    return PostfixResult::Done;
}

} // namespace

int PostfixManager::Postfix_GetListSettings(std::string EmailAddress, VectorString* Members)
{
    traceCall(*this, "Postfix_GetListSettings", {EmailAddress}, {"EmailAddress"});
    return usesSql(*this) ? membersFromDatabase(*this, EmailAddress, *Members)
                          : membersFromMap(EmailAddress, *Members);
}
