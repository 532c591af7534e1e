#include "system/LargeFilesAndDates.h"

#include "init/Servers.h"

#include "Hosting.h"
#include "MapFiles.h"
#include "Programs.h"
#include "Results.h"
#include "init/Files.h"
#include "init/System.h"

#include <algorithm>

#include <unistd.h>

namespace
{

const std::string AliasFile = "/etc/aliases";
constexpr const char* MasterFile = "/etc/postfix/master.cf";
constexpr const char* DistributedMasterFile = "/usr/share/postfix/master.cf.dist";
constexpr const char* ExampleKey = "/etc/ssl/private/ssl-cert-snakeoil.key";

// A server's file, and the shipped files that it is put together from.
struct ServerFile {
    std::string path;
    std::vector<std::string> parts;
    Readers readers = {};
};

// A file that another one names comes before that one.
std::vector<ServerFile> serverFiles(const Setup& setup)
{
    constexpr Readers OfPostfix = {0640, "postfix"};
    constexpr Readers OfDovecot = {0640, "dovecot"};
    const std::string backend = setup.backend();
    std::vector<ServerFile> files;
    if (setup.usesSql)
        files = {{"/etc/postfix/sql-domains.cf", {"postfix/sql-domains.cf"}, OfPostfix},
                 {"/etc/postfix/sql-mailboxes.cf", {"postfix/sql-mailboxes.cf"}, OfPostfix},
                 {"/etc/postfix/sql-aliases.cf", {"postfix/sql-aliases.cf"}, OfPostfix},
                 {"/etc/dovecot/sql.conf", {"dovecot/sql.conf"}, OfDovecot}};
    else
        files = {{"/etc/postfix/inbox_to_address", {"postfix/inbox_to_address"}}};
    files.push_back({"/etc/dovecot/accounts.conf", {"dovecot/accounts-" + backend + ".conf"}});
    files.push_back({"/etc/dovecot/dovecot.conf", {"dovecot/dovecot.conf"}});
    files.push_back(
        {"/etc/postfix/main.cf", {"postfix/main.cf", "postfix/accounts-" + backend + ".cf"}});
    return files;
}

// ---- Whether a file is there already ----

// The first line of a shipped file is its mark. A file with that line was made from the shipped
// one; the administrator may have changed it since.
bool hasMark(const std::string& text, const std::string& part)
{
    const std::vector<std::string> marks = linesOf(part);
    const auto mark = std::find_if_not(marks.begin(), marks.end(),
                                       [](const std::string& line) { return line.empty(); });
    const std::vector<std::string> lines = linesOf(text);
    return std::find(lines.begin(), lines.end(), *mark) != lines.end();
}

bool isSetUp(const Setup& setup, const ServerFile& file)
{
    if (!isFile(file.path))
        return false;
    const std::string text = textOfFile(file.path);
    return std::all_of(file.parts.begin(), file.parts.end(), [&](const std::string& part) {
        return hasMark(text, textOfFile(setup.shipped(part)));
    });
}

// ---- Its text ----

// The text with the place of the database and the login that reads it.
std::string withDatabase(std::string text, const Database& database)
{
    const SqlLogin& reader = database.logins.back();
    std::string hosts;
    std::string connect;
    for (const std::string& server : wordsOf(database.place.server)) { // a cluster has several
        const bool hasPort = server.find(':') != std::string::npos;
        hosts += (hosts.empty() ? "" : " ") + server + (hasPort ? "" : ":" + database.place.port);
        connect += "host=" + server.substr(0, server.find(':')) + " ";
    }
    connect += "port=" + database.place.port + " dbname=" + database.place.database +
               " user=" + reader.user + " password=" + reader.password;
    const std::pair<const char*, std::string> values[] = {{"hosts = ", hosts},
                                                          {"user = ", reader.user},
                                                          {"password = ", reader.password},
                                                          {"dbname = ", database.place.database},
                                                          {"connect = ", connect}};
    for (const auto& [name, value] : values)
        text = withValue(text, name, value);
    return text;
}

std::string freshText(const Setup& setup, const ServerFile& file, const Database* database)
{
    std::string text;
    for (const std::string& part : file.parts)
        text += textOfFile(setup.shipped(part));
    if (database != nullptr)
        text = withDatabase(text, *database);
    return withValue(text, "myhostname = ", hostName());
}

// When the file was made for accounts in the other place (files or database), only what concerns
// the accounts is changed in it.
std::string textFor(const Setup& setup, const ServerFile& file, const Database* database)
{
    const std::string other = setup.usesSql ? "files" : "mysql";
    const std::string ours = file.parts.back();
    const std::string theirs = withReplaced(ours, setup.backend(), other);
    if (file.parts.size() > 1 && isFile(file.path)) {
        const std::string former = textOfFile(file.path);
        std::string text = withReplaced(former, textOfFile(setup.shipped(theirs)),
                                        textOfFile(setup.shipped(ours)));
        if (text != former)
            return text;
    }
    return freshText(setup, file, database);
}

// ---- The rest ----

void makeLocalAliases(Setup& setup)
{
    makeFile(setup, AliasFile, "postmaster: root\n");
    // In a dry run main.cf may not be there yet.
    const std::string tables =
        outputOf({"postconf", "-xh", "alias_database"}, 5).value_or("hash:" + AliasFile);
    for (const std::string& table : wordsOf(withReplaced(tables, "\n", "")))
        makeTable(setup, table, table.substr(table.find(':') + 1), {"newaliases"});
}

void seeToCertificate(Setup& setup, const std::string& texts)
{
    if (texts.find(ExampleKey) == std::string::npos)
        return;
    if (!isFile(ExampleKey)) {
        if (!setup.dryRun)
            mustRun({"make-ssl-cert", "generate-default-snakeoil"});
        setup.made.emplace_back(ExampleKey);
    }
    setup.toDo.emplace_back("put the server's own certificate into /etc/postfix/main.cf and "
                            "/etc/dovecot/dovecot.conf: they name Debian's example");
}

void tellWhatIsNeeded(Setup& setup)
{
    for (const ServerFile& file : serverFiles(setup)) {
        if (isSetUp(setup, file)) {
            setup.kept.push_back(file.path);
            continue;
        }
        std::string parts;
        for (const std::string& part : file.parts)
            parts += (parts.empty() ? "" : " and ") + setup.shipped(part);
        setup.toDo.push_back("make " + file.path + " from " + parts + " (--servers does)");
    }
}

} // namespace

