#include "Backend.h"
#include "maps/MapLines.h"
#include "maps/MapReader.h"

#include <cstdlib>
#include <iostream>

namespace
{

int countInDatabase(const PostfixManager& manager, const std::string& domain)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return PostfixResult::NotRead;

    int count = 0;
    const bool read = sql.readFirstFields(
        "select COUNT(email) from virtual_users where email like '%@" + domain + "'",
        [&](const std::string& field) { count = static_cast<int>(atol(field.c_str())); });
    if (!read) {
        std::cout << "No mailbox count resultset found" << std::endl;
        return PostfixResult::NotRead;
    }
    return count;
}

int countInFile(const std::string& domain)
{
    MapReader file(VPASSWDFILE, domain);
    if (!file.isOpen())
        return PostfixResult::NotRead;
    int count = 0;
    std::string_view line;
    while (file.nextLine(line))
        if (!line.empty() && accountDomain(line) == domain)
            ++count;
    return count;
}

} // namespace

int PostfixManager::Postfix_GetMailboxCount(std::string DomainName)
{
    return usesSql(*this) ? countInDatabase(*this, DomainName) : countInFile(DomainName);
}
