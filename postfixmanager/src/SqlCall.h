#ifndef QV_SQLCALL_H
#define QV_SQLCALL_H

#include "MySQLClient.h"
#include "stage/SqlTransaction.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

// SqlCall - the database connection of one operation, closed on leaving
//
// In a transaction it is the transaction's connection, which stays open, and a statement that fails
// makes the commit refuse.
//
// Statements are printed as "query=" and the statement before they run, and are run as they are
// given: whoever calls an operation has checked the names in them.
class SqlCall
{
public:
    // The strings are borrowed for the life of the call.
    SqlCall(const std::string& user, const std::string& password, const std::string& server,
            const std::string& port, const std::string& database);
    ~SqlCall();
    SqlCall(const SqlCall&) = delete;
    SqlCall& operator=(const SqlCall&) = delete;

    // False when there is no connection; the client has printed why.
    bool isConnected() const { return m_connection != nullptr; }

    // Prints and runs a statement that changes data. False when it failed.
    bool execute(const std::string& statement);

    // Runs it without printing it.
    bool executeUnannounced(const std::string& statement);

    // Prints and runs a reading statement and hands over the first field of each row that has one.
    // False when there is no result set.
    bool readFirstFields(const std::string& statement,
                         const std::function<void(const std::string& field)>& take);

    // The same for the first row alone; first stays empty when that row is missing or null.
    bool readFirstRow(const std::string& statement, std::optional<std::string>& first);

    // Never closes the connection. Deliberate, for the hosts: an unknown action word leaves it
    // open.
    void leaveOpen() { m_connection = nullptr; }

private:
    SqlResult query(const std::string& statement);

    MySQLClient m_client;
    SqlTransaction* m_transaction; // null: the connection is this call's own
    MYSQL* m_connection;
};

#endif
