// Where an operation finds the mail accounts: in the map files or in the database.
#ifndef QV_BACKEND_H
#define QV_BACKEND_H

#include "PostfixManager.h"
#include "SqlCall.h"

// True when the mail accounts are kept in the database rather than in the map files.
bool usesSql(const PostfixManager& manager);

// Connects to the database with the manager's settings, for this call alone.
SqlCall connectSql(const PostfixManager& manager);

// Connects, and prints and runs a statement that changes data. False when either failed.
bool changeTable(const PostfixManager& manager, const std::string& statement);

// Whether the statement yields a row. Prints "found=" and 1 or 0. A statement that fails answers
// false, after "resultset is null". With files, and without a connection, the answer is true:
// deliberate, for hosts then treat what they ask for as existing.
bool existsInTable(const PostfixManager& manager, const std::string& statement);

#endif
