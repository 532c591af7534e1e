#include "Backend.h"
#include "CallTrace.h"
#include "maps/MapLines.h"
#include "maps/MapReader.h"
#include "maps/PackedNames.h"
#include "maps/ShadowNames.h"

#include <iostream>

namespace
{

int listFromDatabase(const PostfixManager& manager, const std::string& domain, VectorString& lists)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return PostfixResult::NotRead;

    const bool read = sql.readFirstFields(
        "select distinct(virtual_aliases.source) from virtual_aliases, virtual_users where "
        "virtual_aliases.source not in (select email from virtual_users where email like '%@" +
            domain + "') and virtual_aliases.source like '%@" + domain +
            "' and virtual_aliases.source!='@" + domain + "'",
        [&](const std::string& source) { lists.emplace_back(textBefore(source, '@')); });
    if (!read) {
        std::cout << "No list member found" << std::endl;
        return PostfixResult::NotRead;
    }
    return PostfixResult::Done;
}

int listFromMap(const std::string& domain, VectorString& lists)
{
    MapReader map(VALIASFILE, domain);
    if (!map.isOpen())
        return PostfixResult::NotRead;

    // The domain may stand anywhere in the line, in a member too: deliberate, hosts rely on it.
    PackedNames keys;
    std::string_view line;
    while (map.nextLine(line))
        if (!line.empty() && liesIn(line, domain))
            keys.add(mapKey(line));

    // An address that is also a mailbox has a forwarder, not a list.
    visitShadowNames([&](std::string_view name) {
        keys.strikeOut(name);
        return true;
    });
    lists.reserve(lists.size() + keys.countRest());
    keys.takeRest([&](std::string_view key) { lists.emplace_back(textBefore(key, '@')); });
    return PostfixResult::Done;
}

} // namespace

int PostfixManager::Postfix_GetLists(std::string DomainName, VectorString* Lists)
{
    traceCall(*this, "Postfix_GetLists", {DomainName}, {"DomainName"});
    return usesSql(*this) ? listFromDatabase(*this, DomainName, *Lists)
                          : listFromMap(DomainName, *Lists);
}
