#include "Results.h"

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
