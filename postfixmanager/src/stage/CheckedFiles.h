// The file calls of a transaction. When a call returns, it has done what it says; otherwise it
// throws a Refusal that names the path and the system's reason.
#ifndef QV_CHECKEDFILES_H
#define QV_CHECKEDFILES_H

#include "system/Refusal.h"

#include <string>
#include <vector>

// Refuses for the present errno: "PATH cannot be ATTEMPTED: No space left on device".
[[noreturn]] void refuseFailed(const std::string& path, const char* attempted);

// Tells one state of a file from another: inode, size and time of its last change, as text. Empty
// when there is no file. Refuses anything that is not a regular file, a link too.
std::string identityOf(const std::string& path);

// Copies content, owner, mode and extended attributes (a security label, an access list) to a new
// file, and ends the last line when it has no line end. Returns the size of the copy.
std::size_t copyMap(const std::string& from, const std::string& to);

// Gives a file the owner, mode and extended attributes of another.
void copyRights(const std::string& from, const std::string& to);

// Gives the file a second name, or copies it where the file system has no second names.
void keepUnder(const std::string& from, const std::string& to);

// Sees to it that the file's date, in seconds, is later than that of its earlier state: by date and
// size Dovecot tells whether an account file has changed.
void dateAfter(const std::string& earlier, const std::string& file);

// Refuses when the path, or the directory that holds it, is protected from changes (chattr), so
// that a rename would fail.
void checkChangeable(const std::string& path);

void moveFile(const std::string& from, const std::string& to);
void removeIfThere(const std::string& path);

// Makes the file with mode 0600, in place of what was there, and syncs it.
void writeSynced(const std::string& path, const std::string& text);
std::string readWhole(const std::string& path);

// The paths of all entries of the directory; none when there is no such directory.
std::vector<std::string> entriesOf(const std::string& directory);

void syncFile(const std::string& path);
void syncDirectory(const std::string& path);

#endif
