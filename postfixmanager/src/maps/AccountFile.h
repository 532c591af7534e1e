// The steps that the writers of the two account files share.
#ifndef QV_ACCOUNTFILE_H
#define QV_ACCOUNTFILE_H

#include "maps/MapVariants.h"

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

// Opens the file for appending and locks all of it for writing; waits while another process holds
// such a lock. Makes the file, with mode 0640, when there is none. Null when any of that fails,
// when it is no regular file, or when an account that is to own it is unknown (it is not touched
// then). Only those who append lock the file; those who rewrite it do not.
FILE* openLockedForAppend(const std::string& file);

// Closes the stream, which releases the lock. When the record was written, gives the file to "root"
// and the primary group of "mail" with mode 0644.
void closeAppended(FILE* stream, const std::string& file, bool isWritten);

// Rewrites an account file. edited gets each line whose name isMine picks, and returns the line to
// write, or nothing to drop it. An empty line counts with the line before it: deliberate, hosts
// find one more empty line at the file's end. False when the file cannot be opened.
bool rewriteAccounts(const MapVariant& variant,
                     const std::function<bool(std::string_view name)>& isMine,
                     const std::function<std::optional<std::string>(std::string_view)>& edited);

// The line of vshadow with another password field. Nothing for a line without one; in a transaction
// that is a failure.
std::optional<std::string> withPassword(std::string_view line, const std::string& hash);

#endif
