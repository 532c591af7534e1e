#include "World.h"

#include "QVConfFileManager.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr int MailboxesPerDomain = 1000;
constexpr const char* PristineDirectory = "/etc/pristine-maps";
constexpr const char* Tables[] = {"virtual_domains", "virtual_users", "virtual_aliases"};
constexpr const char* KeyColumns[] = {"name", "email", "source"};

std::string domainName(int number)
{
    return "domain" + std::to_string(number) + ".test";
}

std::string domainOf(int number)
{
    return domainName(number / MailboxesPerDomain);
}

std::string userName(int number)
{
    return "user" + std::to_string(number);
}

std::string addressOf(int number)
{
    return userName(number) + "@" + domainOf(number);
}

std::string aliasOf(int number)
{
    return "alias" + std::to_string(number) + "@" + domainOf(number);
}

std::string hashField()
{
    return "$1$abcdefgh$0123456789012345678901";
}

using LineOf = std::function<std::string(int)>;

void writeLines(const char* file, int count, const LineOf& line, const std::string& last = "")
{
    std::ofstream out(file);
    for (int i = 0; i < count; ++i)
        out << line(i) << '\n';
    out << last;
    if (!out.flush())
        fail(std::string("to write ") + file);
}

std::string pristineOf(const std::string& file)
{
    return PristineDirectory + ("/" + std::filesystem::path(file).filename().string());
}

void copyFile(const std::string& from, const std::string& to)
{
    if (system(("cp -p " + from + " " + to).c_str()) != 0)
        fail("to copy " + from);
}

bool areAlike(const std::string& a, const std::string& b)
{
    struct stat ofA {
    };
    struct stat ofB {
    };
    return stat(a.c_str(), &ofA) == 0 && stat(b.c_str(), &ofB) == 0 && ofA.st_size == ofB.st_size &&
           ofA.st_mtim.tv_sec == ofB.st_mtim.tv_sec && ofA.st_mtim.tv_nsec == ofB.st_mtim.tv_nsec;
}

void populateFiles(const World& world)
{
    writeLines(VDOMAINFILE, (world.accounts - 1) / MailboxesPerDomain + 1, domainName);
    writeLines(VPASSWDFILE, world.accounts,
               [](int i) { return passwdLine(domainOf(i), addressOf(i)); });
    writeLines(VSHADOWFILE, world.accounts, [](int i) { return shadowLine(addressOf(i)); });
    writeLines(VQUOTAFILE, world.accounts, [](int i) { return quotaLine(addressOf(i)); });
    writeLines(
        VMAPSFILE, world.accounts, [](int i) { return mapLine(domainOf(i), addressOf(i)); },
        "@" + world.domain + " " + inboxOf(world.domain, world.plainAddress) + "\n");
    writeLines(
        VALIASFILE, world.accounts, [](int i) { return aliasOf(i) + " " + addressOf(i); },
        world.address + " " + Elsewhere + "\n" + world.list + " " + world.address + "," +
            world.plainAddress + "," + Elsewhere + "\n");
    std::filesystem::create_directories(PristineDirectory);
    for (const char* const file : MapFiles)
        copyFile(file, pristineOf(file));
}

Connection connectAsRoot()
{
    Connection connection(mysql_init(nullptr), mysql_close);
    if (mysql_real_connect(connection.get(), "localhost", "root", nullptr, "qvmail", 0,
                           "/run/mysqld/mysqld.sock", 0) == nullptr)
        fail(std::string("to connect as root: ") + mysql_error(connection.get()));
    return connection;
}

// Inserts a thousand rows with each statement, all in one transaction.
void insertRows(MYSQL* connection, const std::string& table, int count, const LineOf& row)
{
    constexpr int RowsPerStatement = 1000;
    execute(connection, "begin");
    for (int first = 0; first < count; first += RowsPerStatement) {
        std::string statement = "insert into " + table + " values ";
        for (int i = first; i < count && i < first + RowsPerStatement; ++i)
            statement.append(i == first ? "(" : ",(").append(row(i)).append(")");
        execute(connection, statement);
    }
    execute(connection, "commit");
}

std::string pair(const std::string& a, const std::string& b)
{
    return "'" + a + "','" + b + "'";
}

// A condition for the rows of the domain that is changed.
std::string rowsOf(const char* column, const std::string& domain)
{
    return std::string(column) + " = '" + domain + "' or " + column + " like '%@" + domain + "'";
}

void populateDatabase(const World& world)
{
    const Connection connection = connectAsRoot();
    for (const char* const table : Tables)
        execute(connection.get(), std::string("truncate ") + table);
    insertRows(connection.get(), "virtual_domains", (world.accounts - 1) / MailboxesPerDomain + 1,
               [](int i) { return "'" + domainName(i) + "'"; });
    insertRows(connection.get(), "virtual_users", world.accounts, [&](int i) {
        return pair(addressOf(i), hashField()) + "," +
               (world.isMostlyUnlimited() && i % 10 != 0 ? "0" : Quota);
    });
    insertRows(connection.get(), "virtual_aliases", world.accounts - 1,
               [](int i) { return pair(addressOf(i), addressOf(i)); });
    insertRows(connection.get(), "virtual_aliases",
               world.kind == "mysql-aliases" ? MailboxesPerDomain : 0,
               [&](int i) { return pair(aliasOf(world.accounts - i - 1), world.address); });
    const std::string others[] = {
        pair(world.address, Elsewhere),
        pair(world.alias, Elsewhere),
        pair("@" + world.domain, world.plainAddress),
        pair(world.list, world.address),
        pair(world.list, world.plainAddress),
        pair(world.list, Elsewhere),
    };
    insertRows(connection.get(), "virtual_aliases", std::size(others),
               [&](int i) { return others[i]; });

    for (std::size_t i = 0; i < std::size(Tables); ++i) {
        const std::string table = Tables[i];
        const std::string pristine = "pristine_" + table;
        execute(connection.get(), "drop table if exists " + pristine);
        std::string copy = "create table " + pristine;
        copy.append(" as select * from ").append(table).append(" where ");
        execute(connection.get(), copy.append(rowsOf(KeyColumns[i], world.domain)));
        const Connection statistics = connectAsRoot(); // its answer is left unread
        execute(statistics.get(), "analyze table " + table);
    }
}

