// The tables of the database, the user's rights, and rows
#include "Areas.h"

#include "Output.h"
#include "Results.h"
#include "maps/MapLines.h"
#include "system/SqlConnection.h"

#include <algorithm>

namespace
{

struct Table {
    const char* name;
    std::vector<std::string> columns; // in the order of an insertion
    const char* key;                  // the column that rows are found by
    bool isUnique;
};

const std::vector<Table> Tables = {{"virtual_domains", {"name"}, "name", false},
                                   {"virtual_users", {"email", "password", "quota"}, "email", true},
                                   {"virtual_aliases", {"source", "destination"}, "source", false}};

constexpr const char* OfTheTables =
    "table_schema = database() and table_name in ('virtual_domains', 'virtual_users', "
    "'virtual_aliases')";

// ---- Columns, keys, engines ----

struct Column {
    std::string name;
    std::string type;
    std::string collation;
};
using Columns = std::map<std::string, std::vector<Column>>; // by table

Columns readColumns(SqlConnection& database)
{
    Columns columns;
    for (const Row& row : database.rows(
             "select table_name, column_name, data_type, coalesce(collation_name, '') from "
             "information_schema.columns where " +
             std::string(OfTheTables) +
             " and extra not like '%INVISIBLE%' order by table_name, ordinal_position"))
        columns[row[0]].push_back({row[1], row[2], row[3]});
    return columns;
}

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : ", ") + word;
    return text;
}

// True when the rows that the library inserts fit.
bool checkColumns(const Table& table, const std::vector<Column>& columns, Findings& findings)
{
    const std::string schema = "make it as config/schema.sql does";
    if (columns.empty()) {
        findings.push_back({"table-missing", table.name, "",
                            "is missing, or the user has no right to it", schema});
        return false;
    }
    std::vector<std::string> names(columns.size());
    std::transform(columns.begin(), columns.end(), names.begin(),
                   [](const Column& column) { return lowerCase(column.name); });
    if (names != table.columns) {
        findings.push_back({"table-columns", table.name, "",
                            "has the columns " + joined(names) + ", and rows are inserted as " +
                                joined(table.columns),
                            "alter it: these columns in this order, all others INVISIBLE"});
        return false;
    }
    for (const Column& column : columns)
        if (column.name == "quota" && column.type != "bigint" && column.type != "decimal")
            findings.push_back({"table-columns", table.name, column.name,
                                "the column quota is of the type " + column.type +
                                    ", which does not hold the bytes of large quotas",
                                "\"alter table virtual_users modify quota bigint not null default "
                                "0\""});
    return true;
}

// One of the library's queries compares columns of two tables, which needs like collations.
void checkCollations(const Columns& columns, Findings& findings)
{
    std::string first;
    for (const auto& [table, all] : columns)
        for (const Column& column : all) {
            if (column.collation.empty())
                continue;
            if (first.empty())
                first = column.collation;
            if (column.collation == first)
                continue;
            findings.push_back({"table-collation", table, column.name,
                                "the column " + column.name + " has the collation " +
                                    column.collation + ", and others have " + first +
                                    ": lists cannot be asked for",
                                "\"alter table " + table +
                                    " convert to character set utf8mb4 collate "
                                    "utf8mb4_general_ci\", for all three"});
            return;
        }
}

void checkKeys(SqlConnection& database, Findings& findings)
{
    std::map<std::string, bool> keys; // "TABLE.COLUMN", and whether the column alone is unique
    for (const Row& row : database.rows(
             "select table_name, min(case seq_in_index when 1 then column_name end), "
             "max(non_unique) = 0 and count(*) = 1 from information_schema.statistics where " +
             std::string(OfTheTables) + " group by table_name, index_name")) {
        bool& isUnique = keys[row[0] + "." + lowerCase(row[1])];
        isUnique = isUnique || row[2] == "1";
    }
    for (const Table& table : Tables) {
        const auto key = keys.find(std::string(table.name) + "." + table.key);
        if (key != keys.end() && (key->second || !table.isUnique))
            continue;
        findings.push_back({"table-key", table.name, table.key,
                            "has no " + std::string(table.isUnique ? "unique " : "") + "key on " +
                                table.key +
                                (table.isUnique ? ": a second row of an address locks its user out"
                                                : ": each look-up reads the whole table"),
                            "\"alter table " + std::string(table.name) + " add " +
                                (table.isUnique ? "unique " : "") + "key " + table.key + " (" +
                                table.key + ")\""});
    }
}

void checkEngines(SqlConnection& database, Findings& findings)
{
    for (const Row& row : database.rows("select table_name, engine from information_schema.tables "
                                        "join information_schema.engines using (engine) where " +
                                        std::string(OfTheTables) + " and transactions <> 'YES'"))
        findings.push_back(
            {"table-engine", row[0], "",
             "is kept by " + row[1] + ", which knows no transactions, so changes are refused",
             "\"alter table " + row[0] + " engine = InnoDB\""});
}

