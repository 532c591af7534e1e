// The settings of Postfix and Dovecot.
#ifndef QVMAILCTL_INIT_SERVERS_H
#define QVMAILCTL_INIT_SERVERS_H

#include "init/Database.h"
#include "init/Setup.h"

// Ends the command when something stands where a file is to be made.
void checkServerFiles(const Setup& setup);

// Makes the settings, or says which are to be made. database: null with accounts in map files.
void setUpServers(Setup& setup, const Database* database);

#endif
