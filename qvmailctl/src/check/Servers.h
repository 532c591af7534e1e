// The settings of Postfix and Dovecot, as they tell them themselves.
#ifndef QVMAILCTL_CHECK_SERVERS_H
#define QVMAILCTL_CHECK_SERVERS_H

#include <map>
#include <string>
#include <vector>

constexpr const char* MainCf = "/etc/postfix/main.cf";
constexpr const char* DovecotConf = "/etc/dovecot/dovecot.conf";

// A file in which a server finds the database.
struct SqlFile {
    std::string path;
    const char* group; // the server's
    std::string text;
};

struct MailServers {
    bool hasPostfix = false;                    // installed
    std::map<std::string, std::string> postfix; // by name, expanded; none when it has no main.cf
    std::string tableType;                      // that postmap makes; empty: unknown

    bool hasDovecot = false;
    std::map<std::string, std::string> dovecot; // none when its settings are not understood
    std::string passdb;
    std::string userdb;

    std::vector<SqlFile> sqlFiles; // that the two name, and are there

    // Whether what delivers or reads mail is of the group mail, which alone passes the spool.
    bool postfixPassesSpool() const;
    bool dovecotPassesSpool() const;

    std::string postfixSetting(const std::string& name) const;
    std::string dovecotSetting(const std::string& name) const;
};

MailServers readServers();

#endif
