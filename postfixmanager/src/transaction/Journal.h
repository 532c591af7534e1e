// Journal - what a commit is about to do, written down and synced before the first step
//
// Whoever finds it, after a crash say, carries it out from the start: a step that is done already
// is passed over or done again with the same result.
#ifndef QV_JOURNAL_H
#define QV_JOURNAL_H

#include "stage/SqlTransaction.h"
#include "system/SpoolTree.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

struct Journal {
    // A staged file takes the place of another.
    struct Move {
        std::string from;
        std::string to;
        // What may stand at that place, by identity: anything else was put there by a program that
        // does without transactions. Empty: not looked at.
        std::vector<std::string> expected;
    };
    struct Removal {
        std::string path;
        std::string identity; // what was there: anything else was made since, and stays
    };
    Witness witness; // with accounts in the database: it is to be carried out only if this is true
    std::vector<Move> moves;
    bool reloads = false;
    std::vector<Removal> removals;           // of the spool
    std::vector<OwnedDirectory> directories; // of the spool

    // Whether there is anything to do once the witness is true.
    bool hasSteps() const;

    // Writes it and syncs it. From then on it will be carried out.
    void write() const;

    // What is left to do, said for the administrator; empty texts when all is done.
    struct Rest {
        std::string reload;
        std::string spool;
        std::vector<Removal> removals; // of what could not be removed now
    };

    // Carries it out. Throws a Refusal when a map cannot take its place: the rest then waits for
    // the next try. isTaken tells of mail that is to be removed whether its mailbox or domain was
    // made anew by somebody else since; then it stays.
    using PathTest = std::function<bool(const std::string& path)>;
    Rest carryOut(const PathTest& isTaken) const;

    // Refuses when a map that is still to be replaced is not what it was, or cannot be replaced.
    void checkPlaces() const;

    // Whether no step of it can have been done yet.
    bool isUntouched() const;
};

// Removes mail from the spool. What cannot be removed is added to the rest.
void removeMail(const std::vector<Journal::Removal>& removals, Journal::Rest& rest);

// The mailbox or domain that a path of the spool belongs to: an address or a domain.
std::string ownerOf(const std::string& path);

// The one that a process left behind.
std::optional<Journal> readJournal();

// Removes it, when it is carried out or is not to be.
void removeJournal();

#endif
