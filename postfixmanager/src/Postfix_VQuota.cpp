#include "CallConvention.h"
#include "DeliveryAgent.h"
#include "DovecotManager.h"
#include "MapLines.h"
#include "MapReader.h"
#include "MapRewrite.h"

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
        value = quota == "-1" ? "0" : quota;
        done = PostfixResult::QuotaUpdated;
    } else {
        sql.leaveOpen();
        return PostfixResult::Failed;
    }
    const bool succeeded = sql.execute("update virtual_users set quota = '" + value +
                                       "' where email = '" + mailbox + "'");
    return succeeded ? done : PostfixResult::Failed;
}

// The mailbox anywhere in the line up to a blank, the quota included, on purpose.
bool matches(std::string_view line, const std::string& mailbox)
{
    return contains(mapKey(line), mailbox);
}

int addQuota(PostfixManager& manager, const std::string& mailbox, const std::string& entry)
{
    bool isNewMap;
    {
        MapReader map(VQUOTAFILE, mailbox);
        isNewMap = !map.isOpen();
        std::string_view line;
        while (map.nextLine(line))
            if (matches(line, mailbox))
                return PostfixResult::Failed;
    }
    appendLine(VQUOTAFILE, entry);
    if (isNewMap)
        settleOwnerAndMode(QuotaMap);
    else
        manager.ErrNo =
            PostfixResult::Done; // on this path alone; hosts see the old value otherwise
    publish(QuotaMap);
    return PostfixResult::Done;
}

int deleteQuota(PostfixManager& manager, const std::string& mailbox)
{
    if (deliveryAgentEnabled())
        DovecotManager().deleteDovecotQuota(mailbox);

    const bool rewritten = rewriteMap(QuotaMap, [&](std::string_view line, MapWriter& newMap) {
        if (!line.empty() && !matches(line, mailbox))
            newMap.writeLine(line);
    });
    if (!rewritten)
        return PostfixResult::Failed;
    manager.ErrNo = PostfixResult::Done;
    publish(QuotaMap);
    return manager.ErrNo;
}

int updateQuota(PostfixManager& manager, const std::string& mailbox, const std::string& quota,
                const std::string& entry)
{
    if (deliveryAgentEnabled())
        DovecotManager().editDovecotQuota(mailbox, quota);

    bool found = false;
    const bool rewritten = rewriteMap(QuotaMap, [&](std::string_view line, MapWriter& newMap) {
        if (line.empty())
            return;
        const bool isMatch = matches(line, mailbox);
        newMap.writeLine(isMatch ? entry : line);
        found = found || isMatch;
    });
    if (!rewritten)
        return PostfixResult::Failed;
    if (!found)
        manager.Postfix_VQuota(mailbox, quota, "AddQuota");
    manager.ErrNo = PostfixResult::QuotaUpdated;
    publish(QuotaMap);
    return manager.ErrNo;
}

} // namespace

int PostfixManager::Postfix_VQuota(std::string Mailbox, std::string Quota, std::string Action)
{
    traceCall(*this, "Postfix_VQuota", {Mailbox, Quota, Action}, {"Mailbox", "Quota", "Action"});
    if (usesSql(*this))
        return changeInDatabase(*this, Mailbox, Quota, Action);

    const std::string entry = Mailbox + "\t" + Quota;
    backUp(VQUOTAFILE, QuotaMap.backupSuffix);
    openMapDirectory();

    if (Action == "AddQuota")
        return addQuota(*this, Mailbox, entry);
    if (Action == "DeleteQuota")
        return deleteQuota(*this, Mailbox);
    if (Action == "UpdateQuota")
        return updateQuota(*this, Mailbox, Quota, entry);

    // Another action changes nothing, yet publishes, and answers with what an earlier call left.
    publish(QuotaMap);
    return ErrNo;
}