void checkServerFiles(const Setup& setup)
{
    for (const ServerFile& file : serverFiles(setup))
        isFile(file.path);
    for (const std::string& path : {std::string(MasterFile), AliasFile})
        isFile(path);
}

void setUpServers(Setup& setup, const Database* database)
{
    if (!setup.servers)
        return tellWhatIsNeeded(setup);
    const std::size_t madeBefore = setup.made.size();
    if (isFile(DistributedMasterFile))
        makeFile(setup, MasterFile, textOfFile(DistributedMasterFile));
    std::string texts;
    for (const ServerFile& file : serverFiles(setup)) {
        const bool isThere = isFile(file.path);
        if (isThere && isSetUp(setup, file)) {
            setup.kept.push_back(file.path);
            texts += textOfFile(file.path);
            continue;
        }
        const std::string text = textFor(setup, file, database);
        texts += text;
        if (isThere)
            replaceFile(setup, file.path, text, file.readers);
        else
            makeFile(setup, file.path, text, file.readers);
    }
    seeToCertificate(setup, texts);
    makeLocalAliases(setup);
    const std::string name = valueIn(texts, "myhostname = ");
    if (name.find('.') == std::string::npos || name.rfind("localhost", 0) == 0)
        setup.toDo.emplace_back("set myhostname in /etc/postfix/main.cf to the server's full name: "
                                "\"hostname --fqdn\" tells none");
    if (setup.made.size() > madeBefore || !setup.changed.empty())
        setup.toDo.emplace_back("postfix check && systemctl restart postfix dovecot");
}
