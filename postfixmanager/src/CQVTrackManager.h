// The tracing interface, as far as this library uses it.
//
// PostfixManager never tests it for null: a host that traces nothing passes an object of this
// class.
//
// This is a stand-in for the control panel's closed tracing library. A host that has the real one
// puts that header and library in this place. A host without it uses this class as it is (nothing
// is traced) or derives from it to record or log what each operation was asked to do.
//
// The argument values can be secret: those of domain creation and of a password change hold the
// clear password. A host that logs them must leave it out.
#ifndef QV_CQVTRACKMANAGER_H
#define QV_CQVTRACKMANAGER_H

#include "VectorString.h"

#include <string>

class CQVTrackManager
{
public:
    CQVTrackManager() = default;
    virtual ~CQVTrackManager() = default;

    // Called once by the constructor of PostfixManager, with "PostfixManager".
    virtual void CQVModuleName(std::string /*ModuleName*/) {}

    // Called first by every operation that traces, with the operation's method name.
    virtual void CQVMethodName(std::string /*MethodName*/) {}

    // Called next, with the argument values and the names that belong to them, in the same order.
    virtual void CQVMethodArguments(VectorString /*Arguments*/, VectorString /*ArgumentNames*/) {}
};

#endif
