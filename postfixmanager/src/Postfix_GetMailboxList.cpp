#include "Backend.h"
#include "CallTrace.h"
#include "maps/MapLines.h"
#include "maps/MapReader.h"

#include <iostream>

namespace
{

int listFromDatabase(const PostfixManager& manager, const std::string& domain, VectorString& users)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return PostfixResult::NotRead;

    const bool read =
        sql.readFirstFields("select email from virtual_users where email like '%@" + domain + "'",
                            [&](const std::string& email) {
                                if (contains(email, "@"))
                                    users.emplace_back(textBefore(email, '@'));
                            });
    if (!read) {
        std::cout << "No mailbox found" << std::endl;
        return PostfixResult::NotRead;
    }
    return PostfixResult::Done;
}

int listFromFile(const std::string& domain, VectorString& users)
{
    MapReader file(VPASSWDFILE, domain);
    if (!file.isOpen())
        return PostfixResult::NotRead;
    std::string_view line;
    while (file.nextLine(line))
        if (accountDomain(line) == domain)
            users.emplace_back(textBefore(line, '@'));
    return PostfixResult::Done;
}

} // namespace

int PostfixManager::Postfix_GetMailboxList(std::string DomainName, VectorString* Users)
{
    traceCall(*this, "Postfix_GetMailboxList", {DomainName}, {"DomainName"});
    return usesSql(*this) ? listFromDatabase(*this, DomainName, *Users)
                          : listFromFile(DomainName, *Users);
}
