// What an operation does to the world beside its maps and tables: at once, or, while a transaction
// is open, when that is committed.
#ifndef QV_EFFECTS_H
#define QV_EFFECTS_H

#include <string>

#include <sys/types.h>

// "postmap FILE": rebuilds the lookup table that Postfix reads in place of the file. In a
// transaction the table of each map that is changed is built anyway.
void rebuildLookupTable(const std::string& map);

// "postfix reload": makes a running Postfix read its settings and tables anew.
void reloadPostfix();

// Makes a directory of the spool with madeWith, or takes the one that is there; gives it to
// "qvadmin" and the primary group of "mail", and sets its mode. False when it cannot be made, and
// before it is when one of these accounts is unknown.
bool makeSpoolDirectory(const std::string& path, mode_t madeWith, mode_t mode);

// Runs the command, which removes the path. In a transaction the path itself is removed, with all
// below it.
void removeSpoolPath(const std::string& command, const std::string& path);

#endif
