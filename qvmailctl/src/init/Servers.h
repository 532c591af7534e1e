// The settings of Postfix and Dovecot.
#ifndef QVMAILCTL_INIT_SERVERS_H
#define QVMAILCTL_INIT_SERVERS_H

#include "init/Database.h"
#include "init/Setup.h"

// Sees that every place is free for a file.
void checkServerFiles(const Setup& setup);

// Makes them, or says which are to be made. database: with accounts in the database.
void setUpServers(Setup& setup, const Database* database);

#endif
