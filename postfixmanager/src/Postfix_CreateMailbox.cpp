#include "Backend.h"
#include "CallTrace.h"
#include "DeliveryAgent.h"
#include "DovecotManager.h"
#include "PasswordHash.h"
#include "QuotaText.h"
#include "stage/Effects.h"
#include "system/DomainTree.h"

namespace
{

bool recordInFiles(PostfixManager& manager, SvpopUser* record, const std::string& domain,
                   const std::string& user, const std::string& quota)
{
    const std::string address = user + "@" + domain;
    const bool hasQuota = quota != UnlimitedQuota;
    // Copied: the record may be one that getpwnam returned, and the look-ups below overwrite it.
    const std::string home = record->Password->pw_dir;

    manager.ErrNo = manager.Postfix_PasswdFile(record);
    if (manager.ErrNo != PostfixResult::Done)
        return false;

    if (hasQuota && deliveryAgentEnabled())
        DovecotManager().addDovecotQuota(address, home, quota);

    manager.ErrNo = manager.Postfix_ShadowFile(record);
    if (manager.ErrNo != PostfixResult::Done)
        return false;

    // Whether or not Dovecot delivers: the panel reads quotas from this map.
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

    char* hash = record->Shadow->sp_pwdp;
    if (!hashPassword(hash))
        return false;
    if (!sql.execute("insert into virtual_users values ('" + address + "','" + hash + "'," +
                     quotaInDatabase(quota) + ")"))
        return false;
    // The self row. Without it the domain's catch-all would take the mailbox's mail.
    sql.executeUnannounced("insert into virtual_aliases values ('" + address + "','" + address +
                           "')");
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

    if (!makeSpoolDirectory(homeOf(DomainName, address), 02775, HomeMode))
        return PostfixResult::Failed;
    return PostfixResult::MailboxCreated;
}
