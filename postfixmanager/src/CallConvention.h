// What the operations have in common: they announce themselves and choose a backend.
#ifndef QV_CALLCONVENTION_H
#define QV_CALLCONVENTION_H

#include "PostfixManager.h"
#include "SqlCall.h"

// Reports the method name, then the argument values and their names, to the tracing object.
void traceCall(const PostfixManager& manager, const char* method, const VectorString& values,
               const VectorString& names);

// True when the mail accounts are kept in the database rather than in the map files.
bool usesSql(const PostfixManager& manager);

// A connection made from the manager's settings, for this call alone.
SqlCall connectSql(const PostfixManager& manager);

#endif
