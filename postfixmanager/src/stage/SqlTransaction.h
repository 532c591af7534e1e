// SqlTransaction - the one connection and the one transaction of the database that all operations
// of an open transaction share
//
// It learns from each statement which rows the statement changes: to show them to the caller, and
// to ask the database after a crash whether the transaction was committed.
#ifndef QV_SQLTRANSACTION_H
#define QV_SQLTRANSACTION_H

#include "system/SqlConnection.h"

#include <string>
#include <vector>

struct RowChange {
    std::string table;
    Row before; // empty: the row is new
    Row after;  // empty: the row is gone
};

// A question to a database, and the number that answers it once the transaction is committed. Empty
// when the transaction changes no row.
struct Witness {
    std::string question;
    std::string answer;
    std::string database; // its name and its server's
};

class SqlTransaction
{
public:
    // Connects and begins. Throws a Refusal that says why it cannot, never with the password.
    explicit SqlTransaction(const SqlSettings& settings);

    // Refuses tables whose engine (MyISAM, Aria) cannot take a change back.
    void checkEngines();

    MYSQL* connection() { return m_connection.handle(); }

    // Asks inside the transaction, which sees its own changes.
    SqlResult query(const std::string& question) { return m_connection.query(question); }

    // Runs one of the library's changing statements. Throws a Refusal when it fails, or when a name
    // in it would turn it into another statement.
    void execute(const std::string& statement);

    // The rows that differ in the end: a row that was removed and added again is not among them.
    std::vector<RowChange> changes() const;

    Witness witness();
    // Waits for a transaction that is still about to end, such as that of a process that died.
    bool isTrue(const Witness& witness);

    // Whether a row of the table has this value in this column.
    bool holds(const std::string& table, const std::string& column, const std::string& value);

    // Gives up what was changed; a new transaction begins.
    void rollBack();

    // Throws a Refusal when the database does not answer that it is committed. It may be committed
    // all the same.
    void commit();

private:
    SqlConnection m_connection; // the server rolls back what is not committed when it closes
    std::vector<RowChange> m_changes;
};

#endif
