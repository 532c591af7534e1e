#ifndef QV_REFUSAL_H
#define QV_REFUSAL_H

#include <string>

// Why a step cannot be done. It is thrown inside the library and inside qvmailctl, never from one
// to the other.
struct Refusal {
    std::string reason;
    bool mayPass = false; // nothing is changed, and the same may succeed a moment later
};

[[noreturn]] inline void refuse(const std::string& reason, bool mayPass = false)
{
    throw Refusal{reason, mayPass};
}

#endif
