// What one command works with: the options, the settings and the library's object.
#ifndef QVMAILCTL_HOST_H
#define QVMAILCTL_HOST_H

#include "Lock.h"
#include "PostfixManager.h"
#include "Settings.h"

#include <initializer_list>
#include <optional>
#include <string>

struct Options {
    bool verbose = false;
    bool yes = false;
};

struct Host {
    explicit Host(const Options& options);

    Options options;
    Settings settings;
    CQVTrackManager tracking; // traces nothing: the calls bring clear passwords
    PostfixManager library;
    std::optional<Lock> lock;
};

// Takes the lock and, with tables, sees that the database answers. Every command calls this or
// beginChange before its first question to the library.
void beginQuery(Host& host);

// Also sees that a change can go through: the accounts and tools that it needs are there, no work
// file is left over, and the files that it appends to (asked for with files alone) end with a line
// end.
void beginChange(Host& host, std::initializer_list<const char*> appendedFiles = {});

// Asks before something is deleted; not with --yes, and not when nobody sits at standard input.
void confirm(const Host& host, const std::string& deletion);

#endif
