// Where the mail accounts are kept, as /etc/Quorvel.conf says.
#ifndef QVMAILCTL_SETTINGS_H
#define QVMAILCTL_SETTINGS_H

#include "system/SqlConnection.h"

#include <string>

struct Settings {
    bool usesSql = false;      // the accounts are in the database, else in map files
    bool dovecotLDA = false;   // quotas are also written to the account file, for Dovecot
    SqlSettings database = {}; // with usesSql
};

// Reads MailBackend, DovecotLDA and, with a database, MailSqlServer, MailSqlPort, MailSqlUser,
// MailSqlPassword, MailSqlDatabase, and MailSqlConnectTimeout and MailSqlAnswerTimeout, which may
// be absent. Ends the command when a setting is not understood, with its line's number, or is
// needed and missing.
Settings readSettings();

#endif
