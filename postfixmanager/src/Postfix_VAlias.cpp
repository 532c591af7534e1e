#include "Backend.h"
#include "CallTrace.h"
#include "maps/MapEntries.h"
#include "maps/MapLines.h"
#include "maps/MapReader.h"

namespace
{

std::string insertion(const std::string& source, const std::string& destination)
{
    return "insert into virtual_aliases values ('" + source + "','" + destination + "')";
}

std::string deletion(const std::string& source)
{
    return "delete from virtual_aliases where source = '" + source + "'";
}

int changeInDatabase(PostfixManager& manager, const std::string& mailbox, const std::string& alias,
                     const std::string& action)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return PostfixResult::RequestFailed;

    std::string query;
    int done;
    if (action == "AddAlias") {
        // The mailbox's self row gives way to the forward.
        if (manager.Postfix_IsVAliasExists(mailbox) ||
            !sql.execute(deletion(mailbox) + " and destination = '" + mailbox + "'"))
            return PostfixResult::RequestFailed;
        query = insertion(mailbox, alias);
        done = PostfixResult::AliasAdded;
    } else if (action == "DeleteAlias") {
        if (!sql.execute(deletion(mailbox)))
            return PostfixResult::RequestFailed;
        // The self row comes back, so that the mailbox receives its own mail again.
        query = insertion(mailbox, mailbox);
        done = PostfixResult::AliasDeleted;
    } else if (action == "UpdateAlias") {
        if (!sql.execute(deletion(mailbox)))
            return PostfixResult::RequestFailed;
        query = insertion(mailbox, alias);
        done = PostfixResult::Updated;
    } else {
        sql.leaveOpen();
        return PostfixResult::RequestFailed;
    }
    return sql.execute(query) ? done : PostfixResult::RequestFailed;
}

int changeInMap(PostfixManager& manager, const std::string& mailbox, const std::string& alias,
                const std::string& action)
{
    const std::string entry = mailbox + " " + alias;

    // Unlike Postfix_VList, this operation tries no copy when there is no map.
    if (MapReader(VALIASFILE).isOpen()) {
        backUp(VALIASFILE, AliasMapWriter.backupSuffix);
        openMapDirectory();
    }

    const LineTest isMine = [&](std::string_view line) {
        return standsFor(line, mapKey(line), mailbox);
    };
    if (action == "AddAlias") {
        if (addEntry(AliasMapWriter, mailbox, isMine, entry) == Added::No)
            return PostfixResult::RequestFailed;
        manager.ErrNo = PostfixResult::AliasAdded;
    } else if (action == "DeleteAlias") {
        // Without a map there is no alias to delete: a success, and published all the same.
        dropEntries(AliasMapWriter, isMine);
        manager.ErrNo = PostfixResult::AliasDeleted;
    } else if (action == "UpdateAlias") {
        if (replaceEntries(AliasMapWriter, isMine, entry, WhenAbsent::Add) == Replaced::NotOpened)
            return PostfixResult::Failed;
        manager.ErrNo = PostfixResult::Updated;
    }
    // Any other action changes nothing, yet publishes, and answers with what an earlier call left.
    publish(AliasMapWriter);
    return manager.ErrNo;
}

} // namespace

int PostfixManager::Postfix_VAlias(std::string Mailbox, std::string Alias, std::string Action)
{
    traceCall(*this, "Postfix_VAlias", {Mailbox, Alias, Action}, {"Mailbox", "Alias", "Action"});
    return usesSql(*this) ? changeInDatabase(*this, Mailbox, Alias, Action)
                          : changeInMap(*this, Mailbox, Alias, Action);
}
