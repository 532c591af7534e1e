// The settings of Postfix and Dovecot
#include "Areas.h"

#include "MapFiles.h"
#include "Output.h"
#include "Paths.h"
#include "Programs.h"
#include "maps/LineReader.h"
#include "maps/MapLines.h"
#include "system/SystemAccounts.h"

#include <algorithm>
#include <set>

#include <grp.h>

namespace
{

constexpr int Seconds = 10;

const std::vector<std::string> PostfixNames = {"default_database_type", "virtual_mailbox_domains",
                                               "virtual_mailbox_maps",  "virtual_alias_maps",
                                               "virtual_alias_domains", "virtual_transport",
                                               "virtual_mailbox_base",  "recipient_delimiter",
                                               "mydestination",         "virtual_gid_maps"};
const std::vector<std::string> DovecotNames = {"recipient_delimiter", "mail_location",
                                               "mail_plugins",        "first_valid_uid",
                                               "service/auth/user",   "mail_gid"};

std::vector<std::string> commandOf(std::vector<std::string> words,
                                   const std::vector<std::string>& more)
{
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

// ---- Reading ----

std::string textOf(const std::string& path)
{
    std::string text;
    LineReader reader(path);
    std::string_view line;
    while (reader.nextLine(line))
        text.append(line).append("\n");
    return text;
}

// Adds the files whose absolute paths follow a mark, such as "mysql:".
void addSqlFiles(MailServers& servers, const std::string& setting, const std::string& mark,
                 const char* group)
{
    for (std::size_t at = 0; (at = setting.find(mark + "/", at)) != std::string::npos; ++at) {
        const std::size_t begin = at + mark.size();
        const std::size_t end = setting.find_first_of(", \t\n}", begin);
        const std::string path = setting.substr(begin, end - begin);
        const bool isKnown = std::any_of(servers.sqlFiles.begin(), servers.sqlFiles.end(),
                                         [&](const SqlFile& file) { return file.path == path; });
        if (!isKnown)
            servers.sqlFiles.push_back({path, group, textOf(path)});
    }
}

void readPostfix(MailServers& servers)
{
    servers.hasPostfix = isInstalled("postconf");
    if (!servers.hasPostfix || !isThere(MainCf))
        return;
    const auto settings = outputOf(commandOf({"postconf", "-x"}, PostfixNames), Seconds);
    for (const std::string& line : linesOf(settings.value_or(""))) {
        const std::string_view value = textAfter(line, '=');
        servers.postfix[line.substr(0, line.find(' '))] =
            value.empty() ? "" : std::string(value.substr(1));
    }
    servers.tableType = servers.postfixSetting("default_database_type");
    for (const auto& [name, value] : servers.postfix)
        addSqlFiles(servers, value, "mysql:", "postfix");
}

void readDovecot(MailServers& servers)
{
    servers.hasDovecot = isInstalled("doveconf");
    if (!servers.hasDovecot || !isThere(DovecotConf))
        return;
    const auto values = outputOf(commandOf({"doveconf", "-h"}, DovecotNames), Seconds);
    const std::vector<std::string> lines = linesOf(values.value_or(""));
    if (lines.size() != DovecotNames.size())
        return;
    for (std::size_t i = 0; i < lines.size(); ++i)
        servers.dovecot[DovecotNames[i]] = lines[i];
    servers.passdb = outputOf({"doveconf", "passdb"}, Seconds).value_or("");
    servers.userdb = outputOf({"doveconf", "userdb"}, Seconds).value_or("");
    if (contains(servers.passdb + servers.userdb, "driver = sql"))
        addSqlFiles(servers, servers.passdb + servers.userdb, "args = ", "dovecot");
}

// The number of the group that passes the spool.
std::string numberOfMail()
{
    const group* const mail = getgrnam(MailReaders);
    return mail == nullptr ? "" : std::to_string(mail->gr_gid);
}

// ---- Postfix ----

void unfit(Findings& findings, const MailServers& servers, const std::string& setting,
           const std::string& harm, const std::string& value)
{
    findings.push_back({"postfix-setting", MainCf, setting,
                        setting + " is " + inQuotes(servers.postfixSetting(setting)) + ": " + harm,
                        "\"postconf -e '" + setting + " = " + value +
                            "'\" and \"postfix reload\", or \"qvmailctl init --servers\""});
}

struct Expected {
    const char* setting;
    const char* part; // the text that its value must contain
    const char* harm;
    const char* value;
};

const std::vector<Expected> ExpectedOfFiles = {
    {"virtual_mailbox_domains", VDOMAINFILE, "the hosted domains are not Postfix's", VDOMAINFILE},
    {"virtual_mailbox_maps", ":" VMAPSFILE, "Postfix knows no mailbox",
     "$default_database_type:" VMAPSFILE},
    {"virtual_alias_maps", ":" VALIASFILE, "forwarders and lists have no effect",
     "$default_database_type:" VALIASFILE ", pipemap:{$default_database_type:" VMAPSFILE
     ", regexp:/etc/postfix/inbox_to_address}"}};

const std::vector<Expected> ExpectedOfTables = {
    {"virtual_mailbox_domains", "mysql:", "the hosted domains are not Postfix's",
     "proxy:mysql:/etc/postfix/sql-domains.cf"},
    {"virtual_mailbox_maps", "mysql:", "Postfix knows no mailbox",
     "proxy:mysql:/etc/postfix/sql-mailboxes.cf"},
    {"virtual_alias_maps", "mysql:", "forwarders, lists and catch-alls have no effect",
     "proxy:mysql:/etc/postfix/sql-aliases.cf"}};

void checkTransport(const Settings& settings, const MailServers& servers, Findings& findings)
{
    const std::string maps = servers.postfixSetting("virtual_mailbox_maps");
    if (servers.postfixSetting("virtual_transport") != "virtual") {
        if (!settings.usesSql && !contains(servers.postfixSetting("virtual_alias_maps"), VMAPSFILE))
            unfit(findings, servers, "virtual_alias_maps",
                  "a catch-all has no effect, as Dovecot does not look at " VMAPSFILE,
                  ExpectedOfFiles.back().value);
        return;
    }
    if (servers.postfixSetting("virtual_mailbox_base") != VSPOOLDIR)
        unfit(findings, servers, "virtual_mailbox_base", "mail is delivered elsewhere", VSPOOLDIR);
    if (!servers.postfixPassesSpool())
        unfit(findings, servers, "virtual_gid_maps",
              "the group mail alone should pass " VSPOOLDIR ", and virtual(8) is not of it",
              "static:" + numberOfMail());
    if (contains(maps, "proxy:"))
        unfit(findings, servers, "virtual_mailbox_maps",
              "virtual(8), which delivers, does not accept \"proxy:\"",
              maps.substr(0, maps.find("proxy:")) + maps.substr(maps.find("proxy:") + 6));
}

void checkPostfix(const Settings& settings, const MailServers& servers, const Hosting& hosting,
                  Findings& findings)
{
    const std::string wayOut = "\"qvmailctl init --servers\" sets it up";
    if (!servers.hasPostfix) {
        findings.push_back(
            {"postfix-missing", MainCf, "", "Postfix is not installed", "install it; " + wayOut});
        return;
    }
    if (servers.postfix.empty()) {
        findings.push_back({"postfix-unset", MainCf, "",
                            isThere(MainCf) ? "postconf does not understand it"
                                            : "is missing, so Postfix does not start",
                            isThere(MainCf) ? "\"postconf -n\" says why" : wayOut});
        return;
    }
    for (const Expected& expected : settings.usesSql ? ExpectedOfTables : ExpectedOfFiles)
        if (!contains(servers.postfixSetting(expected.setting), expected.part))
            unfit(findings, servers, expected.setting, expected.harm, expected.value);
    if (!servers.postfixSetting("recipient_delimiter").empty())
        unfit(findings, servers, "recipient_delimiter",
              "mail for a mailbox with that character in its name goes to another", "");
    if (!servers.postfixSetting("virtual_alias_domains").empty())
        unfit(findings, servers, "virtual_alias_domains",
              "the names in it are taken for domains that only forward", "");
    checkTransport(settings, servers, findings);
    for (const std::string& word : wordsOf(servers.postfixSetting("mydestination")))
        if (hosting.hosts(lowerCase(word)))
            findings.push_back({"domain-is-own-name", MainCf, word,
                                "mydestination holds " + shown(word) +
                                    ", which is hosted: Postfix takes its mail for its own system "
                                    "accounts",
                                "take it out of mydestination, or give myhostname another name"});
}

// ---- Dovecot ----

void checkDovecot(const Settings& settings, const MailServers& servers, Findings& findings)
{
    const bool delivers = contains(servers.postfixSetting("virtual_transport"), "dovecot");
    const auto report = [&](const char* setting, const std::string& fault) {
        findings.push_back({"dovecot-setting", DovecotConf, setting, fault,
                            "see \"config/dovecot\", or \"qvmailctl init --servers\""});
    };
    if (!servers.hasDovecot) {
        if (delivers)
            findings.push_back({"dovecot-missing", DovecotConf, "",
                                "Dovecot is not installed, and virtual_transport of Postfix is "
                                "Dovecot",
                                "install dovecot-imapd and dovecot-lmtpd"});
        return;
    }
    if (servers.dovecot.empty()) {
        findings.push_back({"dovecot-unset", DovecotConf, "",
                            isThere(DovecotConf) ? "doveconf does not understand it"
                                                 : "is missing, so Dovecot does not start",
                            isThere(DovecotConf) ? "\"doveconf -n\" says why"
                                                 : "\"qvmailctl init --servers\" makes it"});
        return;
    }
    if (!contains(servers.passdb, settings.usesSql ? "driver = sql" : VSHADOWFILE))
        report("passdb", "passdb does not name " +
                             std::string(settings.usesSql ? "the database" : VSHADOWFILE) +
                             ", so nobody can log in");
    if (!contains(servers.userdb, settings.usesSql ? "driver = sql" : VPASSWDFILE))
        report("userdb", "userdb does not name " +
                             std::string(settings.usesSql ? "the database" : VPASSWDFILE) +
                             ", so there is no mailbox");
    const std::size_t scheme = servers.passdb.find("scheme=");
    if (scheme != std::string::npos && servers.passdb.compare(scheme + 7, 9, "MD5-CRYPT") != 0 &&
        servers.passdb.compare(scheme + 7, 5, "CRYPT") != 0)
        report("passdb", "passdb has another scheme than MD5-CRYPT, which the passwords are of");
    if (!servers.dovecotSetting("recipient_delimiter").empty())
        report("recipient_delimiter",
               "recipient_delimiter is " + inQuotes(servers.dovecotSetting("recipient_delimiter")) +
                   ": mail for a mailbox with that character in its name goes to another");
    constexpr const char* Inbox = "/mail/inbox/%u";
    if (!contains(servers.dovecotSetting("mail_location") + servers.userdb, Inbox))
        report("mail_location", "mail_location is not where Postfix and the library have the "
                                "inboxes, " VSPOOLDIR "/%d/mail/inbox/%u");
    else if (settings.dovecotLDA && !contains(servers.userdb, Inbox))
        report("userdb", "userdb has no override_fields with mail=: the inbox moves when a mailbox "
                         "gets its first quota");
    if (!servers.dovecotPassesSpool())
        report("mail_gid",
               "mail_gid, or the userdb, has another group than mail, which alone should "
               "pass " VSPOOLDIR);
    const bool hasQuotas = settings.usesSql || settings.dovecotLDA;
    if (hasQuotas && !contains(servers.dovecotSetting("mail_plugins"), "quota"))
        report("mail_plugins", "mail_plugins lacks quota, so no quota holds");
    if (!hasQuotas && delivers)
        findings.push_back({"dovecot-setting", QVCONFFILE, "DovecotLDA",
                            "DovecotLDA is not \"yes\", and Dovecot delivers: no quota holds",
                            "write DovecotLDA \"yes\""});
}

// ---- The database, as the servers name it ----

// The value in a line "NAME = VALUE" of a settings file; empty when it has another name.
std::string_view valueIn(std::string_view line, std::string_view name)
{
    if (textBefore(line, '=').substr(0, name.size()) != name)
        return {};
    const std::string_view value = textAfter(line, '=');
    return value.substr(std::min(value.find_first_not_of(" \t"), value.size()));
}

struct Named {
    std::string database;
    Addresses hosts;
};

Named namedIn(const SqlFile& file)
{
    Named named;
    for (const std::string& line : linesOf(file.text)) {
        if (const std::string_view name = valueIn(line, "dbname"); !name.empty())
            named.database = name;
        for (const std::string& host : wordsOf(valueIn(line, "hosts")))
            named.hosts.push_back(host);
        for (const std::string& word : wordsOf(valueIn(line, "connect")))
            if (word.compare(0, 7, "dbname=") == 0)
                named.database = word.substr(7);
            else if (word.compare(0, 5, "host=") == 0)
                named.hosts.push_back(word.substr(5));
    }
    return named;
}

// The machine of a host setting, without the port; all names of this machine become one.
std::string machineOf(const std::string& host)
{
    const bool isLocal = host.compare(0, 5, "unix:") == 0 || host.compare(0, 1, "/") == 0 ||
                         host.compare(0, 9, "localhost") == 0 || host == "::1";
    return isLocal ? "127.0.0.1" : std::string(textBefore(host, ':'));
}

void checkSqlFiles(const Settings& settings, const MailServers& servers, Findings& findings)
{
    std::set<std::string> mine;
    for (const std::string& host : wordsOf(settings.database.server))
        mine.insert(machineOf(host));
    for (const SqlFile& file : servers.sqlFiles) {
        const Named named = namedIn(file);
        const bool isOther =
            !named.hosts.empty() &&
            std::none_of(named.hosts.begin(), named.hosts.end(),
                         [&](const std::string& host) { return mine.count(machineOf(host)) > 0; });
        if (!isThere(file.path))
            findings.push_back({"sql-file", file.path, "", "is missing, and a server reads it",
                                "\"qvmailctl init --servers\" makes it"});
        else if (isOther || named.database != settings.database.database)
            findings.push_back({"sql-file", file.path, "",
                                "names the database " + inQuotes(named.database) + " on " +
                                    inQuotes(named.hosts.empty() ? "" : named.hosts.front()) +
                                    ", and " QVCONFFILE " " + inQuotes(settings.database.database) +
                                    " on " + inQuotes(settings.database.server) +
                                    ": the server sees no change",
                                "name the same one in both"});
    }
}

} // namespace

bool MailServers::postfixPassesSpool() const
{
    return postfixSetting("virtual_transport") != "virtual" ||
           postfixSetting("virtual_gid_maps") == "static:" + numberOfMail();
}

bool MailServers::dovecotPassesSpool() const
{
    const std::string gid = dovecotSetting("mail_gid");
    const bool hasOwnGroups = contains(userdb, VPASSWDFILE) && !contains(userdb, "gid=mail");
    return dovecot.empty() || ((gid == MailReaders || gid == numberOfMail()) && !hasOwnGroups);
}

std::string MailServers::postfixSetting(const std::string& name) const
{
    const auto found = postfix.find(name);
    return found == postfix.end() ? "" : found->second;
}

std::string MailServers::dovecotSetting(const std::string& name) const
{
    const auto found = dovecot.find(name);
    return found == dovecot.end() ? "" : found->second;
}

MailServers readServers()
{
    MailServers servers;
    readPostfix(servers);
    readDovecot(servers);
    return servers;
}

void checkServers(const Settings& settings, const MailServers& servers, const Hosting& hosting,
                  Findings& findings)
{
    checkPostfix(settings, servers, hosting, findings);
    checkDovecot(settings, servers, findings);
    if (settings.usesSql)
        checkSqlFiles(settings, servers, findings);
}
