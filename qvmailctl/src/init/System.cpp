#include "system/LargeFilesAndDates.h"

#include "init/System.h"

#include "MapFiles.h"
#include "Programs.h"
#include "Results.h"
#include "init/Files.h"
#include "system/SystemAccounts.h"

#include <algorithm>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace
{

constexpr int Seconds = 60; // only the table of a very large map could take longer
constexpr const char* Maps[] = {VDOMAINFILE, VPASSWDFILE, VSHADOWFILE,
                                VMAPSFILE,   VALIASFILE,  VQUOTAFILE};
constexpr const char* PostfixSettings = "/etc/postfix/main.cf";

// A Debian package, and a program or another file by which its presence is seen.
struct Package {
    const char* name;
    const char* file;
};
constexpr Package Postfix = {"postfix", "postmap"};
constexpr Package OfServers[] = {{"dovecot-imapd", "/usr/lib/dovecot/imap"},
                                 {"dovecot-lmtpd", "/usr/lib/dovecot/lmtp"},
                                 {"ssl-cert", "make-ssl-cert"}};
constexpr Package OfServersOnSql[] = {
    {"postfix-mysql", "/usr/lib/postfix/postfix-mysql.so"},
    {"dovecot-mysql", "/usr/lib/dovecot/modules/libdriver_mysql.so"}};
constexpr Package DatabaseServer = {"mariadb-server", "mysqld"};

std::string ifMissing(const Package& package)
{
    const bool isThere =
        *package.file == '/' ? access(package.file, F_OK) == 0 : isInstalled(package.file);
    return isThere ? "" : std::string(" ") + package.name;
}

bool isNotEmpty(const std::string& path)
{
    return isFile(path) && !textOfFile(path).empty();
}

} // namespace

void requirePackages(const Setup& setup, bool withDatabaseServer)
{
    std::string missing = ifMissing(Postfix);
    if (setup.servers)
        for (const Package& package : OfServers)
            missing += ifMissing(package);
    if (setup.servers && setup.usesSql)
        for (const Package& package : OfServersOnSql)
            missing += ifMissing(package);
    if (withDatabaseServer)
        missing += ifMissing(DatabaseServer);
    if (!missing.empty())
        stop(Status::NotFit, "packages are missing; install them with \"apt-get install" + missing +
                                 "\" and run this again");
}

void requireMailGroup()
{
    if (getpwnam(MailReaders) == nullptr || getgrnam(MailReaders) == nullptr)
        stop(Status::NotFit, "the system account or group \"mail\", which mail files belong to, is "
                             "missing; every Debian has it (package base-passwd), bring it back");
}

void requireNoLostMap()
{
    const auto lost = std::find_if(std::begin(Maps), std::end(Maps), [](const char* map) {
        return !isFile(map) && isNotEmpty(std::string(map) + ".qvbackup");
    });
    if (lost == std::end(Maps))
        return;
    const std::string map = *lost;
    stop(Status::NotFit, "the map " + map + " is missing, but " + map +
                             ".qvbackup, its state before the last change, is there: copy it to "
                             "that place, or remove it if the map is to begin empty");
}

void makeAccount(Setup& setup)
{
    const std::string name = MailOwner;
    if (getgrnam(MailOwner) != nullptr) {
        setup.kept.push_back("group " + name);
    } else {
        if (!setup.dryRun)
            mustRun({"groupadd", "--system", name});
        setup.made.push_back("group " + name);
    }
    if (getpwnam(MailOwner) != nullptr)
        return setup.kept.push_back("account " + name);
    if (!setup.dryRun)
        mustRun({"useradd", "--system", "--gid", name, "--no-create-home", "--home-dir", VSPOOLDIR,
                 "--shell", "/usr/sbin/nologin", name});
    setup.made.push_back("account " + name);
}

void makeMaps(Setup& setup)
{
    for (const char* const map : Maps)
        makeFile(setup, map, "", map == std::string(VSHADOWFILE) ? RootAlone : Readers());

    const bool isPostfixThere =
        isFile(PostfixSettings) || (setup.dryRun && setup.servers); // made by then
    if (!isPostfixThere)
        return setup.toDo.push_back("set up Postfix, and run this again: without " +
                                    std::string(PostfixSettings) +
                                    " postmap makes no tables of the maps");
    const std::vector<std::string> type =
        linesOf(outputOf({"postconf", "-xh", "default_database_type"}, Seconds).value_or("hash"));
    for (const char* const map : {VMAPSFILE, VALIASFILE, VQUOTAFILE})
        makeTable(setup, type.front() + ":" + map, map, {"postmap", map});
}

void makeTable(Setup& setup, const std::string& table, const std::string& path,
               const std::vector<std::string>& command)
{
    const bool isNew = std::find(setup.made.begin(), setup.made.end(), path) != setup.made.end();
    if (!isNew && outputOf({"postmap", "-s", table}, Seconds))
        return setup.kept.push_back("table of " + path);
    if (!setup.dryRun && !outputOf(command, Seconds)) {
        removeHalfTable(path);
        mustRun(command);
    }
    setup.made.push_back("table of " + path);
}

void mustRun(const std::vector<std::string>& command)
{
    if (outputOf(command, Seconds))
        return;
    std::string words;
    for (const std::string& word : command)
        words += (words.empty() ? "" : " ") + word;
    stop(Status::NotWritten, "\"" + words + "\" failed; run it to see why, then run this again");
}

std::string hostName()
{
    constexpr const char* OfNames =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-";
    constexpr int LookUpSeconds = 5;
    for (const char* const option : {"--fqdn", "--short"}) {
        const std::vector<std::string> lines =
            linesOf(outputOf({"hostname", option}, LookUpSeconds).value_or(""));
        if (lines.size() == 1 && lines[0].find_first_not_of(OfNames) == std::string::npos)
            return lines[0];
    }
    return "localhost";
}
