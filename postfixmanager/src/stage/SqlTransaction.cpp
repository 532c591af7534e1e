#include "stage/SqlTransaction.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <optional>
#include <string_view>

namespace
{

// ---- The library's changing statements, read back ----

struct Statement {
    std::string table;
    std::string condition;      // of a deletion or an update, from its first word on
    std::vector<Row> insertion; // the rows of an insertion
    bool isUpdate = false;
};

// Takes a statement apart from the left. After one step has failed, all further steps fail.
class StatementReader
{
public:
    explicit StatementReader(std::string_view text) : m_rest(text) {}

    bool atEnd() const { return m_isGood && m_rest.empty(); }

    // Skips blanks and then the text, if that is what comes next.
    bool skipIf(std::string_view text)
    {
        const std::size_t start = std::min(m_rest.find_first_not_of(' '), m_rest.size());
        if (!m_isGood || m_rest.substr(start, text.size()) != text)
            return false;
        m_rest.remove_prefix(start + text.size());
        return true;
    }
    void skip(std::string_view text) { m_isGood = skipIf(text) && m_isGood; }

    std::string word()
    {
        const std::size_t start = std::min(m_rest.find_first_not_of(' '), m_rest.size());
        m_rest.remove_prefix(start);
        const auto end = std::find_if_not(m_rest.begin(), m_rest.end(), [](unsigned char c) {
            return std::isalnum(c) != 0 || c == '_' || c == '-';
        });
        std::string text(m_rest.begin(), end);
        m_isGood = m_isGood && !text.empty();
        m_rest.remove_prefix(text.size());
        return text;
    }

    // A value between quotes. It holds no quote, which would end it early, and no backslash, which
    // could hide the quote that ends it.
    std::string quoted()
    {
        skip("'");
        std::string text(m_rest.substr(0, m_rest.find('\'')));
        m_isGood = m_isGood && text.size() < m_rest.size() &&
                   std::none_of(text.begin(), text.end(),
                                [](unsigned char c) { return c == '\\' || std::iscntrl(c) != 0; });
        if (m_isGood)
            m_rest.remove_prefix(text.size() + 1);
        return text;
    }

    std::string value()
    {
        return m_rest.find_first_not_of(' ') != m_rest.find('\'') ? word() : quoted();
    }

    void condition()
    {
        do {
            word();
            if (!skipIf("like"))
                skip("=");
            quoted();
        } while (skipIf("and"));
    }

private:
    std::string_view m_rest;
    bool m_isGood = true;
};

std::optional<Statement> readStatement(const std::string& text)
{
    Statement statement;
    StatementReader reader(text);
    if (reader.skipIf("insert into")) {
        statement.table = reader.word();
        reader.skip("values");
        do {
            reader.skip("(");
            Row& row = statement.insertion.emplace_back();
            do
                row.push_back(reader.value());
            while (reader.skipIf(","));
            reader.skip(")");
        } while (reader.skipIf(","));
    } else {
        statement.isUpdate = !reader.skipIf("delete from");
        if (statement.isUpdate)
            reader.skip("update");
        statement.table = reader.word();
        if (statement.isUpdate) {
            reader.skip("set");
            reader.condition();
        }
        reader.skip("where");
        reader.condition();
        statement.condition = text.substr(text.find(" where ") + 1);
    }
    if (!reader.atEnd())
        return std::nullopt;
    return statement;
}

// Escapes the domain in a pattern "%@DOMAIN", which ends the statement: a "_" in it would otherwise
// stand for any character.
std::string withoutWildcards(std::string statement)
{
    constexpr std::string_view Pattern = "like '%@";
    const std::size_t pattern = statement.find(Pattern);
    if (pattern == std::string::npos)
        return statement;
    for (std::size_t i = pattern + Pattern.size(); i < statement.size(); ++i)
        if (statement[i] == '_' || statement[i] == '%' || statement[i] == '!')
            statement.insert(i++, 1, '!');
    return statement + " escape '!'";
}

const std::vector<const char*>& columnsOf(const std::string& table)
{
    static const std::map<std::string, std::vector<const char*>> columns = {
        {"virtual_domains", {"name"}},
        {"virtual_users", {"email", "password", "quota"}},
        {"virtual_aliases", {"source", "destination"}}};
    return columns.at(table);
}

} // namespace

