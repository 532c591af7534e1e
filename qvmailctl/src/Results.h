// What a command ends with: its exit statuses, and what the library's result codes mean.
#ifndef QVMAILCTL_RESULTS_H
#define QVMAILCTL_RESULTS_H

#include <initializer_list>
#include <string>

struct Host;

enum class Status {
    Done = 0,
    Failed = 1,  // a system beneath failed; nothing was changed, unless the sentence says otherwise
    Refused = 2, // usage, a refused name or value, a conflict, settings: nothing was changed
    Busy = 3,    // another change is at work: nothing was changed
    NotThere = 4, // what the command names does not exist: nothing was changed
};

// Thrown to end the command: its status, and the sentence for the administrator.
struct Stop {
    Status status;
    std::string sentence;
};

[[noreturn]] void refuse(const std::string& sentence);
[[noreturn]] void notThere(const std::string& sentence);

// Returns when the code that an operation answered is one of its successes. Else ends the command:
// "WHAT could not be DONE", and why.
void conclude(const Host& host, int code, std::initializer_list<int> successes,
              const std::string& failure);

#endif
