// What one command works with: its options, the settings, the library, the transaction, and what it
// has changed.
#ifndef QVMAILCTL_SESSION_H
#define QVMAILCTL_SESSION_H

#include "Changes.h"
#include "Hosting.h"
#include "PostfixTransaction.h"
#include "Settings.h"

#include <functional>
#include <initializer_list>
#include <string>

struct Options {
    bool verbose = false;
    bool json = false;
    bool yes = false;
    bool dryRun = false;
    bool ifMissing = false; // of a creation
    bool ifThere = false;   // of a deletion
    bool takeOver = false;  // the new mailbox gets former mail
    int wait = 5;           // seconds to wait for another change to end
};

struct Session {
    explicit Session(const Options& options);

    Options options;
    Settings settings;
    CQVTrackManager tracking; // traces nothing: calls carry clear passwords
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
void beginQuery(Session& session);

// For what is read before a person is asked something. As beginQuery; also checks that the change
// can be made, so that nobody answers in vain.
void beginAsking(Session& session);

// Makes a change in one transaction. First checks that it can be made: the accounts and tools that
// it needs are there, and no work file is left over. When the database refuses it for a passing
// reason (a deadlock, a node that is lost), all of it is made again, a few times.
using Work = std::function<void()>;
void change(Session& session, const Work& work);

// The same without those checks: "check --repair" is about to mend what they would refuse.
void repair(Session& session, const Work& work);

// Returns when the code is one of the successes. Otherwise ends the command with the failure ("WHAT
// could not be DONE") and the reason.
void conclude(const Session& session, int code, std::initializer_list<int> successes,
              const std::string& failure);

// Asks before something is deleted, unless --yes is given or --dry-run, which deletes nothing.
void confirm(const Session& session, const std::string& deletion);

#endif
