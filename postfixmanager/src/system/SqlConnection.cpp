#include "system/SqlConnection.h"

#include <chrono>
#include <cstdlib>
#include <map>

namespace
{

using Clock = std::chrono::steady_clock;

// In plain words; empty where the client library's own say it best.
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

// A server that is lost for as long as was waited for it is silent. Its code is one of three, by the
// client library and by what was waited for.
bool isSilent(unsigned code, const SqlSettings& settings, Clock::duration waited)
{
    return (code == 2002 || code == 2003 || code == 2013) &&
           waited >= std::chrono::seconds(settings.connectSeconds);
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
             " port " + settings.port)
{
    if (m_handle == nullptr)
        refuse("there is no memory for a connection to the database");
    mysql_options(handle(), MYSQL_OPT_CONNECT_TIMEOUT, &settings.connectSeconds);
    mysql_options(handle(), MYSQL_OPT_READ_TIMEOUT, &settings.answerSeconds);
    mysql_options(handle(), MYSQL_OPT_WRITE_TIMEOUT, &settings.answerSeconds);
    const Clock::time_point start = Clock::now();
    // atoi on purpose: a port that is no number becomes 0, the client library's default port.
    if (mysql_real_connect(handle(), settings.server.c_str(), settings.user.c_str(),
                           settings.password.c_str(), settings.database.c_str(),
                           atoi(settings.port.c_str()), nullptr, 0) != nullptr)
        return;

    const unsigned code = mysql_errno(handle());
    std::string reason = whyNotConnected(code);
    if (isSilent(code, settings, Clock::now() - start))
        reason =
            "it does not answer within " + std::to_string(settings.connectSeconds) + " seconds";
    const std::string original = mysql_error(handle());
    refuse("the database " + m_name + " cannot be used as \"" + settings.user +
           "\": " + (reason.empty() ? original : reason + " (" + original + ")"));
}

std::string SqlConnection::literal(const std::string& text) const
{
    return "_" + charset() + " " + binaryLiteral(text);
}

std::vector<Row> SqlConnection::rows(const std::string& question)
{
    using Result = std::unique_ptr<MYSQL_RES, decltype(&mysql_free_result)>;
    if (mysql_query(handle(), question.c_str()) != 0)
        refuseAnswer("could not be asked");
    const Result result(mysql_store_result(handle()), mysql_free_result);
    if (!result)
        refuseAnswer("could not be asked");
    std::vector<Row> all;
    while (MYSQL_ROW fields = mysql_fetch_row(result.get())) {
        Row& row = all.emplace_back();
        for (unsigned i = 0; i < mysql_num_fields(result.get()); ++i)
            row.emplace_back(fields[i] == nullptr ? "" : fields[i]);
    }
    return all;
}

void SqlConnection::run(const std::string& statement)
{
    if (mysql_query(handle(), statement.c_str()) != 0)
        refuseAnswer("refused a change");
}

void SqlConnection::refuseAnswer(const std::string& attempt) const
{
    refuse("the database " + attempt + ": " + mysql_error(handle()));
}
