// The database that holds the accounts: its logins, the database itself and its tables.
#ifndef QVMAILCTL_INIT_DATABASE_H
#define QVMAILCTL_INIT_DATABASE_H

#include "init/Setup.h"
#include "system/SqlConnection.h"

#include <optional>
#include <string>
#include <vector>

// A user of the database. The password is the one in the file or, when there is no such file yet, a
// new one that is to be written there.
struct SqlLogin {
    std::string user;
    std::string password;
    std::string file;
    bool isAccepted = false; // the database knows it
};

struct Database {
    SqlSettings place;            // server, port, database; and the login of Quorvel.conf
    std::vector<SqlLogin> logins; // Quorvel.conf's; with --servers also Postfix's, Dovecot's
    std::string refusal;          // why the first login is not accepted

    // Root's connection through the server's socket; nothing where root may not log in.
    std::optional<SqlConnection> root;

    bool isUsable() const { return root || logins.front().isAccepted; }
};

// Finds out what is there. Ends the command when a login has another password than its file.
Database lookAtDatabase(const Setup& setup, const std::optional<SqlSettings>& settings);

// Whether its tables hold no domain, or cannot be read.
bool isEmpty(const Database& database);

// Makes what is missing, or says what the database's administrator must run.
void makeDatabase(Setup& setup, Database& database);

#endif
