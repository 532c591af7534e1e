#include "system/LargeFilesAndDates.h"

#include "init/Database.h"

#include "MapFiles.h"
#include "Programs.h"
#include "QVConfFileManager.h"
#include "Results.h"
#include "init/Files.h"

#include <set>

#include <mysql/errmsg.h>
#include <sys/random.h>

namespace
{

const std::string ReaderFile = "/etc/postfix/sql-domains.cf";

// From the shipped sql-accounts.sql, which is for a database on the same machine.
constexpr const char* LocalServer = "127.0.0.1";
constexpr const char* ShippedPassword = "'secret'";
constexpr const char* ShippedAddress = "'127.0.0.1'";

// A password of letters that have no special meaning in any of the files.
std::string newPassword()
{
    constexpr char Letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    unsigned char bytes[24];
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes))
        stop(Status::OwnFault, "the system gives no random numbers for a password");
    std::string password;
    for (const unsigned char byte : bytes)
        password.push_back(Letters[byte % (sizeof Letters - 1)]);
    return password;
}

SqlSettings shippedSettings(const Setup& setup)
{
    const auto value = [&](const char* name) {
        QVConfFileManager file;
        std::string text;
        file.getParamFromQVConfFile(setup.shipped("Quorvel-mysql.conf"), text, name);
        return text;
    };
    SqlSettings settings;
    settings.user = value("MailSqlUser");
    settings.server = value("MailSqlServer");
    settings.port = value("MailSqlPort");
    settings.database = value("MailSqlDatabase");
    return settings;
}

// ---- Statements of the shipped files ----

std::vector<std::string> statementsOf(const std::string& file)
{
    std::vector<std::string> statements(1);
    for (const std::string& line : linesOf(textOfFile(file))) {
        if (line.empty() || line.rfind("--", 0) == 0)
            continue;
        statements.back() += (statements.back().empty() ? "" : "\n") + line;
        if (line.back() == ';') {
            statements.back().pop_back();
            statements.emplace_back();
        }
    }
    statements.pop_back();
    return statements;
}

std::string quoted(const std::string& name)
{
    return "`" + withReplaced(name, "`", "``") + "`";
}

// The statements that make the database (user: empty) or a login, with the names in the settings.
std::vector<std::string> statementsFor(const Setup& setup, const Database& database,
                                       const std::string& user)
{
    const SqlSettings shipped = shippedSettings(setup);
    const std::string login = " " + (user == database.place.user ? shipped.user : user) + "@";
    std::vector<std::string> statements;
    for (std::string statement : statementsOf(setup.shipped("sql-accounts.sql"))) {
        const bool isOfDatabase = statement.rfind("CREATE DATABASE", 0) == 0;
        const bool isOfLogin = statement.find(login) != std::string::npos;
        if (user.empty() ? !isOfDatabase : !isOfLogin)
            continue;
        for (const char* const end : {".*", " "}) // "ON qvmail.*", "DATABASE qvmail "
            statement = withReplaced(statement, " " + shipped.database + end,
                                     " " + quoted(database.place.database) + end);
        statements.push_back(withReplaced(statement, login, " " + quoted(user) + "@"));
    }
    return statements;
}

// The table that a statement of schema.sql makes, or that it prepares once it is made.
std::string tableIn(const std::string& statement)
{
    const std::string before = "TABLE ";
    const std::size_t begin = statement.find(before) + before.size();
    return statement.substr(begin, statement.find(' ', begin) - begin);
}

// ---- What is there ----

// Why the login is not accepted; empty when it is. The database itself may be missing.
std::string refusalOf(SqlSettings settings, const SqlLogin& login)
{
    settings.user = login.user;
    settings.password = login.password;
    settings.database.clear();
    try {
        const SqlConnection connection(settings);
        return "";
    } catch (const Refusal& refusal) {
        return refusal.reason;
    }
}