void restoreRows(const World& world)
{
    const Connection connection = connectAsRoot();
    execute(connection.get(), "begin");
    for (std::size_t i = 0; i < std::size(Tables); ++i) {
        const std::string table = Tables[i];
        const std::string deletion = "delete from " + table + " where ";
        for (const std::string& domain : {world.domain, world.newDomain})
            execute(connection.get(), deletion + rowsOf(KeyColumns[i], domain));
        std::string insertion = "insert into " + table;
        execute(connection.get(), insertion.append(" select * from pristine_").append(table));
    }
    execute(connection.get(), "commit");
}

// Makes the spool tree of the domain that has this mailbox as its last one.
void makeDomain(const World& world, int lastMailbox)
{
    const std::string domain = domainOf(lastMailbox);
    CQVTrackManager tracing;
    world.manager(tracing).Postfix_CreateDomDir(domain);
    for (int i = lastMailbox; i >= 0 && domainOf(i) == domain; --i)
        makeHome(homeOf(domain, addressOf(i)));
}

void makeSpool(const World& world)
{
    for (const auto& domain : std::filesystem::directory_iterator(VSPOOLDIR))
        std::filesystem::remove_all(domain);
    for (int last = world.accounts - 1; last >= 0; last -= MailboxesPerDomain)
        makeDomain(world, last);
}

void restoreSpool(const World& world)
{
    std::filesystem::remove_all(VSPOOLDIR "/" + world.newDomain);
    if (!std::filesystem::exists(world.tree()))
        makeDomain(world, world.accounts - 1);
    for (const auto& home : std::filesystem::directory_iterator(world.tree() + HomeDirectory))
        if (home.path().filename().string().rfind("new", 0) == 0)
            std::filesystem::remove(home);
    if (!std::filesystem::exists(world.homeOf(world.address)))
        makeHome(world.homeOf(world.address));
    const std::string inbox = world.inboxOf(world.address); // without mail
    if (!std::ofstream(inbox) || chown(inbox.c_str(), 4201, 4108) != 0)
        fail("to make " + inbox);
}

} // namespace

World::World(const std::string& kind, int accounts)
    : kind(kind), usesDatabase(kind != "files"), accounts(accounts), domain(domainOf(accounts - 1)),
      user(userName(accounts - 1)), address(addressOf(accounts - 1)),
      plainAddress(addressOf(accounts - 2)), alias(aliasOf(accounts - 1)), list("team@" + domain),
      newUser("new0"), newAddress("new0@" + domain), newAlias("newalias@" + domain),
      newDomain("new-domain.test")
{
}

void World::populate() const
{
    if (usesDatabase)
        populateDatabase(*this);
    else
        populateFiles(*this);
    makeSpool(*this);
    restoreSpool(*this);
}

void World::restore() const
{
    if (usesDatabase)
        restoreRows(*this);
    else
        for (const char* const file : MapFiles)
            if (!areAlike(file, pristineOf(file)))
                copyFile(pristineOf(file), file);
    restoreSpool(*this);
}

PostfixManager World::manager(CQVTrackManager& tracing) const
{
    const char* const backend = usesDatabase ? "mysql" : "files";
    return {&tracing, "", backend, "127.0.0.1", "3306", "qvmail", databasePassword(), "qvmail"};
}

std::string databasePassword()
{
    std::string password;
    QVConfFileManager().getParamFromQVConfFile(QVCONFFILE, password, "MailSqlPassword");
    return password;
}

std::string passwdLine(const std::string& domain, const std::string& address)
{
    const std::string home = homeOf(domain, address);
    return address + ":x:4201:4101:" + address + ":" + home +
           ":/bin/false:userdb_mail=mbox:" + home + " userdb_quota_rule=*:storage=" + Quota + "B";
}

std::string shadowLine(const std::string& address)
{
    return address + ":" + hashField() + ":20000::99999::::1";
}

std::string mapLine(const std::string& domain, const std::string& address)
{
    return address + " " + inboxOf(domain, address);
}

std::string quotaLine(const std::string& address)
{
    return address + "\t" + Quota;
}

void makeHome(const std::string& path)
{
    if (mkdir(path.c_str(), 02775) != 0 || chown(path.c_str(), 4201, 4108) != 0 ||
        chmod(path.c_str(), 02777) != 0)
        fail(path);
}

void fail(const std::string& attempt)
{
    fprintf(stderr, "failed: %s (%s)\n", attempt.c_str(), strerror(errno));
    exit(1);
}

Connection connectAsHost()
{
    static const std::string password = databasePassword();
    Connection connection(mysql_init(nullptr), mysql_close);
    mysql_real_connect(connection.get(), "127.0.0.1", "qvmail", password.c_str(), nullptr, 3306,
                       nullptr, 0);
    if (mysql_errno(connection.get()) != 0 || mysql_select_db(connection.get(), "qvmail") != 0)
        fail(std::string("to connect: ") + mysql_error(connection.get()));
    return connection;
}

void execute(MYSQL* connection, const std::string& statement)
{
    if (mysql_query(connection, statement.c_str()) != 0)
        fail(statement.substr(0, 200) + ": " + mysql_error(connection));
}
