// Journal - what a commit is about to do, written down and synced before the first step
//
// Whoever finds it, after a crash for example, carries it out from the start: a step that was done
// before is passed over, or done again with the same result.
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
        // The identities of what may stand at that place: anything else was put there by a program
        // that does without transactions. Empty: it is not checked.
        std::vector<std::string> expected;
    };
    struct Removal {
        std::string path;
        std::string identity; // what was there: anything else was made since, and stays
    };
    Witness witness; // with a database: the journal is carried out only if the answer fits
    std::vector<Move> moves;
    bool reloads = false;
    std::vector<Removal> removals;           // of the spool
    std::vector<OwnedDirectory> directories; // of the spool

    // Whether there is anything to do once the witness is true.
    bool hasSteps() const;

    // Writes it and syncs it. From then on it will be carried out.
    void write() const;

    // What is left to do, in words for the administrator; empty texts when all is done.
    struct Rest {
        std::string reload;
        std::string spool;
        std::vector<Removal> removals; // of what could not be removed now
    };

    // Carries it out. Throws a Refusal when a map cannot take its place: the rest then waits for
    // the next try. isTaken says, for mail that is to be removed, whether somebody else has made
    // its mailbox or domain anew since; then the mail stays.
    using PathTest = std::function<bool(const std::string& path)>;
    Rest carryOut(const PathTest& isTaken) const;

    // Refuses when a map that is still to be replaced was changed meanwhile, or cannot be replaced.
    void checkPlaces() const;

    // Whether certainly no step was done yet.
    bool isUntouched() const;
};

// Removes mail from the spool. What cannot be removed is added to the rest.
void removeMail(const std::vector<Journal::Removal>& removals, Journal::Rest& rest);

// The mailbox or domain that a path of the spool belongs to: an address or a domain.
std::string ownerOf(const std::string& path);

// The journal that a process left behind; nothing when there is none.
std::optional<Journal> readJournal();

// Removes the journal, once it is carried out or given up.
void removeJournal();

#endif
