// What init asks of the system, and makes in it: packages, accounts, the map files.
#ifndef QVMAILCTL_INIT_SYSTEM_H
#define QVMAILCTL_INIT_SYSTEM_H

#include "init/Setup.h"

#include <string>

// Ends the command (78), with the line that installs what is missing.
// withDatabaseServer  the database is to be made on this machine.
void requirePackages(const Setup& setup, bool withDatabaseServer);

// Ends the command when the group of the mail files is missing, or a map whose former state is there:
// an empty one in its place would hide the loss.
void requireMailGroup();
void requireNoLostMap();

void makeAccount(Setup& setup);

// Empty ones, with the tables that Postfix reads. All mail is put off while one is missing, and
// the first alias, say, may come long after the first mailbox.
void makeMaps(Setup& setup);

// Makes a table anew when its file is new, or when Postfix cannot read it.
// table  "hash:/etc/aliases", say; command  makes it.
void makeTable(Setup& setup, const std::string& table, const std::string& path,
               const std::vector<std::string>& command);

// Runs a program whose failure ends the command.
void mustRun(const std::vector<std::string>& command);

// The machine's name, with its domain if it is known.
std::string hostName();

#endif