// Nothing when the settings mean another machine: the socket leads to this one's server.
std::optional<SqlConnection> rootConnection(const SqlSettings& place)
{
    if (place.server != LocalServer)
        return std::nullopt;
    SqlSettings settings;
    settings.user = "root";
    settings.server = "localhost"; // the socket
    settings.port = place.port;
    try {
        SqlConnection connection(settings);
        if (connection.rows("SELECT @@port") == std::vector<Row>{{place.port}})
            return connection;
    } catch (const Refusal&) { // root has a password, say
    }
    return std::nullopt;
}

bool isThere(SqlConnection& root, const SqlLogin& login)
{
    return !root.rows("SELECT 1 FROM mysql.user WHERE user = " + root.literal(login.user) +
                      " AND host = '" + LocalServer + "'")
                .empty();
}

// Whether more was granted to the login than to log in: an interrupted init may have stopped before.
bool hasRights(SqlConnection& root, const SqlLogin& login)
{
    return root.rows("SHOW GRANTS FOR " + quoted(login.user) + "@'" + LocalServer + "'").size() > 1;
}

// The tables that the connection may see; nothing when there is no such database for it.
std::optional<std::set<std::string>> tablesOf(SqlConnection& connection, const std::string& name)
{
    const std::string literal = connection.literal(name);
    if (connection.rows("SELECT 1 FROM information_schema.schemata WHERE schema_name = " + literal)
            .empty())
        return std::nullopt;
    std::set<std::string> tables;
    for (const Row& row : connection.rows(
             "SELECT table_name FROM information_schema.tables WHERE table_schema = " + literal))
        tables.insert(row[0]);
    return tables;
}

bool gaveNoAnswer(const SqlConnection& connection)
{
    const unsigned code = mysql_errno(connection.handle());
    return code >= CR_MIN_ERROR && code <= CR_MAX_ERROR; // the client library's own errors
}

bool hasRows(SqlConnection& connection, const std::string& table)
{
    return !connection.rows("SELECT 1 FROM " + table + " LIMIT 1").empty();
}

// ---- What is made ----

std::string escaped(const SqlConnection& connection, const std::string& text)
{
    std::string result(2 * text.size() + 1, '\0');
    result.resize(
        mysql_real_escape_string(connection.handle(), result.data(), text.data(), text.size()));
    return result;
}

// The statement as an administrator must run it, without passwords: no screen shows them.
std::string shown(const std::string& statement, const Database& database, const SqlLogin& login)
{
    const bool isLocal = database.place.server == LocalServer;
    return withReplaced(
               withReplaced(statement, ShippedPassword, "'(the password in " + login.file + ")'"),
               ShippedAddress, isLocal ? ShippedAddress : "'(this machine)'") +
           ";";
}

void makeLogin(Setup& setup, Database& database, const SqlLogin& login)
{
    const std::string name = "database account " + login.user;
    if (login.isAccepted && (!database.root || hasRights(*database.root, login)))
        return setup.kept.push_back(name);
    for (const std::string& statement : statementsFor(setup, database, login.user))
        if (login.isAccepted && statement.rfind("CREATE ", 0) == 0)
            continue;
        else if (!database.root)
            setup.toDo.push_back(shown(statement, database, login));
        else if (!setup.dryRun)
            database.root->run(withReplaced(statement, ShippedPassword,
                                            "'" + escaped(*database.root, login.password) + "'"));
    if (database.root)
        setup.made.push_back(name);
}

void tellOfTables(Setup& setup, const Database& database)
{
    for (const std::string& statement : statementsFor(setup, database, ""))
        setup.toDo.push_back(statement + ";   (if it is missing)");
    setup.toDo.push_back("mariadb " + database.place.database + " < " +
                         setup.shipped("schema.sql"));
}

