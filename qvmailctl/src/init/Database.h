// The database of the accounts: its logins, itself and its tables.
#ifndef QVMAILCTL_INIT_DATABASE_H
#define QVMAILCTL_INIT_DATABASE_H

#include "init/Setup.h"
#include "system/SqlConnection.h"

#include <optional>
#include <string>
#include <vector>

// Who may use the database. The password is that of the file, or, when there is no such file yet, a
// new one that is to be written there.
struct SqlLogin {
    std::string user;
    std::string password;
    std::string file;
    bool isAccepted = false; // the database knows it
};

struct Database {
    SqlSettings place;            // server, port, database; and the login of Quorvel.conf
    std::vector<SqlLogin> logins; // of Quorvel.conf, and with the servers of Postfix and Dovecot
    std::string refusal;          // why the first login is not accepted

    // Root's connection through the server's socket, where that lets root in.
    std::optional<SqlConnection> root;

    bool isUsable() const { return root || logins.front().isAccepted; }
};

// Looks at what is there. Ends the command when a login has another password than its file.
Database lookAtDatabase(const Setup& setup, const std::optional<SqlSettings>& settings);

// Whether no domain is in its tables, or they cannot be read.
bool isEmpty(const Database& database);

// Makes what is missing, or says what the database's administrator has to run.
void makeDatabase(Setup& setup, Database& database);

#endif