// ---- Statistics ----

// Only with those of schema.sql, which are in no dump, does the server take the aliases for none.
void checkStatistics(SqlConnection& database, const std::string& name, Findings& findings)
{
    constexpr std::size_t EstimatedRows = 8;
    const std::string setting =
        "show variables where variable_name = 'join_cache_level' and value = 0";
    if (database.rows(setting).empty() ||
        database.rows("explain select source from virtual_aliases")[0][EstimatedRows] == "0")
        return;
    findings.push_back(
        {"table-statistics", "virtual_aliases", "",
         "lacks the statistics without which join_cache_level = 0 makes the lists of a domain take "
         "minutes",
         "as the database's administrator, on each node of a cluster: \"replace into "
         "mysql.table_stats (db_name, table_name, cardinality) values ('" +
             name + "', 'virtual_aliases', 0); flush tables " + name + ".virtual_aliases\""});
}

// ---- Rights ----

// "explain" is refused to those who may not run the statement.
bool mayRun(SqlConnection& database, const std::string& statement)
{
    constexpr unsigned Denied[] = {1142, 1143}; // on the table; on a column
    try {
        database.rows("explain " + statement);
        return true;
    } catch (const Refusal&) {
        const unsigned code = mysql_errno(database.handle());
        if (std::find(std::begin(Denied), std::end(Denied), code) == std::end(Denied))
            throw;
        return false;
    }
}

// True when the table can be read.
bool checkRights(SqlConnection& database, const Settings& settings, const Table& table,
                 Findings& findings)
{
    const std::string name = table.name;
    const std::string columns = joined(table.columns);
    const std::pair<const char*, std::string> uses[] = {
        {"SELECT", "select " + columns + " from " + name + " where false"},
        {"INSERT", "insert into " + name + " (" + columns + ") select " + columns + " from " +
                       name + " where false"},
        {"UPDATE", "update " + name + " set " + table.key + " = '' where false"},
        {"DELETE", "delete from " + name + " where false"}};
    std::vector<std::string> lacking;
    for (const auto& [right, statement] : uses)
        if (!mayRun(database, statement))
            lacking.emplace_back(right);
    if (!lacking.empty())
        findings.push_back(
            {"table-rights", name, "",
             "the user " + settings.database.user + " lacks the right to " + joined(lacking),
             "\"grant select, insert, update, delete on " + settings.database.database + ".* to " +
                 settings.database.user + "@HOST\""});
    return lacking.empty() || lacking.front() != "SELECT";
}

// ---- Rows ----

void add(Findings& findings, const char* kind, const char* table, const std::string& name,
         const std::string& fault, const std::string& remedy,
         std::function<void(PostfixManager& library)> call, const Addresses& destinations = {})
{
    // Only plain names may be put into a statement; the rest is for a person to mend.
    const bool isPlain = isWritable(name) &&
                         std::all_of(destinations.begin(), destinations.end(), isWritable) &&
                         (faultOfAddress(name) == nullptr ||
                          faultOfDomain(name.substr(name.find('@') + 1)) == nullptr);
    Finding finding = {kind, table, name, fault, "correct it with a client of the database"};
    if (isPlain) {
        finding.wayOut = remedy;
        finding.how = Mend::InTransaction;
        finding.mend = [table, call = std::move(call)](Mending& mending) {
            mending.call(table, [call](Session& session) { call(session.library); });
        };
    }
    findings.push_back(finding);
}

// Writes the destinations of an address anew.
void setDestinations(PostfixManager& library, const std::string& source,
                     const Addresses& destinations)
{
    VectorString members;
    std::string text;
    for (const std::string& destination : destinations)
        text += (text.empty() ? "" : ",") + destination;
    members.push_back(text);
    library.Postfix_VList(source, &members, destinations.empty() ? "DeleteList" : "UpdateList");
}

void checkSelfRows(const Hosting& hosting, Findings& findings)
{
    for (const auto& [address, mailbox] : hosting.mailboxes)
        if (!hosting.hasEntry(address) && faultOfAddress(address) == nullptr)
            add(findings, "self-row-missing", "virtual_aliases", address,
                address + " is a mailbox and has no row for itself: a catch-all takes its mail",
                "it has one", [address = address](PostfixManager& library) {
                    library.Postfix_VAlias(address, address, "AddAlias");
                });
    for (const std::string& address : hosting.selfRows)
        if (hosting.mailbox(address) == nullptr)
            add(
                findings, "self-row-left", "virtual_aliases", address,
                shown(address) + " has a row for itself and is no mailbox: its mail is taken, "
                                 "then returned",
                "the row is removed",
                [address, others = hosting.targetsOf(address)](PostfixManager& library) {
                    setDestinations(library, address, others);
                },
                hosting.targetsOf(address));
}

