// Where an operation finds the mail accounts: in the map files or in the database.
#ifndef QV_BACKEND_H
#define QV_BACKEND_H

#include "PostfixManager.h"
#include "SqlCall.h"

// True when the mail accounts are kept in the database rather than in the map files.
bool usesSql(const PostfixManager& manager);

// A connection made from the manager's settings, for this call alone.
SqlCall connectSql(const PostfixManager& manager);

// Connects, and prints and runs a statement that changes data. False when either failed.
bool changeTable(const PostfixManager& manager, const std::string& statement);

// Whether the statement yields a row, printed as "found=" and 1 or 0; false, after
// "resultset is null", when it fails. True without looking where there is no database to ask, or
// none that answers: on purpose, hosts then go the way of what exists.
bool existsInTable(const PostfixManager& manager, const std::string& statement);

#endif
