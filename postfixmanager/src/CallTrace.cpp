#include "CallTrace.h"

void traceCall(const PostfixManager& manager, const char* method, const VectorString& values,
               const VectorString& names)
{
    manager.TrackManager->CQVMethodName(method);
    manager.TrackManager->CQVMethodArguments(values, names);
}
