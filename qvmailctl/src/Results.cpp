#include "Results.h"

#include "Host.h"

#include <algorithm>

const char* nameOf(Status status)
{
    switch (status) {
    case Status::Done:
        return "done";
    case Status::Usage:
        return "usage";
    case Status::Refused:
        return "refused";
    case Status::NotThere:
        return "not-there";
    case Status::Unreachable:
        return "unreachable";
    case Status::OwnFault:
        break;
    case Status::Unfinished:
        return "unfinished";
    case Status::Exists:
        return "exists";
    case Status::NotWritten:
        return "not-written";
    case Status::Busy:
        return "busy";
    case Status::NotRoot:
        return "not-root";
    case Status::NotFit:
        return "not-fit";
    case Status::Interrupted:
        return "interrupted";
    }
    return "own-fault";
}

void stop(Status status, const std::string& sentence)
{
    throw Stop{status, sentence};
}

void conclude(const Host& host, int code, std::initializer_list<int> successes,
              const std::string& failure)
{
    if (std::find(successes.begin(), successes.end(), code) != successes.end())
        return;
    std::string why = host.transaction.failure();
    if (why.empty())
        why = host.settings.usesSql
                  ? "the database refused a statement or the connection was lost; see its log"
                  : "a map below /etc/vmail could not be read or written";
    stop(Status::NotWritten, failure + ": " + why + " (the library answered " +
                                 std::to_string(code) + "); nothing was changed");
}
