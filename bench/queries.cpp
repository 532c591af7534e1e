// Every query on files of a million lines, against "grep -c -F TEXT FILE" on the files that it
// reads, in turns. A query that copies its map first is given that "cp" on the other side too.

#include "World.h"

#include <spawn.h>
#include <sys/wait.h>

namespace
{

constexpr int Lines = 1000000;
constexpr int Rounds = 9;

struct Query {
    const char* name;
    const char* text; // what grep looks for
    std::vector<const char*> files;
    bool copies;
    std::function<void(PostfixManager&)> run;
};

void spawnAndWait(const std::vector<const char*>& words)
{
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const char* const word : words)
        arguments.push_back(const_cast<char*>(word));
    arguments.push_back(nullptr);
    pid_t child;
    int status;
    if (posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
        waitpid(child, &status, 0) < 0) {
        perror(arguments[0]);
        exit(2);
    }
}

} // namespace

int main()
{
    requireEmptyWorld();
    writeMailboxes(Lines);
    writeLines(VALIASFILE, Lines, [](int i) {
        return "alias" + std::to_string(i) + "@" + domainName(i / MailboxesPerDomain) + " " +
               addressOf(i);
    });
    // What the queries and greps print goes here, what the benchmark says to standard error.
    if (freopen("/dev/null", "w", stdout) == nullptr)
        return 2;

    CQVTrackManager tracing;
    PostfixManager manager(&tracing, "", "files", "", "", "", "", "");
    VectorString found;
    long long total = 0;
    std::string text;
    const char* const domain = "domain999.test";
    const char* const address = "user999999@domain999.test";
    const Query queries[] = {
        {"GetMailboxList",
         "@domain999.test",
         {VPASSWDFILE},
         false,
         [&](PostfixManager& m) { m.Postfix_GetMailboxList(domain, &found); }},
        {"GetMailboxCount",
         "@domain999.test",
         {VPASSWDFILE},
         false,
         [&](PostfixManager& m) { m.Postfix_GetMailboxCount(domain); }},
        {"IsMailboxExists",
         address,
         {VSHADOWFILE},
         false,
         [&](PostfixManager& m) { m.Postfix_IsMailboxExists(address); }},
        {"RetrieveQuota",
         address,
         {VQUOTAFILE},
         false,
         [&](PostfixManager& m) { m.Postfix_RetrieveQuota(address); }},
        {"RetrieveDomainQuota",
         "@domain999.test",
         {VQUOTAFILE},
         false,
         [&](PostfixManager& m) { m.Postfix_RetrieveDomainQuota(domain, total); }},
        {"GetAliasList",
         address,
         {VALIASFILE},
         false,
         [&](PostfixManager& m) { m.Postfix_GetAliasList(address, &found); }},
        {"RetrieveAlias",
         "alias999999@domain999.test",
         {VALIASFILE},
         false,
         [&](PostfixManager& m) { m.Postfix_RetrieveAlias("alias999999@domain999.test"); }},
        {"GetLists",
         "domain999.test",
         {VALIASFILE, VSHADOWFILE},
         false,
         [&](PostfixManager& m) { m.Postfix_GetLists(domain, &found); }},
        {"GetListSettings",
         "alias999999@domain999.test",
         {VALIASFILE},
         false,
         [&](PostfixManager& m) {
             m.Postfix_GetListSettings("alias999999@domain999.test", &found);
         }},
        {"RetreiveCatchAll",
         "@domain999.test",
         {VMAPSFILE},
         true,
         [&](PostfixManager& m) { m.Postfix_RetreiveCatchAllAddress(domain, text); }},
    };

    fprintf(stderr, "%-20s %9s %9s %6s %12s\n", "query", "query ms", "grep ms", "ratio",
            "memory KiB");
    for (const Query& query : queries) {
        std::vector<double> ours;
        std::vector<double> greps;
        const long before = residentPeak();
        for (int round = 0; round < Rounds; ++round) {
            found.clear();
            ours.push_back(secondsOf([&] { query.run(manager); }));
            greps.push_back(secondsOf([&] {
                if (query.copies)
                    spawnAndWait({"cp", VMAPSFILE, VMAPSFILE ".CABackup"});
                for (const char* const file : query.files)
                    spawnAndWait({"grep", "-c", "-F", query.text, file});
            }));
        }
        fprintf(stderr, "%-20s %9.2f %9.2f %6.2f %+12ld\n", query.name, 1000 * median(ours),
                1000 * median(greps), median(ours) / median(greps), residentPeak() - before);
    }
}
