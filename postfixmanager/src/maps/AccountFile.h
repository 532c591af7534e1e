// The steps that the writers of the two account files share.
#ifndef QV_ACCOUNTFILE_H
#define QV_ACCOUNTFILE_H

#include "maps/MapVariants.h"

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

// Opens the file for appending, with a write lock on the whole of it; waits while another process
// holds one. Makes the file, with mode 0640, when there is none. Null when any of that fails, when it
// is no regular file and, before it is touched, when an account that is to own it is unknown. Only
// those who append lock the file; those who rewrite it do not.
FILE* openLockedForAppend(const std::string& file);

// Closes the stream, which lets go of the lock. Gives the file, when the record was written, to
// "root" and the primary group of "mail" with mode 0644.
void closeAppended(FILE* stream, const std::string& file, bool isWritten);

// Streams an account file through edited, which gets each line that isMine picks by its name and
// gives the line to write, or nothing to drop it. An empty line bears the name of the line before
// it, on purpose: so it is copied, or edited like that line, and one more stands at the file's end.
// False when the file cannot be opened.
bool rewriteAccounts(const MapVariant& variant,
                     const std::function<bool(std::string_view name)>& isMine,
                     const std::function<std::optional<std::string>(std::string_view)>& edited);

// The line of vshadow with another password field; nothing for a line without one, which a
// transaction takes for a failure.
std::optional<std::string> withPassword(std::string_view line, const std::string& hash);

#endif
