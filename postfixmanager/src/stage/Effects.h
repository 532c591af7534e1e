// What an operation does to the world beside its maps and tables: at once, or, while a transaction
// is open, when that is committed.
#ifndef QV_EFFECTS_H
#define QV_EFFECTS_H

#include "system/SystemAccounts.h"

#include <optional>
#include <string>

#include <sys/types.h>

// As ownershipOf. A transaction looks accounts up once, not for each of many mailboxes.
std::optional<Ownership> knownOwner(const char* user, const char* groupAccount);

// Gives a file or directory to them. False when that fails or an account is unknown; the owner is
// then as it was. Plain calls do not check.
bool giveTo(const std::string& path, const char* user, const char* groupAccount);

// "postmap FILE": rebuilds the lookup table that Postfix reads in place of the file. Not run for what
// may never end (RegularFile.h). In a transaction the table of each map that is changed is built
// anyway.
void rebuildLookupTable(const std::string& map);

// "postfix reload": makes a running Postfix read its settings and tables anew.
void reloadPostfix();

// Makes a directory of the spool with madeWith, or takes the one that is there; gives it to
// "qvadmin" and the primary group of "mail", and sets its mode. A link in its place gets neither.
// False when it cannot be made, below a link for one, and before it is when one of these accounts is
// unknown.
bool makeSpoolDirectory(const std::string& path, mode_t madeWith, mode_t mode);

// Runs the command, which removes the path; not when a link on the way would lead it out of the
// domain's directory. In a transaction the path itself is removed, with all below it.
void removeSpoolPath(const std::string& command, const std::string& path);

#endif
