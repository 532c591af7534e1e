#include "Backend.h"
#include "CallTrace.h"
#include "maps/MapLines.h"
#include "maps/MapReader.h"

#include <cctype>
#include <iostream>

namespace
{

std::string retrieveFromDatabase(const PostfixManager& manager, const std::string& user)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return "";

    std::optional<std::string> destination;
    if (!sql.readFirstRow("select destination from virtual_aliases where source = '" + user +
                              "' and destination != '" + user + "'",
                          destination)) {
        std::cout << "No forward address found" << std::endl;
        return "";
    }
    if (!destination)
        return "";
    std::cout << "Forward Address=" << *destination << std::endl;
    return *destination;
}

// The value of a map line, without the blanks before it.
std::string value(std::string_view line)
{
    line.remove_prefix(mapKey(line).size());
    while (!line.empty() && isspace(static_cast<unsigned char>(line.front())))
        line.remove_prefix(1);
    return std::string(line);
}

std::string retrieveFromMap(const std::string& user)
{
    MapReader map(VALIASFILE, user);
    std::string_view line;
    while (map.nextLine(line))
        if (standsFor(line, mapKey(line), user))
            return value(line);
    return "";
}

} // namespace

std::string PostfixManager::Postfix_RetrieveAlias(std::string UserName)
{
    traceCall(*this, "Postfix_RetrieveAlias", {UserName}, {"UserName"});
    return usesSql(*this) ? retrieveFromDatabase(*this, UserName) : retrieveFromMap(UserName);
}
