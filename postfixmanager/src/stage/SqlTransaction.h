// SqlTransaction - the one connection and the one transaction of the database that all operations
// of an open transaction share
//
// It learns from each statement which rows it changes, so that the caller can be shown them and so
// that, after a crash, the database itself can be asked whether the transaction was committed.
#ifndef QV_SQLTRANSACTION_H
#define QV_SQLTRANSACTION_H

#include <mysql/mysql.h>

#include <string>
#include <vector>

struct SqlSettings {
    std::string user;
    std::string password;
    std::string server;
    std::string port; // decimal text
    std::string database;
};

using Row = std::vector<std::string>;

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
    // Rolls back what is not committed.
    ~SqlTransaction();
    SqlTransaction(const SqlTransaction&) = delete;
    SqlTransaction& operator=(const SqlTransaction&) = delete;

    // Refuses tables whose engine (MyISAM, Aria) takes no change back.
    void checkEngines();

    MYSQL* connection() { return &m_connection; }

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
    void run(const std::string& statement);
    std::vector<Row> rows(const std::string& question);
    [[noreturn]] void refuseAnswer(const std::string& attempt);

    MYSQL m_connection{};
    std::string m_name; // of the database and its server
    std::vector<RowChange> m_changes;
};

#endif
