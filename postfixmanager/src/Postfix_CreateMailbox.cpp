#include "CallConvention.h"
#include "DeliveryAgent.h"
#include "DovecotManager.h"
#include "PasswordHash.h"
#include "SystemAccounts.h"

#include <cerrno>

#include <sys/stat.h>

namespace
{

bool recordInFiles(PostfixManager& manager, SvpopUser* record, const std::string& domain,
                   const std::string& user, const std::string& quota)
{
    const std::string address = user + "@" + domain;
    const bool hasQuota = quota != "-1";

    manager.ErrNo = manager.Postfix_PasswdFile(record);
    if (manager.ErrNo != PostfixResult::Done)
        return false;

    if (hasQuota && deliveryAgentEnabled())
        DovecotManager().addDovecotQuota(address, record->Password->pw_dir, quota);

    manager.ErrNo = manager.Postfix_ShadowFile(record);
    if (manager.ErrNo != PostfixResult::Done)
        return false;

    // Whatever the delivery agent's setting: Postfix has a quota map of its own.
    if (hasQuota) {
        manager.ErrNo = manager.Postfix_VQuota(address, quota, "AddQuota");
        if (manager.ErrNo != PostfixResult::Done)
            return false;
    }

    manager.ErrNo = manager.Postfix_VMaps(user, domain, "AddUser");
    return manager.ErrNo == PostfixResult::Done;
}

bool recordInDatabase(const PostfixManager& manager, SvpopUser* record, const std::string& address,
                      const std::string& quota)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return false;

    const char* const hash = Encrypt(record->Shadow->sp_pwdp);
    if (!isPasswordHash(hash))
        return false;
    if (!sql.execute("insert into virtual_users values ('" + address + "','" + hash + "'," +
                     (quota == "-1" ? "0" : quota) + ")"))
        return false;
    // The self row: without it the domain's catch-all, an alias too, would take the mailbox's mail.
    sql.executeUnannounced("insert into virtual_aliases values ('" + address + "','" + address +
                           "')");
    return true;
}

bool makeHome(const std::string& home)
{
    if (!ownershipOf("qvadmin", "mail"))
        return false;
    if (mkdir(home.c_str(), 02775) != 0 && errno != EEXIST)
        return false;
    giveTo(home, "qvadmin", "mail");
    chmod(home.c_str(), 02777);
    return true;
}

} // namespace

int PostfixManager::Postfix_CreateMailbox(SvpopUser* vpopUserData, std::string DomainName,
                                          std::string UserName, std::string Quota)
{
    traceCall(*this, "Postfix_CreateMailbox", {DomainName, UserName, Quota},
              {"DomainName", "UserName", "Quota"});

    const std::string address = UserName + "@" + DomainName;
    const bool recorded = usesSql(*this)
                              ? recordInDatabase(*this, vpopUserData, address, Quota)
                              : recordInFiles(*this, vpopUserData, DomainName, UserName, Quota);
    if (!recorded)
        return PostfixResult::MailboxNotCreated;

    if (!makeHome(VSPOOLDIR "/" + DomainName + "/mail/home/" + address))
        return PostfixResult::Failed;
    return PostfixResult::MailboxCreated;
}
