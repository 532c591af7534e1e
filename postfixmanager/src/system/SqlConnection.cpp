#include "system/SqlConnection.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <map>

namespace
{

using Clock = std::chrono::steady_clock;

// The reason in plain words. Empty where the client library's own words say it best.
std::string whyNotConnected(unsigned code)
{
    static const std::map<unsigned, const char*> reasons = {
        {1044, "there is no such database, or the user has no right to it"},
        {1045, "the user or the password is wrong"},
        {1698, "the user or the password is wrong"}, // of a user that logs in without a password
        {1049, "there is no such database"},
        {2002, "no database listens there"}, // at a socket; with MariaDB's library, at a port too
        {2003, "no database listens there"},
        {2005, "the name of the server is unknown"}};
    const auto reason = reasons.find(code);
    return reason == reasons.end() ? std::string() : reason->second;
}

// Whether the server was silent: the connection is lost and the whole limit has passed. The code is
// one of three, depending on the client library and on what was waited for.
bool isSilent(unsigned code, Clock::time_point start, unsigned limit)
{
    return (code == 2002 || code == 2003 || code == 2013) &&
           Clock::now() - start >= std::chrono::seconds(limit);
}

std::string silence(unsigned limit)
{
    return "it does not answer within " + std::to_string(limit) + " seconds";
}

// Whether the reason is a passing one: a deadlock, which nodes of a cluster also report when they
// have changed the same row; a node that goes away or has no majority yet; too many connections.
bool mayPass(unsigned code)
{
    constexpr unsigned Codes[] = {1040, 1047, 1053, 1203, 1213, 1927, 2006, 2013, 2055};
    return std::find(std::begin(Codes), std::end(Codes), code) != std::end(Codes);
}

} // namespace

std::string binaryLiteral(const std::string& text)
{
    constexpr const char* Digits = "0123456789abcdef";
    std::string literal = "x'";
    for (const unsigned char c : text)
        literal.append({Digits[c >> 4U], Digits[c & 15U]});
    return literal + "'";
}

SqlConnection::SqlConnection(const SqlSettings& settings)
    : m_handle(mysql_init(nullptr), mysql_close),
      m_name((settings.database.empty() ? "" : settings.database + " ") + "on " + settings.server +
             " port " + settings.port),
      m_limits(settings.limits)
{
    if (m_handle == nullptr)
        refuse("there is no memory for a connection to the database");
    mysql_options(handle(), MYSQL_OPT_CONNECT_TIMEOUT, &m_limits.connect);
    mysql_options(handle(), MYSQL_OPT_READ_TIMEOUT, &m_limits.answer);
    mysql_options(handle(), MYSQL_OPT_WRITE_TIMEOUT, &m_limits.answer);
    const Clock::time_point start = Clock::now();
    // As MySQLClient does: a port that is no number becomes 0, the client library's default port.
    if (mysql_real_connect(handle(), settings.server.c_str(), settings.user.c_str(),
                           settings.password.c_str(), settings.database.c_str(),
                           atoi(settings.port.c_str()), nullptr, 0) != nullptr)
        return;

    const unsigned code = mysql_errno(handle());
    std::string reason = whyNotConnected(code);
    const bool isLate = isSilent(code, start, m_limits.connect);
    if (isLate)
        reason = silence(m_limits.connect);
    const std::string original = mysql_error(handle());
    refuse("the database " + m_name + " cannot be used as \"" + settings.user +
               "\": " + (reason.empty() ? original : reason + " (" + original + ")"),
           mayPass(code) && !isLate);
}

std::string SqlConnection::literal(const std::string& text) const
{
    return "_" + charset() + " " + binaryLiteral(text);
}

SqlResult SqlConnection::query(const std::string& question)
{
    SqlResult result(nullptr, mysql_free_result);
    if (ask(question))
        result.reset(mysql_store_result(handle()));
    if (!result)
        refuseAnswer("could not be asked");
    return result;
}

std::vector<Row> SqlConnection::rows(const std::string& question)
{
    const SqlResult result = query(question);
    std::vector<Row> all;
    while (MYSQL_ROW fields = mysql_fetch_row(result.get())) {
        const unsigned long* const lengths = mysql_fetch_lengths(result.get());
        Row& row = all.emplace_back();
        for (unsigned i = 0; i < mysql_num_fields(result.get()); ++i)
            row.emplace_back(fields[i] == nullptr ? "" : fields[i], lengths[i]);
    }
    return all;
}

void SqlConnection::run(const std::string& statement)
{
    if (!ask(statement))
        refuseAnswer("refused a change");
    mysql_free_result(mysql_store_result(handle())); // ANALYZE answers with rows
}

bool SqlConnection::ask(const std::string& statement)
{
    m_asked = Clock::now();
    return mysql_query(handle(), statement.c_str()) == 0;
}

void SqlConnection::refuseAnswer(const std::string& attempt) const
{
    const unsigned code = mysql_errno(handle());
    const bool isLate = isSilent(code, m_asked, m_limits.answer);
    refuse("the database " + attempt + ": " +
               (isLate ? silence(m_limits.answer) : mysql_error(handle())),
           mayPass(code) && !isLate);
}
