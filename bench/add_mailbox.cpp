// Adding a mailbox with a quota to maps of 100,000, against the commands alone that this has to
// run, in turns, beside a running Postfix. And the memory of the library's own work, against small
// maps.

#include "World.h"

namespace
{

constexpr int Large = 100000;
constexpr int Small = 100;
constexpr int Rounds = 9;

} // namespace

int main()
{
    requireEmptyWorld();
    // What the library prints goes here, what the benchmark says to standard error.
    if (freopen("/dev/null", "w", stdout) == nullptr)
        return 2;
    CQVTrackManager tracing;
    PostfixManager manager(&tracing, "", "files", "", "", "", "", "");
    for (const int count : {Small, Large})
        manager.Postfix_CreateDomDir(domainName(count / MailboxesPerDomain));

    for (const bool dovecotDelivers : {false, true}) {
        setDelivery(dovecotDelivers);
        writeMailboxes(Small);
        addMailbox(manager, Small);
        const long peakOfSmall = residentPeak();

        writeMailboxes(Large);
        std::vector<double> ours;
        std::vector<double> commands;
        for (int round = 0; round < Rounds; ++round) {
            commands.push_back(secondsOf([&] { runCommandsAlone(dovecotDelivers); }));
            ours.push_back(secondsOf([&] { addMailbox(manager, Large + round); }));
        }
        fprintf(stderr,
                "DovecotLDA %s: adding a mailbox to %d %.1f ms, its commands alone %.1f ms, ratio "
                "%.3f; peak memory %ld KiB, with %d mailboxes %ld KiB\n",
                dovecotDelivers ? "yes" : "no", Large, 1000 * median(ours), 1000 * median(commands),
                median(ours) / median(commands), residentPeak(), Small, peakOfSmall);
    }
}
