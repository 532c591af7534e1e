// What one command works with: the options, the settings, the library's object, and what it has
// changed.
#ifndef QVMAILCTL_HOST_H
#define QVMAILCTL_HOST_H

#include "Changes.h"
#include "Hosting.h"
#include "PostfixTransaction.h"
#include "Settings.h"

#include <string>

struct Options {
    bool verbose = false;
    bool json = false;
    bool yes = false;
    bool dryRun = false;
    bool ifMissing = false; // of a creation
    bool ifThere = false;   // of a deletion
    bool takeOver = false;  // former mail
    int wait = 5;           // seconds, for another change to end
};

struct Host {
    explicit Host(const Options& options);

    Options options;
    Settings settings;
    CQVTrackManager tracking; // traces nothing: the calls bring clear passwords
    PostfixManager library;
    PostfixTransaction transaction; // of every change
    Changes changes;

    Hosting read(const Wanted& wanted, unsigned parts = AllParts) const
    {
        return readHosting(settings, wanted, parts);
    }
};

// Completes a change that was interrupted. Every query calls this before it reads. It never waits
// for another change.
void beginQuery(Host& host);

// The same for what is read before a person is asked something: also sees that the change can go
// through. Nobody should answer for nothing.
void beginAsking(Host& host);

// Sees that a change can go through: the accounts and tools that it needs are there, and no work
// file is left over. Then opens the transaction.
void beginChange(Host& host);

// Opens the transaction without looking at what it needs: "check --repair" is about to mend that.
void beginRepair(Host& host);

// Commits the change, if one was begun; gives it up in a dry run. Ends the command when it is
// refused.
void finishChange(Host& host);

// Asks before something is deleted, unless that is agreed to beforehand (--yes) or nothing is
// deleted (--dry-run).
void confirm(const Host& host, const std::string& deletion);

#endif
