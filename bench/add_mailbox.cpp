// Adding a mailbox with a quota to maps of 100,000, against the commands alone that this has to
// run, in turns, beside a running Postfix. And the memory of the library's own work, against small
// maps.

#include "World.h"

namespace
{

constexpr int Large = 100000;
constexpr int Small = 100;
constexpr int Rounds = 9;

void addMailbox(PostfixManager& manager, int number)
{
    std::string address = addressOf(number);
    const std::string domain = domainName(number / MailboxesPerDomain);
    std::string home = VSPOOLDIR "/" + domain + "/mail/home/" + address;
    std::string password = "a-password-of-some-length";
    char noPassword[] = "x";
    char shell[] = "/bin/false";

    passwd account{};
    account.pw_name = account.pw_gecos = address.data();
    account.pw_passwd = noPassword;
    account.pw_uid = 4201;
    account.pw_gid = 4101;
    account.pw_dir = home.data();
    account.pw_shell = shell;
    spwd shadow{};
    shadow.sp_namp = address.data();
    shadow.sp_pwdp = password.data();
    shadow.sp_expire = -1;
    shadow.sp_flag = 1;
    SvpopUser record{&account, &shadow, ""};

    const int result = manager.Postfix_CreateMailbox(
        &record, domain, address.substr(0, address.find('@')), "1048576");
    if (result != PostfixResult::MailboxCreated) {
        fprintf(stderr, "mailbox not created: %d\n", result);
        exit(1);
    }
}

void runCommandsAlone(bool dovecotDelivers)
{
    std::vector<const char*> commands = {
        "cp " VPASSWDFILE " " VPASSWDFILE ".qvbackup",
        "cp " VSHADOWFILE " " VSHADOWFILE ".qvbackup",
        "cp " VQUOTAFILE " " VQUOTAFILE ".qvbackup",
        "postmap " VQUOTAFILE,
        "postfix reload",
        "cp " VMAPSFILE " " VMAPSFILE ".qvbackup",
        "postmap " VMAPSFILE,
        "postfix reload",
    };
    if (dovecotDelivers)
        commands.insert(commands.begin() + 1, "cp " VPASSWDFILE " " VPASSWDFILE ".addbak");
    for (const char* const command : commands)
        if (system(command) != 0) {
            fprintf(stderr, "failed: %s\n", command);
            exit(1);
        }
}

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
        std::ofstream(QVCONFFILE) << "DovecotLDA \"" << (dovecotDelivers ? "yes" : "no") << "\"\n";
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
