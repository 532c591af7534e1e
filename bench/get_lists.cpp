// Postfix_GetLists with 1,000 lists, against 100,000 and 200,000 accounts: twice the lines should
// take about twice the time. The answers are compared with the rule, asked list by list.

#include "World.h"

namespace
{

constexpr int Lists = 1000;
constexpr int Rounds = 15;
const char* const Domain = "domain0.test";

void writeLists()
{
    // Every tenth key is a mailbox too, and so a forward.
    writeLines(VALIASFILE, Lists, [](int i) {
        const std::string key =
            i % 10 == 0 ? addressOf(i) : "list" + std::to_string(i) + "@" + Domain;
        return key + " a@" + Domain + ",b@" + Domain + ",c@elsewhere.test";
    });
}

VectorString listsOneByOne(PostfixManager& manager)
{
    VectorString lists;
    std::ifstream map(VALIASFILE);
    std::string line;
    while (std::getline(map, line)) {
        const std::string key = line.substr(0, line.find(' '));
        if (!manager.Postfix_IsMailboxExists(key))
            lists.push_back(key.substr(0, key.find('@')));
    }
    return lists;
}

} // namespace

int main()
{
    requireEmptyWorld();
    CQVTrackManager tracing;
    PostfixManager manager(&tracing, "", "files", "", "", "", "", "");

    double former = 0;
    for (const int accounts : {100000, 200000}) {
        writeMailboxes(accounts);
        writeLists();
        VectorString lists;
        std::vector<double> seconds;
        for (int round = 0; round < Rounds; ++round) {
            lists.clear();
            seconds.push_back(secondsOf([&] { manager.Postfix_GetLists(Domain, &lists); }));
        }
        const bool same = lists == listsOneByOne(manager);
        printf("%d lists, %d accounts: %.2f ms, %zu answers, %s\n", Lists, accounts,
               1000 * median(seconds), lists.size(), same ? "the same as one by one" : "WRONG");
        if (former > 0)
            printf("twice the accounts take %.2f times the time\n", median(seconds) / former);
        former = median(seconds);
        if (!same)
            return 1;
    }
}
