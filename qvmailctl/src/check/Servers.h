// The settings of Postfix and Dovecot, as postconf and doveconf print them.
#ifndef QVMAILCTL_CHECK_SERVERS_H
#define QVMAILCTL_CHECK_SERVERS_H

#include <map>
#include <string>
#include <vector>

constexpr const char* MainCf = "/etc/postfix/main.cf";
constexpr const char* DovecotConf = "/etc/dovecot/dovecot.conf";

// A settings file that tells a server where the database is.
struct SqlFile {
    std::string path;
    const char* group; // of the server that reads it
    std::string text;
};

struct MailServers {
    bool hasPostfix = false;                    // installed
    std::map<std::string, std::string> postfix; // by name, expanded; none when it has no main.cf
    std::string tableType;                      // the type that postmap makes; empty: unknown

    bool hasDovecot = false;
    std::map<std::string, std::string> dovecot; // none when its settings are not understood
    std::string passdb;
    std::string userdb;

    std::vector<SqlFile> sqlFiles; // named in their settings, and there

    // Whether the programs that deliver or read mail have the group mail, which alone can pass the
    // spool.
    bool postfixPassesSpool() const;
    bool dovecotPassesSpool() const;

    std::string postfixSetting(const std::string& name) const;
    std::string dovecotSetting(const std::string& name) const;
};

MailServers readServers();

#endif
