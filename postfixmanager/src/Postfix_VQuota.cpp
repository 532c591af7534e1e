#include "Backend.h"
#include "CallTrace.h"
#include "DeliveryAgent.h"
#include "DovecotManager.h"
#include "QuotaText.h"
#include "maps/MapEntries.h"
#include "maps/MapLines.h"

namespace
{

int changeInDatabase(const PostfixManager& manager, const std::string& mailbox,
                     const std::string& quota, const std::string& action)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return PostfixResult::Failed;

    std::string value;
    int done;
    if (action == "DeleteQuota") {
        value = "0";
        done = PostfixResult::Done;
    } else if (action == "UpdateQuota") {
        value = quotaInDatabase(quota);
        done = PostfixResult::QuotaUpdated;
    } else {
        sql.leaveOpen();
        return PostfixResult::Failed;
    }
    const bool succeeded = sql.execute("update virtual_users set quota = '" + value +
                                       "' where email = '" + mailbox + "'");
    return succeeded ? done : PostfixResult::Failed;
}

// A blank ends the key, but a quota follows a tab: so the quota is searched for the mailbox too.
LineTest isOf(const std::string& mailbox)
{
    return [mailbox](std::string_view line) { return standsFor(line, mapKey(line), mailbox); };
}

int addQuota(PostfixManager& manager, const std::string& mailbox, const std::string& entry)
{
    const Added added = addEntry(QuotaMapWriter, mailbox, isOf(mailbox), entry);
    if (added == Added::No)
        return PostfixResult::Failed;
    // With a new map ErrNo keeps its former value: deliberate, hosts see it so.
    if (added == Added::ToMap)
        manager.ErrNo = PostfixResult::Done;
    publish(QuotaMapWriter);
    return PostfixResult::Done;
}

int deleteQuota(PostfixManager& manager, const std::string& mailbox)
{
    if (deliveryAgentEnabled())
        DovecotManager().deleteDovecotQuota(mailbox);

    if (!dropEntries(QuotaMapWriter, isOf(mailbox)))
        return PostfixResult::Failed;
    manager.ErrNo = PostfixResult::Done;
    publish(QuotaMapWriter);
    return manager.ErrNo;
}

int updateQuota(PostfixManager& manager, const std::string& mailbox, const std::string& quota,
                const std::string& entry)
{
    if (deliveryAgentEnabled())
        DovecotManager().editDovecotQuota(mailbox, quota);

    const Replaced replaced =
        replaceEntries(QuotaMapWriter, isOf(mailbox), entry, WhenAbsent::Skip);
    if (replaced == Replaced::NotOpened)
        return PostfixResult::Failed;
    if (replaced == Replaced::None)
        manager.Postfix_VQuota(mailbox, quota, "AddQuota");
    manager.ErrNo = PostfixResult::QuotaUpdated;
    publish(QuotaMapWriter);
    return manager.ErrNo;
}

} // namespace

int PostfixManager::Postfix_VQuota(std::string Mailbox, std::string Quota, std::string Action)
{
    traceCall(*this, "Postfix_VQuota", {Mailbox, Quota, Action}, {"Mailbox", "Quota", "Action"});
    if (usesSql(*this))
        return changeInDatabase(*this, Mailbox, Quota, Action);

    const std::string entry = Mailbox + "\t" + Quota;
    backUp(VQUOTAFILE, QuotaMapWriter.backupSuffix);
    openMapDirectory();

    if (Action == "AddQuota")
        return addQuota(*this, Mailbox, entry);
    if (Action == "DeleteQuota")
        return deleteQuota(*this, Mailbox);
    if (Action == "UpdateQuota")
        return updateQuota(*this, Mailbox, Quota, entry);

    // Any other action changes nothing, yet publishes, and answers with what an earlier call left.
    publish(QuotaMapWriter);
    return ErrNo;
}