// The destinations of a name, each once.
Addresses distinctDestinations(const Hosting& hosting, const std::string& source)
{
    Addresses all = hosting.targetsOf(source);
    if (source.substr(0, 1) == "@")
        all = {hosting.catchAllOf(source.substr(1))};
    if (hosting.selfRows.count(source) > 0)
        all.insert(all.begin(), source);
    Addresses once;
    for (const std::string& destination : all)
        if (std::none_of(once.begin(), once.end(), [&](const std::string& other) {
                return equalIgnoringCase(other, destination);
            }))
            once.push_back(destination);
    return once;
}

void checkTwice(SqlConnection& database, const Hosting& hosting, Findings& findings)
{
    for (const Row& row : database.rows("select lower(name), count(*) from virtual_domains "
                                        "group by lower(name) having count(*) > 1"))
        add(findings, "row-twice", "virtual_domains", row[0],
            shown(row[0]) + " has " + row[1] + " rows", "one is left",
            [name = row[0]](PostfixManager& library) {
                library.Postfix_VHostFile(name, "RmvDomain");
                library.Postfix_VHostFile(name, "AddDomain");
            });
    std::string former;
    for (const Row& row : database.rows(
             "select lower(source), lower(destination), count(*) from virtual_aliases "
             "group by lower(source), lower(destination) having count(*) > 1 order by 1")) {
        const std::string& source = row[0];
        if (source == former)
            continue; // all rows of a source are written together
        former = source;
        const Addresses once = distinctDestinations(hosting, source);
        add(
            findings, "row-twice", "virtual_aliases", source,
            shown(source) + " leads to " + shown(row[1]) + " by " + row[2] + " rows", "one is left",
            [source, once](PostfixManager& library) { setDestinations(library, source, once); },
            once);
    }
    for (const Row& row : database.rows("select lower(email), count(*) from virtual_users "
                                        "group by lower(email) having count(*) > 1"))
        findings.push_back({"row-twice", "virtual_users", row[0],
                            shown(row[0]) + " has " + row[1] + " rows, so it cannot log in",
                            "delete the wrong ones with a client of the database"});
}

void checkValues(SqlConnection& database, Findings& findings)
{
    for (const Row& row :
         database.rows("select email, password = '', quota < 0 from virtual_users"))
        if (const char* const fault = faultOfAddress(lowerCase(row[0])))
            findings.push_back({"name-unfit", "virtual_users", row[0],
                                inQuotes(row[0]) + " is no address: " + fault,
                                "correct it with a client of the database"});
        else if (row[1] == "1")
            findings.push_back({"password-missing", "virtual_users", row[0],
                                row[0] + " has an empty password",
                                "give it one with \"qvmailctl mailbox passwd " + row[0] + "\""});
        else if (row[2] == "1")
            findings.push_back({"quota-negative", "virtual_users", row[0],
                                row[0] + " has a quota below 0",
                                "\"qvmailctl quota set " + row[0] + " unlimited\""});
    for (const Row& row : database.rows("select name from virtual_domains"))
        if (const char* const fault = faultOfDomain(lowerCase(row[0])))
            findings.push_back({"name-unfit", "virtual_domains", row[0],
                                inQuotes(row[0]) + " is no domain: " + fault,
                                "correct it with a client of the database"});
}

} // namespace

bool checkSchema(const Settings& settings, Findings& findings)
{
    return asked(settings, [&](SqlConnection& database) {
        Findings found; // passed on at the end: asked() may start anew
        const Columns columns = readColumns(database);
        bool isReadable = true;
        for (const Table& table : Tables) {
            const auto place = columns.find(table.name);
            const bool isThere = checkColumns(
                table, place == columns.end() ? std::vector<Column>() : place->second, found);
            isReadable = isThere && checkRights(database, settings, table, found) && isReadable;
        }
        if (columns.size() == Tables.size()) {
            checkCollations(columns, found);
            checkKeys(database, found);
            checkEngines(database, found);
        }
        if (isReadable)
            checkStatistics(database, settings.database.database, found);
        findings.insert(findings.end(), found.begin(), found.end());
        return isReadable;
    });
}

void checkRows(const Settings& settings, const Hosting& hosting, Findings& findings)
{
    asked(settings, [&](SqlConnection& database) {
        Findings found;
        checkValues(database, found);
        checkTwice(database, hosting, found);
        checkSelfRows(hosting, found);
        findings.insert(findings.end(), found.begin(), found.end());
    });
}
