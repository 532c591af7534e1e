// The areas of a check: each looks at one, and adds what it finds.
#ifndef QVMAILCTL_CHECK_AREAS_H
#define QVMAILCTL_CHECK_AREAS_H

#include "Findings.h"
#include "Hosting.h"
#include "Servers.h"
#include "Settings.h"

// The system's accounts and groups, and the directories.
void checkAccounts(const MailServers& servers, Findings& findings);
void checkDirectories(const MailServers& servers, Findings& findings);

// What the lock of all changes needs, and what an interrupted change left there. While a
// transaction is open there is nothing to find.
void checkLock(Findings& findings);

// Whether the maps are there, their owners and modes, and work files. True when all can be read.
bool checkMaps(const MailServers& servers, Findings& findings);

// Line by line, and each map against the others.
void checkEntries(const Settings& settings, const Hosting& hosting, Findings& findings);

// The tables that postmap makes of the maps.
void checkLookupTables(const MailServers& servers, Findings& findings);

// The tables of the database, and the user's rights. True when all rows can be read.
bool checkSchema(const Settings& settings, Findings& findings);
void checkRows(const Settings& settings, const Hosting& hosting, Findings& findings);

// Domains and addresses that lead nowhere, on either backend.
void checkNames(const Settings& settings, const Hosting& hosting, Findings& findings);

void checkSpool(const Hosting& hosting, Findings& findings);
void checkServers(const Settings& settings, const MailServers& servers, const Hosting& hosting,
                  Findings& findings);
void checkSecrets(const Settings& settings, const MailServers& servers, Findings& findings);

#endif
