// What one command works with: the options, the settings and the library's object.
#ifndef QVMAILCTL_HOST_H
#define QVMAILCTL_HOST_H

#include "PostfixTransaction.h"
#include "Settings.h"

#include <string>

struct Options {
    bool verbose = false;
    bool yes = false;
    int wait = 5; // seconds, for another change to end
};

struct Host {
    explicit Host(const Options& options);

    Options options;
    Settings settings;
    CQVTrackManager tracking; // traces nothing: the calls bring clear passwords
    PostfixManager library;
    PostfixTransaction transaction; // of every change
};

// Completes a change that was interrupted and, with tables, sees that the database answers. Every
// query calls this before its first question to the library. It never waits for another change.
void beginQuery(Host& host);

// Sees that a change can go through: the accounts and tools that it needs are there, and no work
// file is left over. Then opens the transaction.
void beginChange(Host& host);

// Commits the change, if one was begun. Ends the command when that is refused.
void finishChange(Host& host);

// Asks before something is deleted; not with --yes, and not when nobody sits at standard input.
void confirm(const Host& host, const std::string& deletion);

#endif
