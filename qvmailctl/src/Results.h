// What a command ends with: its exit status, and the sentence for the administrator.
#ifndef QVMAILCTL_RESULTS_H
#define QVMAILCTL_RESULTS_H

#include <string>

// Named as in sysexits(3), so that a script can tell them apart. With all but Done and Unfinished,
// nothing was changed.
enum class Status {
    Done = 0,
    Usage = 64,       // the command line is wrong
    Refused = 65,     // a name or a value is refused
    NotThere = 67,    // what the command names does not exist
    Unreachable = 69, // the database or a server does not answer
    OwnFault = 70,    // a fault of the command itself
    Unfinished = 71,  // the change is decided, but not yet carried out to its end
    Exists = 73,      // what the command was to make exists, or something is in its way
    NotWritten = 74,  // a file or a table could not be written, or not read
    Busy = 75,        // another change is at work
    NotRoot = 77,
    NotFit = 78,      // the settings or the system do not fit
    Interrupted = 130 // by a signal
};

// Thrown to end the command.
struct Stop {
    Status status;
    std::string sentence;
};

// The status as a word, for scripts.
const char* nameOf(Status status);

[[noreturn]] void stop(Status status, const std::string& sentence);

#endif
