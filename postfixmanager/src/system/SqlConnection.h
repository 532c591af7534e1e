// SqlConnection - one connection to the database, which does not wait for ever
//
// Whatever fails throws a Refusal that says why, never with the password.
#ifndef QV_SQLCONNECTION_H
#define QV_SQLCONNECTION_H

#include "system/Refusal.h"

#include <mysql/mysql.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

struct TimeLimits { // in seconds
    unsigned connect = 10;
    // Longer than the database waits for a row that somebody else has locked (50 by default).
    unsigned answer = 60;
};

struct SqlSettings {
    std::string user;
    std::string password;
    std::string server;
    std::string port; // decimal text
    std::string database;
    TimeLimits limits = {};
};

using Row = std::vector<std::string>;
using SqlResult = std::unique_ptr<MYSQL_RES, decltype(&mysql_free_result)>;

// How many milliseconds to wait before each new try of a step that failed for a passing reason.
constexpr int Pauses[] = {100, 400, 1600};

// Asks the database, and asks again when it fails for a passing reason.
template <class Question> auto askPatiently(const Question& question)
{
    for (const int pause : Pauses) {
        try {
            return question();
        } catch (const Refusal& refusal) {
            if (!refusal.mayPass)
                throw;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(pause));
    }
    return question();
}

// The text as an SQL literal, whatever the text holds. It is compared byte by byte.
std::string binaryLiteral(const std::string& text);

class SqlConnection
{
public:
    explicit SqlConnection(const SqlSettings& settings);

    // Names the database and its server, for messages and the journal.
    const std::string& name() const { return m_name; }
    std::string charset() const { return mysql_character_set_name(handle()); }

    // The text as an SQL literal that is compared by the rules of the column beside it.
    std::string literal(const std::string& text) const;

    SqlResult query(const std::string& question);

    // The rows that answer a question. A field that is null is empty.
    std::vector<Row> rows(const std::string& question);
    void run(const std::string& statement);

    MYSQL* handle() const { return m_handle.get(); }

private:
    bool ask(const std::string& statement);
    [[noreturn]] void refuseAnswer(const std::string& attempt) const;

    std::unique_ptr<MYSQL, decltype(&mysql_close)> m_handle;
    std::string m_name;
    TimeLimits m_limits;
    std::chrono::steady_clock::time_point m_asked; // when the last statement was sent
};

#endif
