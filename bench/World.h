// What the benchmarks share: maps of many mailboxes, adding one more, and the clock.
#ifndef BENCH_WORLD_H
#define BENCH_WORLD_H

#include "PostfixManager.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

constexpr int MailboxesPerDomain = 1000;

inline std::string domainName(int number)
{
    return "domain" + std::to_string(number) + ".test";
}

inline std::string addressOf(int number)
{
    return "user" + std::to_string(number) + "@" + domainName(number / MailboxesPerDomain);
}

// Refuses to run where there are mail accounts: the maps must be the benchmark's own.
inline void requireEmptyWorld()
{
    for (const char* const file : {VPASSWDFILE, VSHADOWFILE, VMAPSFILE, VALIASFILE, VQUOTAFILE})
        if (std::ifstream(file).peek() != std::ifstream::traits_type::eof()) {
            fprintf(stderr, "%s is not empty: run this through bench/run\n", file);
            exit(2);
        }
}

inline void writeLines(const char* file, int count, const std::function<std::string(int)>& line)
{
    std::ofstream out(file);
    for (int i = 0; i < count; ++i)
        out << line(i) << '\n';
}

inline void writeMailboxes(int count)
{
    writeLines(VPASSWDFILE, count, [](int i) {
        const std::string address = addressOf(i);
        return address + ":x:4201:4101:" + address + ":/var/spool/vmail/" +
               domainName(i / MailboxesPerDomain) + "/mail/home/" + address + ":/bin/false";
    });
    writeLines(VSHADOWFILE, count, [](int i) {
        return addressOf(i) + ":$1$abcdefgh$0123456789012345678901:20000::99999::::1";
    });
    writeLines(VMAPSFILE, count, [](int i) {
        return addressOf(i) + " " + domainName(i / MailboxesPerDomain) + "/mail/inbox/" +
               addressOf(i);
    });
    writeLines(VQUOTAFILE, count, [](int i) { return addressOf(i) + "\t1048576"; });
}

inline void addMailbox(PostfixManager& manager, int number)
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

// What the library runs for one mailbox with a quota without a transaction.
inline void runCommandsAlone(bool dovecotDelivers)
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

inline void setDelivery(bool dovecotDelivers)
{
    std::ofstream(QVCONFFILE) << "DovecotLDA \"" << (dovecotDelivers ? "yes" : "no") << "\"\n";
}

inline double secondsOf(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// The largest resident memory that this process has had, in KiB.
inline long residentPeak()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

#endif
