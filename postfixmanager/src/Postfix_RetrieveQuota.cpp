#include "Backend.h"
#include "CallTrace.h"
#include "QuotaText.h"
#include "maps/MapLines.h"
#include "maps/MapReader.h"

#include <iostream>

namespace
{

std::string retrieveFromDatabase(const PostfixManager& manager, const std::string& user)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return UnlimitedQuota;

    std::optional<std::string> quota;
    if (!sql.readFirstRow("select quota from virtual_users where email = '" + user + "'", quota))
        std::cout << "No mailbox found" << std::endl;
    return !quota || *quota == "0" ? UnlimitedQuota : *quota;
}

// The line from its first tab on, the tab included: deliberate, hosts trim it.
std::string retrieveFromMap(const std::string& user)
{
    MapReader map(VQUOTAFILE, user);
    std::string_view line;
    while (map.nextLine(line))
        if (standsFor(line, mapKey(line), user))
            return std::string(line.substr(textBefore(line, '\t').size()));
    return UnlimitedQuota;
}

} // namespace

std::string PostfixManager::Postfix_RetrieveQuota(std::string UserName)
{
    traceCall(*this, "Postfix_RetrieveQuota", {UserName}, {"UserName"});
    return usesSql(*this) ? retrieveFromDatabase(*this, UserName) : retrieveFromMap(UserName);
}
