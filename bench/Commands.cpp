#include "Operations.h"

#include "PostfixTransaction.h"

namespace
{

std::function<void(PostfixManager&)>
inTransaction(const std::function<void(PostfixManager&)>& operations)
{
    return [=](PostfixManager& manager) {
        PostfixTransaction transaction(manager);
        expect(transaction.open(0) == PostfixTransaction::Done, transaction.reason());
        operations(manager);
        expect(transaction.commit() == PostfixTransaction::Done, transaction.reason());
    };
}

// No operation reads everything: with files, one read of all maps stands for that.
void readEverything(const World& world)
{
    if (world.usesDatabase)
        run(connected({"select name from virtual_domains",
                       "select email, password, quota from virtual_users",
                       "select source, destination from virtual_aliases"}));
    else
        for (const char* const file : MapFiles)
            run(ran({"wc", "-l", file}));
}

} // namespace

Operations commandOperations(const World& world)
{
    const auto createAll = [](const World& w, int mailboxes) {
        return inTransaction([=](PostfixManager& manager) {
            for (int i = 0; i < mailboxes; ++i)
                createMailbox(manager, w, i);
        });
    };
    const auto everything = [w = world](PostfixManager&) { readEverything(w); };
    const std::vector<std::pair<const char*, std::function<void(PostfixManager&)>>> rows = {
        {"mailbox add", createAll(world, 1)},
        {"mailbox show",
         [w = world](PostfixManager& manager) {
             manager.Postfix_IsMailboxExists(w.address);
             manager.Postfix_RetrieveQuota(w.address);
             manager.Postfix_RetrieveAlias(w.address);
             std::string catchAll;
             manager.Postfix_RetreiveCatchAllAddress(w.domain, catchAll);
             if (!w.usesDatabase) // IsMailboxExists reads the one account file, and this the other
                 manager.Postfix_GetMailboxCount(w.domain);
             run(ran({"doveadm", "-f", "tab", "quota", "get", "-u", w.address}));
         }},
        {"mailbox list",
         [w = world](PostfixManager& manager) {
             VectorString mailboxes;
             manager.Postfix_GetMailboxList(w.domain, &mailboxes);
         }},
        {"mailbox delete", inTransaction([w = world](PostfixManager& manager) {
             expect(manager.Postfix_DeleteMailbox(w.user, w.domain) ==
                        PostfixResult::MailboxDeleted,
                    "DeleteMailbox");
         })},
        {"alias add", inTransaction([w = world](PostfixManager& manager) {
             expect(manager.Postfix_VAlias(w.newAlias, w.address, "AddAlias") ==
                        PostfixResult::AliasAdded,
                    "AddAlias");
         })},
        {"domain show",
         [w = world](PostfixManager& manager) {
             manager.Postfix_GetMailboxCount(w.domain);
             VectorString lists;
             manager.Postfix_GetLists(w.domain, &lists);
             std::string catchAll;
             manager.Postfix_RetreiveCatchAllAddress(w.domain, catchAll);
             long long total = 0;
             manager.Postfix_RetrieveDomainQuota(w.domain, total);
         }},
        {"list list",
         [w = world](PostfixManager& manager) {
             VectorString lists;
             manager.Postfix_GetLists(w.domain, &lists);
             if (!w.usesDatabase) // GetLists reads the one account file, and this the other
                 manager.Postfix_GetMailboxCount(w.domain);
         }},
        {"check", everything},
        {"export", everything},
        {"import", createAll(world, 10000)},
    };
    Operations all;
    for (const auto& [name, operation] : rows)
        all.push_back({"command", name, operation, {{"", {}}}, {{"", {}}}});
    return all;
}
