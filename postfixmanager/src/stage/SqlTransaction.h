// SqlTransaction - the one connection and the one transaction of the database that all operations
// of an open transaction share
//
// It learns from each statement which rows it changes, so that the caller can be shown them and so
// that, after a crash, the database itself can be asked whether the transaction was committed.
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

// A question to a database, and the number that answers it once the transaction is committed. The
// empty question has no answer to wait for.
struct Witness {
    std::string question;
    std::string answer;
    std::string database; // and its server
};

class SqlTransaction
{
public:
    // Connects and begins. Throws a Refusal that says why it cannot, never with the password.
    explicit SqlTransaction(const SqlSettings& settings);

    // Refuses tables whose engine (MyISAM, Aria) takes no change back.
    void checkEngines();

    MYSQL* connection() { return m_connection.handle(); }

    // Asks in the transaction.
    SqlResult query(const std::string& question) { return m_connection.query(question); }

    // Runs one of the library's changing statements. Throws a Refusal when it fails, or when the
    // names in it make another statement of it.
    void execute(const std::string& statement);

    // What is changed in the end: a row that went and came back is not.
    std::vector<RowChange> changes() const;

    Witness witness();
    // Waits for a transaction that is still about to end, such as that of a process that died.
    bool isTrue(const Witness& witness);

    // Whether a row of the table has this value in this column.
    bool holds(const std::string& table, const std::string& column, const std::string& value);

    // Gives up what was changed, and goes on.
    void rollBack();

    // Throws a Refusal when the answer of the database is not that it is committed: it may be.
    void commit();

private:
    SqlConnection m_connection; // the server rolls back what is not committed when it closes
    std::vector<RowChange> m_changes;
};

#endif
