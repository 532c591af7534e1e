// Where the mail accounts are kept, as the product configuration file says.
#ifndef QVMAILCTL_SETTINGS_H
#define QVMAILCTL_SETTINGS_H

#include <string>

struct Settings {
    bool onTables = false; // else on map files
    std::string server;
    std::string port;
    std::string user;
    std::string password;
    std::string database;
};

// MailBackend, and for tables MailSqlServer, MailSqlPort, MailSqlUser, MailSqlPassword and
// MailSqlDatabase. Ends the command when one of them is needed and missing, or cannot be read.
Settings readSettings();

#endif
