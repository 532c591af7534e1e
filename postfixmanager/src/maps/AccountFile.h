// The steps that the writers of the two account files share.
#ifndef QV_ACCOUNTFILE_H
#define QV_ACCOUNTFILE_H

#include <cstdio>
#include <string>

// Opens the file for appending, with a write lock on the whole of it; waits while another process
// holds one. Makes the file, with mode 0640, when there is none. Null when any of that fails and,
// before the file is touched, when an account that is to own it is unknown. Only those who append
// lock the file; those who rewrite it do not.
FILE* openLockedForAppend(const std::string& file);

// Closes the stream, which lets go of the lock. Gives the file, when the record was written, to
// "root" and the primary group of "mail" with mode 0644.
void closeAppended(FILE* stream, const std::string& file, bool isWritten);

#endif
