#include "Backend.h"
#include "maps/MapLines.h"
#include "maps/ShadowNames.h"

#include <iostream>

namespace
{

// A database that does not answer counts as "exists", an unreadable file does not: deliberate,
// hosts rely on both.
bool existsInDatabase(const PostfixManager& manager, const std::string& address)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return true;

    std::optional<std::string> row;
    if (!sql.readFirstRow("select 1 from virtual_users where email = '" + address + "'", row)) {
        std::cout << "No mailbox found" << std::endl;
        return true;
    }
    return row.has_value();
}

bool existsInFile(const std::string& address)
{
    bool found = false;
    visitShadowNames([&](std::string_view name) {
        found = equalIgnoringCase(name, address);
        return !found;
    });
    return found;
}

} // namespace

bool PostfixManager::Postfix_IsMailboxExists(std::string UserName)
{
    return usesSql(*this) ? existsInDatabase(*this, UserName) : existsInFile(UserName);
}
