// What a command ends with: its exit status, and the sentence for the administrator.
#ifndef QVMAILCTL_RESULTS_H
#define QVMAILCTL_RESULTS_H

#include <initializer_list>
#include <string>

struct Host;

// After sysexits(3), so that a script can tell them apart. Of all but Done and Unfinished, nothing
// was changed.
enum class Status {
    Done = 0,
    Usage = 64,       // the command line
    Refused = 65,     // a name or a value
    NotThere = 67,    // what the command names
    Unreachable = 69, // the database or a server
    OwnFault = 70,    // a fault of the command itself
    Unfinished = 71,  // the change is decided, and not carried out to its end yet
    Exists = 73,      // what the command was to make, or what stands in its way
    NotWritten = 74,  // a file or a table, or not read
    Busy = 75,        // another change is at work
    NotRoot = 77,
    NotFit = 78,      // the settings or the system
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

// Returns when the code that an operation answered is one of its successes. Else ends the command:
// "WHAT could not be DONE", and why.
void conclude(const Host& host, int code, std::initializer_list<int> successes,
              const std::string& failure);

#endif
