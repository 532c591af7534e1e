#include "SqlCall.h"

#include <iostream>
#include <memory>

namespace
{

using Result = std::unique_ptr<MYSQL_RES, decltype(&mysql_free_result)>;

void announce(const std::string& statement)
{
    std::cout << "query=" << statement << std::endl;
}

const char* firstField(MYSQL_RES* result, MYSQL_ROW row)
{
    return mysql_num_fields(result) > 0 ? row[0] : nullptr;
}

} // namespace

SqlCall::SqlCall(const std::string& user, const std::string& password, const std::string& server,
                 const std::string& port, const std::string& database)
    : m_client(user.c_str(), password.c_str(), server.c_str(), port.c_str()),
      m_connection(m_client.CreateDBConnection(database))
{
}

SqlCall::~SqlCall()
{
    if (isConnected())
        m_client.CloseDBConnection();
}

bool SqlCall::execute(const std::string& statement)
{
    announce(statement);
    return executeUnannounced(statement);
}

bool SqlCall::executeUnannounced(const std::string& statement)
{
    return m_client.ExecuteQuery(statement, m_connection) == 0;
}

bool SqlCall::readFirstFields(const std::string& statement,
                              const std::function<void(const std::string& field)>& take)
{
    announce(statement);
    const Result result(m_client.GetQueryResult(statement, m_connection), mysql_free_result);
    if (!result)
        return false;
    while (MYSQL_ROW row = mysql_fetch_row(result.get()))
        if (const char* const field = firstField(result.get(), row))
            take(field);
    return true;
}

bool SqlCall::readFirstRow(const std::string& statement, std::optional<std::string>& first)
{
    announce(statement);
    const Result result(m_client.GetQueryResult(statement, m_connection), mysql_free_result);
    if (!result)
        return false;
    if (MYSQL_ROW row = mysql_fetch_row(result.get()))
        if (const char* const field = firstField(result.get(), row))
            first = field;
    return true;
}
