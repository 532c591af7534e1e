#include "CallConvention.h"
#include "Shell.h"

#include <unistd.h>

namespace
{

bool deleteFromFiles(PostfixManager& manager, const std::string& address, const std::string& domain)
{
    for (const char* const file : {VPASSWDFILE, VSHADOWFILE}) {
        manager.ErrNo = manager.Postfix_DeleteMailboxUser(address, file);
        if (manager.ErrNo != PostfixResult::Done)
            return false;
    }

    manager.ErrNo = manager.Postfix_VMaps(address, domain, "RmvUser");
    if (manager.ErrNo != PostfixResult::Done)
        return false;

    manager.ErrNo = manager.Postfix_VAlias(address, "", "DeleteAlias");
    if (manager.ErrNo != PostfixResult::AliasDeleted)
        return false;

    if (access(VQUOTAFILE, F_OK) != 0)
        return true;
    manager.ErrNo = manager.Postfix_VQuota(address, "", "DeleteQuota");
    return manager.ErrNo == PostfixResult::Done;
}

bool deleteFromDatabase(const PostfixManager& manager, const std::string& address)
{
    SqlCall sql = connectSql(manager);
    return sql.isConnected() &&
           sql.execute("delete from virtual_users where email = '" + address + "'") &&
           sql.execute("delete from virtual_aliases where source = '" + address + "'");
}

} // namespace

int PostfixManager::Postfix_DeleteMailbox(std::string UserName, std::string DomainName)
{
    traceCall(*this, "Postfix_DeleteMailbox", {UserName, DomainName}, {"UserName", "DomainName"});

    const std::string address = UserName + "@" + DomainName;
    const bool deleted = usesSql(*this) ? deleteFromDatabase(*this, address)
                                        : deleteFromFiles(*this, address, DomainName);
    if (!deleted)
        return PostfixResult::MailboxNotDeleted;

    const std::string mail = VSPOOLDIR "/" + DomainName + "/mail";
    runInShell("rm -r " + mail + "/home/" + address);
    // Two blanks, on purpose: hosts that watch the commands compare them as they are.
    runInShell("rm  " + mail + "/inbox/" + address);
    return PostfixResult::MailboxDeleted;
}