SqlTransaction::SqlTransaction(const SqlSettings& settings) : m_connection(settings)
{
    // Autocommit is switched off, which "start transaction" would not do: the database may end a
    // transaction by itself, to resolve a deadlock for example, and what follows would then be
    // committed statement by statement.
    // Strict mode: no value is cut short to fit its column, as old settings of a server would have
    // it.
    // A wait for a row ends before the wait for the answer does: the database does not notice that
    // nobody waits any more, and would keep what the transaction has locked.
    const unsigned seconds = std::max(1U, settings.limits.answer * 5 / 6);
    m_connection.run("set autocommit = 0, sql_mode = concat(@@sql_mode, ',STRICT_ALL_TABLES'), "
                     "innodb_lock_wait_timeout = least(@@innodb_lock_wait_timeout, " +
                     std::to_string(seconds) + ")");
}

void SqlTransaction::checkEngines()
{
    const std::vector<Row> found =
        m_connection.rows("select table_name, engine from information_schema.tables "
                          "join information_schema.engines using (engine) "
                          "where table_schema = database() and transactions <> 'YES' and "
                          "table_name in ('virtual_domains', 'virtual_users', 'virtual_aliases')");
    if (!found.empty())
        refuse("the table " + found[0][0] + " is kept by " + found[0][1] +
               ", which knows no transactions; convert it with \"alter table " + found[0][0] +
               " engine = InnoDB\"");
}

void SqlTransaction::execute(const std::string& text)
{
    const std::optional<Statement> statement = readStatement(text);
    if (!statement)
        refuse("a name holds a quote, a backslash or a control character, or a quota is no number");

    if (!statement->insertion.empty()) {
        m_connection.run(text);
        for (const Row& row : statement->insertion)
            m_changes.push_back({statement->table, {}, row});
        return;
    }
    const std::string question =
        "select * from " + statement->table + " " + withoutWildcards(statement->condition);
    std::vector<Row> before = m_connection.rows(question + " for update");
    m_connection.run(withoutWildcards(text));
    std::vector<Row> after = statement->isUpdate ? m_connection.rows(question) : std::vector<Row>();
    for (Row& row : before)
        m_changes.push_back({statement->table, std::move(row), {}});
    for (Row& row : after)
        m_changes.push_back({statement->table, {}, std::move(row)});
}

std::vector<RowChange> SqlTransaction::changes() const
{
    // How many more of each row there are than before.
    std::map<std::pair<std::string, Row>, int> balance;
    for (const RowChange& change : m_changes)
        if (change.before.empty())
            ++balance[{change.table, change.after}];
        else
            --balance[{change.table, change.before}];

    std::vector<RowChange> net;
    for (const RowChange& change : m_changes) {
        const bool isNew = change.before.empty();
        int& count = balance[{change.table, isNew ? change.after : change.before}];
        if (isNew ? count <= 0 : count >= 0)
            continue;
        count += isNew ? -1 : 1;
        net.push_back(change);
    }
    return net;
}

// Rows are compared byte by byte, where the database would take "X@b.com" for "x@b.com". An added
// row that is not found was stored otherwise than it was given: it cannot be a witness.
Witness SqlTransaction::witness()
{
    const std::vector<RowChange> net = changes();
    const std::string charset = m_connection.charset();
    for (const RowChange& change : net) {
        const bool isNew = change.before.empty();
        const Row& row = isNew ? change.after : change.before;
        const std::vector<const char*>& columns = columnsOf(change.table);
        std::string question = "select count(*) from " + change.table + " where " + columns[0] +
                               " = " + m_connection.literal(row[0]);
        for (std::size_t i = 0; i < std::min(row.size(), columns.size()); ++i)
            question += std::string(" and binary coalesce(convert(") + columns[i] + " using " +
                        charset + "), '') = " + binaryLiteral(row[i]);
        const std::string answer = m_connection.rows(question).at(0).at(0);
        if (!isNew || answer != "0")
            return {question, answer, m_connection.name()};
    }
    if (!net.empty())
        refuse("the database stores other values than it is given");
    return {};
}

bool SqlTransaction::isTrue(const Witness& witness)
{
    if (!witness.question.empty() && witness.database != m_connection.name())
        refuse("an interrupted change is of the database " + witness.database +
               ", not of this one; let a program with its settings finish it first");
    if (witness.question.empty())
        return true;
    return m_connection.rows(witness.question + " lock in share mode")[0][0] == witness.answer;
}

bool SqlTransaction::holds(const std::string& table, const std::string& column,
                           const std::string& value)
{
    return !m_connection
                .rows("select 1 from " + table + " where " + column + " = " +
                      m_connection.literal(value) + " limit 1")
                .empty();
}

void SqlTransaction::rollBack()
{
    m_connection.run("rollback");
    m_changes.clear();
}

void SqlTransaction::commit()
{
    m_connection.run("commit");
}
