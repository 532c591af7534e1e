#include "CallConvention.h"

#include <strings.h>

void traceCall(const PostfixManager& manager, const char* method, const VectorString& values,
               const VectorString& names)
{
    manager.TrackManager->CQVMethodName(method);
    manager.TrackManager->CQVMethodArguments(values, names);
}

bool usesSql(const PostfixManager& manager)
{
    return strcasecmp(manager.m_mailAccountBackend.c_str(), "mysql") == 0;
}

SqlCall connectSql(const PostfixManager& manager)
{
    return SqlCall(manager.m_mailSqlUser, manager.m_mailSqlUserPassword, manager.m_mailSqlServerIP,
                   manager.m_mailSqlServerPort, manager.m_mailSqlDatabase);
}
