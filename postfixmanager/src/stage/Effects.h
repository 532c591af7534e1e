// What an operation does besides changing maps and the database: commands, owners, the spool. It
// happens at once, or, while a transaction is open, at its commit.
#ifndef QV_EFFECTS_H
#define QV_EFFECTS_H

#include "system/SystemAccounts.h"

#include <optional>
#include <string>

#include <sys/types.h>

// As ownershipOf. A transaction looks each account up once, since it may create many mailboxes.
std::optional<Ownership> knownOwner(const char* user, const char* groupAccount);

// Gives a file or directory to the user and the primary group of groupAccount. False when that
// fails or an account is unknown; the owner is then as it was. Plain calls do not check.
bool giveTo(const std::string& path, const char* user, const char* groupAccount);

// "postmap FILE": rebuilds the lookup table that Postfix reads in place of the file. It is not run
// for a path that may never end (RegularFile.h). In a transaction the commit builds the table of
// each changed map anyway.
void rebuildLookupTable(const std::string& map);

// "postfix reload": makes a running Postfix read its settings and tables anew.
void reloadPostfix();

// Makes a directory of the spool with the mode madeWith, or takes the one that is there; then gives
// it to "qvadmin" and the primary group of "mail" and sets its mode. A link in its place gets
// neither. False when it cannot be made, as below a link, or when one of these accounts is unknown:
// nothing is made then.
bool makeSpoolDirectory(const std::string& path, mode_t madeWith, mode_t mode);

// Runs the command, which removes the path, unless a link on the way would lead it out of the
// domain's directory. In a transaction the commit removes the path, with all below it.
void removeSpoolPath(const std::string& command, const std::string& path);

#endif
