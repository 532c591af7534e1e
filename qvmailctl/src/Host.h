// What one command works with: the options, the settings, the library's object, and what it has
// changed.
#ifndef QVMAILCTL_HOST_H
#define QVMAILCTL_HOST_H

#include "Changes.h"
#include "Hosting.h"
#include "PostfixTransaction.h"
#include "Settings.h"

#include <functional>
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

// Makes a change in one transaction. Where the database has refused it for what may pass (a deadlock, a
// node that is lost), all of it is made afresh, a few times. First sees that it can go through: the
// accounts and tools that it needs are there, and no work file is left over.
using Work = std::function<void()>;
void change(Host& host, const Work& work);

// The same, without looking at what it needs: "check --repair" is about to mend that.
void repair(Host& host, const Work& work);

// Asks before something is deleted, unless that is agreed to beforehand (--yes) or nothing is
// deleted (--dry-run).
void confirm(const Host& host, const std::string& deletion);

#endif
