// The areas of a check. Each function looks at one and adds what it finds.
#ifndef QVMAILCTL_CHECK_AREAS_H
#define QVMAILCTL_CHECK_AREAS_H

#include "Findings.h"
#include "Hosting.h"
#include "Servers.h"
#include "Settings.h"

// The system's accounts and groups, and the directories.
void checkAccounts(const MailServers& servers, Findings& findings);
void checkDirectories(const MailServers& servers, Findings& findings);

// What the lock of all changes needs, and what an interrupted change has left there. Not to be
// called while a transaction is open, whose files are no finding.
void checkLock(Findings& findings);

// The maps (are they there, with good owners and modes?) and work files. True when all can be read.
bool checkMaps(const MailServers& servers, Findings& findings);

// The entries of the maps: line by line, and each map against the others.
void checkEntries(const Settings& settings, const Hosting& hosting, Findings& findings);

// The lookup tables that postmap makes of the maps.
void checkLookupTables(const MailServers& servers, Findings& findings);

// The tables of the database, and the user's rights. True when all rows can be read.
bool checkSchema(const Settings& settings, Findings& findings);
void checkRows(const Settings& settings, const Hosting& hosting, Findings& findings);

// Domains and addresses that lead nowhere, in files and in the database.
void checkNames(const Settings& settings, const Hosting& hosting, Findings& findings);

void checkSpool(const Hosting& hosting, Findings& findings);
void checkServers(const Settings& settings, const MailServers& servers, const Hosting& hosting,
                  Findings& findings);
void checkSecrets(const Settings& settings, const MailServers& servers, Findings& findings);

#endif
