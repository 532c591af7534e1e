#include "SqlCall.h"

#include "stage/Stage.h"
#include "system/Refusal.h"

#include <iostream>
#include <memory>

namespace
{

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
      m_transaction(openStage() == nullptr ? nullptr : openStage()->database.get()),
      m_connection(nullptr)
{
    if (m_transaction != nullptr)
        m_connection = m_transaction->connection();
    else if (openStage() == nullptr)
        m_connection = m_client.CreateDBConnection(database);
    else
        openStage()->fail("the transaction was opened for accounts in map files");
}

SqlCall::~SqlCall()
{
    if (isConnected() && m_transaction == nullptr)
        m_client.CloseDBConnection();
}

bool SqlCall::execute(const std::string& statement)
{
    announce(statement);
    return executeUnannounced(statement);
}

bool SqlCall::executeUnannounced(const std::string& statement)
{
    if (m_transaction == nullptr)
        return m_client.ExecuteQuery(statement, m_connection) == 0;
    try {
        m_transaction->execute(statement);
        return true;
    } catch (const Refusal& refusal) {
        openStage()->fail(refusal);
        return false;
    }
}

SqlResult SqlCall::query(const std::string& statement)
{
    if (m_transaction == nullptr)
        return {m_client.GetQueryResult(statement, m_connection), mysql_free_result};
    try {
        return m_transaction->query(statement);
    } catch (const Refusal& refusal) {
        std::cout << "Unable to execute query" << std::endl;
        openStage()->fail(refusal);
        return {nullptr, mysql_free_result};
    }
}

bool SqlCall::readFirstFields(const std::string& statement,
                              const std::function<void(const std::string& field)>& take)
{
    announce(statement);
    const SqlResult result = query(statement);
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
    const SqlResult result = query(statement);
    if (!result)
        return false;
    if (MYSQL_ROW row = mysql_fetch_row(result.get()))
        if (const char* const field = firstField(result.get(), row))
            first = field;
    return true;
}
