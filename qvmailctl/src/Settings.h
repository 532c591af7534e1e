// Where the mail accounts are kept, as the product configuration file says.
#ifndef QVMAILCTL_SETTINGS_H
#define QVMAILCTL_SETTINGS_H

#include "system/SqlConnection.h"

#include <string>

struct Settings {
    bool usesSql = false;      // the accounts are in the database, else in map files
    bool dovecotLDA = false;   // quotas are also written to the account file, for Dovecot
    SqlSettings database = {}; // with usesSql
};

// MailBackend, DovecotLDA and, for the database, MailSqlServer, MailSqlPort, MailSqlUser,
// MailSqlPassword and MailSqlDatabase, and MailSqlConnectTimeout and MailSqlAnswerTimeout, which may be
// absent. Ends the command when one of them is not understood, naming
// its line, or is needed and missing.
Settings readSettings();

#endif