// Makes the tables that the connection's user may make.
void makeTables(Setup& setup, Database& database, SqlConnection& connection)
{
    const std::string name = database.place.database;
    std::optional<std::set<std::string>> tables = tablesOf(connection, name);
    try {
        if (tables) {
            setup.kept.push_back("database " + name);
        } else {
            for (const std::string& statement : statementsFor(setup, database, ""))
                if (!setup.dryRun)
                    connection.run(statement);
            setup.made.push_back("database " + name);
        }
        if (tables || !setup.dryRun)
            connection.run("USE " + quoted(name));
        for (const std::string& statement : statementsOf(setup.shipped("schema.sql"))) {
            const std::string table = tableIn(statement);
            const bool isKept = tables && tables->count(table) > 0;
            const bool isCreation = statement.rfind("CREATE ", 0) == 0;
            // An interrupted init may have made a table and not prepared it.
            const bool isUnprepared =
                isKept && !isCreation && database.root && !hasRows(connection, table);
            if (!setup.dryRun && (!isKept || isUnprepared))
                connection.run(statement);
            if (isCreation)
                (isKept ? setup.kept : setup.made).push_back("table " + table);
        }
    } catch (const Refusal& refusal) {
        if (gaveNoAnswer(connection))
            throw;
        setup.toDo.push_back("as the database's administrator, because of: " + refusal.reason);
        tellOfTables(setup, database);
    }
}

} // namespace

Database lookAtDatabase(const Setup& setup, const std::optional<SqlSettings>& settings)
try {
    Database database;
    database.place = settings.value_or(shippedSettings(setup));
    if (!settings)
        database.place.password = newPassword();
    database.logins.push_back({database.place.user, database.place.password, QVCONFFILE});
    if (setup.servers) {
        const std::string shipped = textOfFile(setup.shipped("postfix/sql-domains.cf"));
        const std::string text = isFile(ReaderFile) ? textOfFile(ReaderFile) : "";
        const std::string password = valueIn(text, "password = ");
        database.logins.push_back(
            {password.empty() ? valueIn(shipped, "user = ") : valueIn(text, "user = "),
             password.empty() ? newPassword() : password, ReaderFile});
    }

    database.root = rootConnection(database.place);
    for (SqlLogin& login : database.logins) {
        const std::string refusal = refusalOf(database.place, login);
        login.isAccepted = refusal.empty();
        if (database.refusal.empty())
            database.refusal = refusal;
        if (login.isAccepted || !database.root)
            continue;
        if ("'" + login.password + "'" == ShippedPassword)
            stop(Status::NotFit, "the password in " + login.file +
                                     " is the example's, which everybody knows; choose another");
        if (isThere(*database.root, login))
            stop(Status::NotFit, "the database has an account " + login.user + "@'" + LocalServer +
                                     "' already, and its password is not that of " + login.file +
                                     "; put it there (the files to start from are in " +
                                     setup.config + "), or drop the account, and run this again");
    }
    return database;
} catch (const Refusal& refusal) {
    stop(Status::Unreachable, refusal.reason);
}

void makeDatabase(Setup& setup, Database& database)
try {
    const bool isAccepted = database.logins.front().isAccepted;
    if (!database.isUsable())
        setup.toDo.push_back("start the database and run this again; or, where root may not log "
                             "in to it, as its administrator, because of: " +
                             database.refusal);
    for (const SqlLogin& login : database.logins)
        makeLogin(setup, database, login);
    if (database.root)
        return makeTables(setup, database, *database.root);
    if (!isAccepted)
        return tellOfTables(setup, database);
    SqlSettings settings = database.place;
    settings.database.clear(); // it may be missing
    SqlConnection connection(settings);
    makeTables(setup, database, connection);
} catch (const Refusal& refusal) {
    stop(Status::Unreachable, refusal.reason);
}

bool isEmpty(const Database& database)
try {
    return SqlConnection(database.place).rows("select name from virtual_domains limit 1").empty();
} catch (const Refusal&) {
    return true;
}
