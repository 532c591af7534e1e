#ifndef QV_MYSQLCLIENT_H
#define QV_MYSQLCLIENT_H

#include "Export.h"

#include <mysql/mysql.h>

#include <string>

// MySQLClient - one connection to the database for the length of one operation
//
// Order of calls: construct, CreateDBConnection, any number of ExecuteQuery and GetQueryResult on
// the connection that it returned, CloseDBConnection. The messages named below go to standard
// output, a line each; the server's own error text is never shown. Not shared between threads.
class QV_EXPORT MySQLClient
{
public:
    const char* UserName; // these four are borrowed: they must outlive the client
    const char* Password;
    const char* HostName;
    const char* Port;
    MYSQL* MySQL;
    MYSQL_RES* SQLResult;

    // Keeps the four pointers; does not connect. Port is decimal text; a text that is not a number,
    // the empty one included, means the client library's default port.
    MySQLClient(const char* UserName, const char* Password, const char* HostName, const char* Port);

    // Releases nothing: an open connection stays open.
    ~MySQLClient();

    // Connects and selects the database. Returns the connection, or null after printing
    // "unable to initialize mysql", "Unable to connect mysql server" or "Unable to use database".
    // After a failure the handle is not closed; CloseDBConnection may be called to release it.
    MYSQL* CreateDBConnection(std::string database);

    // Closes the connection, if there is one. Always returns 0.
    int CloseDBConnection();

    // Runs a statement that changes data. Returns 0 when it succeeded, nonzero when it failed, and
    // prints nothing.
    char ExecuteQuery(std::string query, MYSQL* connection);

    // Runs a reading statement. Returns its stored result set, which the caller frees with
    // mysql_free_result; null after printing "Unable to execute query", or without a word for a
    // statement that has no result set.
    MYSQL_RES* GetQueryResult(std::string query, MYSQL* connection);
};

#endif
