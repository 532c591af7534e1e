#include "Backend.h"

#include <iostream>

#include <strings.h>

bool usesSql(const PostfixManager& manager)
{
    return strcasecmp(manager.m_mailAccountBackend.c_str(), "mysql") == 0;
}

SqlCall connectSql(const PostfixManager& manager)
{
    return SqlCall(manager.m_mailSqlUser, manager.m_mailSqlUserPassword, manager.m_mailSqlServerIP,
                   manager.m_mailSqlServerPort, manager.m_mailSqlDatabase);
}

bool changeTable(const PostfixManager& manager, const std::string& statement)
{
    SqlCall sql = connectSql(manager);
    return sql.isConnected() && sql.execute(statement);
}

bool existsInTable(const PostfixManager& manager, const std::string& statement)
{
    if (!usesSql(manager))
        return true;
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return true;

    std::optional<std::string> row;
    if (!sql.readFirstRow(statement, row)) {
        std::cout << "resultset is null" << std::endl;
        return false;
    }
    std::cout << "found=" << (row ? 1 : 0) << std::endl;
    return row.has_value();
}
