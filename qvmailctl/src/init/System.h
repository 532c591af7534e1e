// What init requires of the system and makes in it: packages, accounts, the map files.
#ifndef QVMAILCTL_INIT_SYSTEM_H
#define QVMAILCTL_INIT_SYSTEM_H

#include "init/Setup.h"

#include <string>

// Ends the command (78), with the line that installs what is missing.
// withDatabaseServer  the database is to be made on this machine.
void requirePackages(const Setup& setup, bool withDatabaseServer);

// Each ends the command: when the group of the mail files is missing; when a map is missing whose
// copy is there, because an empty map in its place would hide the loss.
void requireMailGroup();
void requireNoLostMap();

void makeAccount(Setup& setup);

// Makes empty maps and their lookup tables. All mail is put off while one is missing, and the
// library makes the alias map only with the first alias.
void makeMaps(Setup& setup);

// Builds a lookup table when its file is new, or when Postfix cannot read the table.
// table    with its type, such as "hash:/etc/aliases"
// command  builds it
void makeTable(Setup& setup, const std::string& table, const std::string& path,
               const std::vector<std::string>& command);

// Runs a program. Its failure ends the command.
void mustRun(const std::vector<std::string>& command);

// The machine's name, with its domain if it is known.
std::string hostName();

#endif
