// Every operation announces itself before it does anything.
#ifndef QV_CALLTRACE_H
#define QV_CALLTRACE_H

#include "PostfixManager.h"

// Reports the method name, then the argument values and their names, to the tracing object.
void traceCall(const PostfixManager& manager, const char* method, const VectorString& values,
               const VectorString& names);

#endif
