// transactions QVMAILCTL - what making a change as a whole or not at all costs, in turns with what
// such a change cannot do without
//
// 1,000 mailboxes with quotas in one transaction: against writing and syncing each map once, hashing
// the passwords, building each table once, making the home directories, and one reload.
// One mailbox by qvmailctl: against the commands that the library runs for it without a transaction.

#include "World.h"

#include "Encrypt.h"
#include "PostfixTransaction.h"

#include <array>
#include <iterator>

#include <fcntl.h>
#include <sys/stat.h>

namespace
{

constexpr int Large = 100000;
constexpr int Added = 1000;
constexpr int Rounds = 5;
constexpr int CommandRounds = 9;

constexpr const char* MailboxMaps[] = {VPASSWDFILE, VSHADOWFILE, VQUOTAFILE, VMAPSFILE};

void require(bool isDone, const char* attempt)
{
    if (isDone)
        return;
    fprintf(stderr, "failed: %s\n", attempt);
    exit(1);
}

std::string contentOf(const char* file)
{
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
}

void writeSynced(const char* file, const std::string& text)
{
    const int descriptor = open(file, O_WRONLY | O_TRUNC | O_CLOEXEC);
    require(write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
                fsync(descriptor) == 0 && close(descriptor) == 0,
            file);
}

std::string homeOf(int number)
{
    return VSPOOLDIR "/" + domainName(number / MailboxesPerDomain) + "/mail/home/" +
           addressOf(number);
}

void removeHomes(int count)
{
    for (int i = 0; i < Added; ++i)
        require(rmdir(homeOf(count + i).c_str()) == 0, "to remove a home");
}

void addInOneTransaction(PostfixManager& manager, int count)
{
    PostfixTransaction transaction(manager);
    require(transaction.open(0) == PostfixTransaction::Done, transaction.reason().c_str());
    for (int i = 0; i < Added; ++i)
        addMailbox(manager, count + i);
    require(transaction.commit() == PostfixTransaction::Done, transaction.reason().c_str());
}

void hashPasswords()
{
    for (int i = 0; i < Added; ++i) {
        std::string password = "a-password-of-some-length";
        require(Encrypt(password.data()) != nullptr, "to hash a password");
    }
}

void makeHomes(int count)
{
    for (int i = 0; i < Added; ++i) {
        const std::string home = homeOf(count + i);
        require(mkdir(home.c_str(), 0700) == 0 && chown(home.c_str(), 4201, 4108) == 0 &&
                    chmod(home.c_str(), 02777) == 0,
                home.c_str());
    }
}

void run(const char* command)
{
    require(system(command) == 0, command);
}

// The time of one side in all rounds.
void report(const char* side, std::vector<double> seconds)
{
    const auto [least, most] = std::minmax_element(seconds.begin(), seconds.end());
    fprintf(stderr, "    %s: %.1f ms (%.1f to %.1f)\n", side, 1000 * median(seconds), 1000 * *least,
            1000 * *most);
}

// The ratio of the two sides round by round.
void reportRatio(const char* what, const std::vector<double>& ours,
                 const std::vector<double>& theirs)
{
    std::vector<double> ratios;
    for (std::size_t i = 0; i < ours.size(); ++i)
        ratios.push_back(ours[i] / theirs[i]);
    const auto [least, most] = std::minmax_element(ratios.begin(), ratios.end());
    fprintf(stderr, "    ratio %s: %.3f (%.3f to %.3f)\n", what, median(ratios), *least, *most);
}

void measureThousand(PostfixManager& manager, int count, bool dovecotDelivers)
{
    manager.Postfix_CreateDomDir(domainName(count / MailboxesPerDomain));
    setDelivery(dovecotDelivers);
    std::vector<double> ours;
    std::vector<double> withoutHomes;
    std::vector<double> withHomes;
    for (int round = 0; round < Rounds; ++round) {
        writeMailboxes(count);
        ours.push_back(secondsOf([&] { addInOneTransaction(manager, count); }));
        removeHomes(count);

        std::array<std::string, std::size(MailboxMaps)> contents;
        std::transform(std::begin(MailboxMaps), std::end(MailboxMaps), contents.begin(), contentOf);
        withoutHomes.push_back(secondsOf([&] {
            for (std::size_t i = 0; i < contents.size(); ++i)
                writeSynced(MailboxMaps[i], contents[i]);
            hashPasswords();
            run("postmap " VMAPSFILE);
            run("postmap " VQUOTAFILE);
            run("postfix reload");
        }));
        withHomes.push_back(withoutHomes.back() + secondsOf([&] { makeHomes(count); }));
        removeHomes(count);
    }
    fprintf(stderr, "DovecotLDA %s: adding %d mailboxes to %d\n", dovecotDelivers ? "yes" : "no",
            Added, count);
    report("in one transaction", ours);
    report("maps, hashes, tables and reload once", withoutHomes);
    reportRatio("without the homes", ours, withoutHomes);
    report("with the homes", withHomes);
    reportRatio("with the homes", ours, withHomes);
}

void measureCommand(PostfixManager& manager, const std::string& qvmailctl, bool dovecotDelivers)
{
    const std::string domain = domainName(Large / MailboxesPerDomain);
    manager.Postfix_CreateDomDir(domain);
    std::ofstream(VDOMAINFILE) << domain << '\n';
    setDelivery(dovecotDelivers);
    writeMailboxes(Large);
    std::vector<double> ours;
    std::vector<double> commands;
    for (int round = 0; round < CommandRounds; ++round) {
        const std::string command = "echo a-password-of-some-length | " + qvmailctl +
                                    " mailbox add " + addressOf(Large + round) + " --quota 1M";
        commands.push_back(secondsOf([&] { runCommandsAlone(dovecotDelivers); }));
        ours.push_back(secondsOf([&] { run(command.c_str()); }));
        require(rmdir(homeOf(Large + round).c_str()) == 0, "to remove a home");
    }
    fprintf(stderr, "DovecotLDA %s: qvmailctl mailbox add to %d mailboxes\n",
            dovecotDelivers ? "yes" : "no", Large);
    report("qvmailctl", ours);
    report("commands without a transaction", commands);
    reportRatio("", ours, commands);
}

} // namespace

int main(int argc, char** argv)
{
    require(argc == 2, "usage: transactions QVMAILCTL");
    requireEmptyWorld();
    // What the library prints goes here, what the benchmark says to standard error.
    if (freopen("/dev/null", "w", stdout) == nullptr)
        return 2;
    CQVTrackManager tracing;
    PostfixManager manager(&tracing, "", "files", "", "", "", "", "");
    for (const bool dovecotDelivers : {false, true}) {
        for (const int count : {0, Large})
            measureThousand(manager, count, dovecotDelivers);
        measureCommand(manager, argv[1], dovecotDelivers);
    }
}
