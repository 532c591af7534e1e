// What a command ends with: its exit statuses, and what the library's result codes mean.
#ifndef QVMAILCTL_RESULTS_H
#define QVMAILCTL_RESULTS_H

#include <string>

struct Host;

enum class Status {
    Done = 0,
    Failed = 1,   // the operation was begun and failed; earlier steps may stand
    Refused = 2,  // usage, a refused name or value, a conflict, settings: nothing was changed
    Busy = 3,     // another command holds the lock: nothing was changed
    NotThere = 4, // what the command names does not exist: nothing was changed
};

// Thrown to end the command: its status, and the sentence for the administrator.
struct Stop {
    Status status;
    std::string sentence;
};

[[noreturn]] void refuse(const std::string& sentence);
[[noreturn]] void notThere(const std::string& sentence);

// Returns when the code is a success of the operation; ends the command when it is not.
void conclude(const Host& host, const std::string& operation, int code);

#endif
