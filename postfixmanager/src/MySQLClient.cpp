#include "MySQLClient.h"

#include <cstdlib>
#include <iostream>

MySQLClient::MySQLClient(const char* UserName, const char* Password, const char* HostName,
                         const char* Port)
    : UserName(UserName), Password(Password), HostName(HostName), Port(Port), MySQL(nullptr),
      SQLResult(nullptr)
{
}

MySQLClient::~MySQLClient() = default;

MYSQL* MySQLClient::CreateDBConnection(std::string database)
{
    MySQL = mysql_init(nullptr);
    if (MySQL == nullptr) {
        std::cout << "unable to initialize mysql" << std::endl;
        return nullptr;
    }
    // atoi is deliberate: a port that is no number becomes 0, the client library's default port.
    mysql_real_connect(MySQL, HostName, UserName, Password, nullptr, atoi(Port), nullptr, 0);
    if (mysql_errno(MySQL) != 0) {
        std::cout << "Unable to connect mysql server" << std::endl;
        return nullptr;
    }
    mysql_select_db(MySQL, database.c_str());
    if (mysql_errno(MySQL) != 0) {
        std::cout << "Unable to use database" << std::endl;
        return nullptr;
    }
    return MySQL;
}

int MySQLClient::CloseDBConnection()
{
    mysql_close(MySQL);
    MySQL = nullptr;
    return 0;
}

char MySQLClient::ExecuteQuery(std::string query, MYSQL* connection)
{
    return static_cast<char>(mysql_query(connection, query.c_str()) != 0);
}

MYSQL_RES* MySQLClient::GetQueryResult(std::string query, MYSQL* connection)
{
    mysql_query(connection, query.c_str());
    if (mysql_errno(connection) != 0) {
        std::cout << "Unable to execute query" << std::endl;
        return nullptr;
    }
    return mysql_store_result(connection);
}
