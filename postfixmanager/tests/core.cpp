// The manager object, the settings file, the SQL client, password hashing, what holds for all.
#include "fixture.h"

#include "MySQLClient.h"
#include "QVConfFileManager.h"

#include <cstddef>

#include <crypt.h>

using Core = InWorld;

// Hosts hold these objects in their own code: the layout is part of the interface.
static_assert(offsetof(PostfixManager, ErrNo) == sizeof(void*));
static_assert(offsetof(PostfixManager, m_dovecotLDA) == 2 * sizeof(void*));
static_assert(sizeof(PostfixManager) == 2 * sizeof(void*) + 7 * sizeof(std::string));
static_assert(sizeof(MySQLClient) == 6 * sizeof(void*));
static_assert(sizeof(SvpopUser) == 2 * sizeof(void*) + 256);

TEST_F(Core, ManagerKeepsItsSettingsAndLeavesTheTrackerToItsOwner)
{
    struct : CQVTrackManager {
        VectorString modules;
        void CQVModuleName(std::string name) override { modules.push_back(name); }
    } tracker;
    {
        const PostfixManager m(&tracker, "yes", " b ", "server", "port", "user", "word", "database");
        EXPECT_EQ(m.TrackManager, &tracker);
        const std::string* const members = &m.m_dovecotLDA; // in their order
        EXPECT_EQ(VectorString(members, members + 7),
                  (VectorString{"", " b ", "user", "word", "server", "database", "port"}));
    }
    tracker.CQVModuleName("still there");
    EXPECT_EQ(tracker.modules, (VectorString{"PostfixManager", "still there"}));
}

TEST_F(Core, BackendIsTablesForMysqlInAnyCaseAndFilesOtherwise)
{
    for (const std::string backend : {"mysql", "MySQL", "MYSQL", "", "files", "mysql ", "mysqld", "m"}) {
        TestManager manager(SqlNoServer);
        manager.m_mailAccountBackend = backend;
        const bool isTables = backend.size() == 5 && backend != "files";
        EXPECT_EQ(run(manager, "VHostFile(d.com;AddDomain)"), isTables ? "1" : "0") << backend;
    }
}

TEST_F(Core, PasswordsAreHashedWithASaltFromTheClock)
{
    // The seed is the seconds modulo the microseconds; on a full second, the seconds alone.
    const std::map<long, std::string> salts = {{123456, "ROcJtYNV"}, {999999, "8F4SolCQ"}, {0, "drtGALMb"}};
    for (const auto& [microseconds, salt] : salts) {
        setClock(1700000000, microseconds);
        char password[32] = "a long enough password";
        const std::string hash = Encrypt(password);
        EXPECT_EQ(hash.substr(0, 12), "$1$" + salt + "$");
        EXPECT_EQ(hash.size(), 34U);
        EXPECT_EQ(password, salt);
        EXPECT_EQ(hash, crypt("a long enough password", hash.c_str()));
    }
}

TEST_F(Core, SettingsFileReadersMatchNamesEachInItsWay)
{
    const std::string yes = "DovecotLDA \"yes\"\n";
    const struct {
        std::string file;
        bool exists;
        std::string value; // "-" when none is found
    } files[] = {{yes, true, "yes"},
                 {"DovecotLDA \"yes\"", true, "yes"},
                 {"dovecotlda \"YES\"\n", true, "YES"},
                 {"DovecotLDA=\"yes\"\n", false, "yes"},
                 {"DovecotLDA = \"yes\"\n", true, "yes"},
                 {"\t \v" + yes, true, "yes"},
                 {"DovecotLDA\t \"yes\"\n", false, "yes"},
                 {"DovecotLDA yes\n" + yes, true, "-"},
                 {"DovecotLDA \"yes\n" + yes, true, "-"},
                 {"DovecotLDA a \"\" \"c\"\n", true, ""},
                 {"DovecotLDAP \"no\"\n" + yes, true, "no"},
                 {"#DovecotLDA \"no\"\n\n \n" + yes, true, "yes"},
                 {"Other \"DovecotLDA\"\n", false, "-"},
                 {std::string(118, 'x') + "\n" + yes, true, "yes"},
                 {std::string(119, 'x') + "\n" + yes, true, "-"},
                 {std::string(999, 'x') + "\n" + yes, true, "-"},
                 {std::string(1000, 'x') + "\n" + yes, false, "-"},
                 {"", false, "-"}};
    const std::string path = "/etc/Quorvel.conf";
    QVConfFileManager settings;
    std::string value = "-";
    for (const auto& file : files) {
        SCOPED_TRACE(file.file);
        put({{path, file.file}});
        value = "-";
        EXPECT_EQ(settings.isParamExistInQVConfFile(path, "DovecotLDA"), file.exists);
        EXPECT_EQ(settings.getParamFromQVConfFile(path, value, "DovecotLDA"), file.value != "-");
        EXPECT_EQ(value, file.value);
    }
    put({{path, " \"value\"\n"}});
    for (const char* name : {"", "DovecotLDA"}) {
        const std::string file = *name == '\0' ? path : "/etc/absent";
        EXPECT_FALSE(settings.isParamExistInQVConfFile(file, name));
        EXPECT_EQ(settings.getParamFromQVConfFile(file, value, name), 0);
    }
    EXPECT_EQ(value, "-");
}

TEST_F(Core, TrimmingTakesBlanksAndTabsOffBothEnds)
{
    const World words = {{" \ta b\t ", "a b"}, {"a", "a"}, {"", ""}, {" \t ", ""}, {"a\n ", "a\n"}};
    for (const auto& [word, trimmed] : words) {
        std::string result = word;
        trimRightSpaces(result);
        EXPECT_EQ(result, trimmed);
    }
}

TEST_F(Core, SqlClientConnectsOrSaysWhyNotAndTellsFailedStatements)
{
    sql("do 0");
    const struct {
        const char *password, *port, *database, *printed;
    } attempts[] = {{"secret", "", "qvmail", ""}, // the default port
                    {"secret", "port", "qvmail", ""},
                    {"wrong", "3306", "qvmail", "Unable to connect mysql server\n"},
                    {"secret", "3399", "qvmail", "Unable to connect mysql server\n"},
                    {"secret", "3306", "absent", "Unable to use database\n"}};
    for (const auto& attempt : attempts) {
        MySQLClient client("qvmail", attempt.password, "127.0.0.1", attempt.port);
        testing::internal::CaptureStdout();
        MYSQL* const made = client.CreateDBConnection(attempt.database);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), attempt.printed);
        EXPECT_EQ(made, *attempt.printed == '\0' ? client.MySQL : nullptr);
        EXPECT_EQ(client.CloseDBConnection(), 0);
    }
    MySQLClient client("qvmail", "secret", "127.0.0.1", "3306");
    MYSQL* const connection = client.CreateDBConnection("qvmail");
    testing::internal::CaptureStdout();
    EXPECT_NE(client.ExecuteQuery("insert into", connection), 0);
    EXPECT_EQ(client.GetQueryResult("select from", connection), nullptr);
    EXPECT_EQ(client.ExecuteQuery("insert into virtual_domains values ('e.com')", connection), 0);
    MYSQL_RES* const rows = client.GetQueryResult("select * from virtual_domains", connection);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Unable to execute query\n");
    EXPECT_EQ(mysql_num_rows(rows), 1U);
    mysql_free_result(rows);
    EXPECT_EQ(client.CloseDBConnection(), 0);
    EXPECT_EQ(openConnections(), 0);
}

// Each operation's answer without a connection and without the tables, and what it prints for that.
static const struct {
    const char *call, *unconnected, *failed, *message;
} Failures[] = {
    {"VHostFile(d.com;AddDomain)", "1", "1", ""},
    {"VHostFile(d.com;RmvDomain)", "1", "1", ""},
    {"DeleteDomAliases(d.com)", "1", "1", ""},
    {"CreateMailbox(d.com;u;5)", "306", "306", ""},
    {"DeleteMailbox(u;d.com)", "308", "308", ""},
    {"UpdateMailbox(u@d.com;x;UpdatePasswd)", "1", "1", ""},
    {"GetMailboxList(d.com)", "63", "63", "No mailbox found\n"},
    {"GetMailboxCount(d.com)", "63", "63", "No mailbox count resultset found\n"},
    {"IsMailboxExists(u@d.com)", "true", "true", "No mailbox found\n"},
    {"VQuota(u@d.com;5;DeleteQuota)", "1", "1", ""},
    {"VQuota(u@d.com;5;UpdateQuota)", "1", "1", ""},
    {"RetrieveQuota(u@d.com)", "-1", "-1", "No mailbox found\n"},
    {"IsDomainHasUnlimitedQuota(d.com)", "true", "false", "resultset is null\n"},
    {"VAlias(u@d.com;a;AddAlias)", "0", "0", "resultset is null\n"},
    {"VAlias(u@d.com;a;UpdateAlias)", "0", "0", ""},
    {"VAlias(u@d.com;a;DeleteAlias)", "0", "0", ""},
    {"RetrieveAlias(u@d.com)", "", "", "No forward address found\n"},
    {"IsVAliasExists(u@d.com)", "true", "false", "resultset is null\n"},
    {"VList(l@d.com;a1;UpdateList)", "0", "1", ""},
    {"VList(l@d.com;;DeleteList)", "0", "0", ""},
    {"GetLists(d.com)", "63", "63", "No list member found\n"},
    {"GetListSettings(l@d.com)", "63", "63", "No list member found\n"},
    {"IsVListExists(l@d.com)", "true", "false", "resultset is null\n"},
    {"UpdateCatchAllAddress(d.com;c)", "331", "331", "resultset is null\n"},
    {"RemoveCatchAllAddress(d.com)", "334", "334", ""},
    {"RetreiveCatchAllAddress(d.com)", "0", "0", "unable to run get catch all query\n"},
    {"IsCatchAllExists(d.com)", "true", "false", "resultset is null\n"},
};

TEST_F(Core, EveryOperationReportsAFailedConnection)
{
    sql("do 0");
    for (const Backend backend : {SqlWrongPassword, SqlWrongDatabase, SqlNoServer})
        for (const auto& failure : Failures) {
            SCOPED_TRACE(failure.call + std::to_string(backend));
            const std::string why = backend == SqlWrongDatabase ? "Unable to use database\n"
                                                                : "Unable to connect mysql server\n";
            TestManager manager(backend);
            EXPECT_EQ(run(manager, failure.call), failure.unconnected);
            const std::string others = happened.substr(0, happened.size() - why.size());
            EXPECT_EQ(happened, others + why);
            EXPECT_EQ(others.rfind(traced(failure.call), 0), 0U);
            EXPECT_EQ(others.find("query="), std::string::npos);
            EXPECT_EQ(manager.ErrNo, Untouched);
            EXPECT_EQ(world(), World{});
        }
    openConnections(); // a database that cannot be used leaves them behind
}

TEST_F(Core, EveryOperationReportsAFailedStatementAndClosesItsConnection)
{
    sql("rename table virtual_domains to d, virtual_users to u, virtual_aliases to a");
    for (const auto& failure : Failures) {
        SCOPED_TRACE(failure.call);
        TestManager manager(Sql);
        EXPECT_EQ(run(manager, failure.call), failure.failed);
        EXPECT_NE(happened.find("query="), std::string::npos);
        EXPECT_NE(happened.find(failure.message), std::string::npos) << happened;
        EXPECT_EQ(manager.ErrNo, Untouched);
        EXPECT_EQ(openConnections(), 0);
    }
    sql("rename table d to virtual_domains, u to virtual_users, a to virtual_aliases");
    EXPECT_EQ(rights("/var/spool/vmail/d.com"), "missing");
}

// Lines longer than any block the library reads, and a text that lies across every block's edge.
TEST_F(Core, LinesOfAnyLengthAreReadAndRewritten)
{
    const std::string far(300 * 1024, 'x'), added = "new@e.com e.com/mail/inbox/new@e.com\n";
    for (const std::string& front : {far, far + "\n", far + " "}) {
        put({{"vmaps.txt", front + "u@d.com" + far + "\nv@e.com\n"}});
        EXPECT_EQ(run(Files, "VMaps(u;d.com;AddUser)"), "0");
        EXPECT_EQ(happened.find("postmap"), std::string::npos);
        EXPECT_EQ(run(Files, "VMaps(v@e;;RmvUser)"), "0");
        EXPECT_EQ(run(Files, "VMaps(new;e.com;AddUser)"), "0");
        EXPECT_EQ(get("vmaps.txt"), front + "u@d.com" + far + "\n" + added);
    }
    for (std::size_t edge = 128 * 1024 - 12; edge <= 128 * 1024; ++edge) {
        put({{"/etc/VirtualHosts", std::string(edge - 1, 'x') + "\ndomain.com\n"}});
        run(Files, "VHostFile(domain.com;AddDomain)");
        EXPECT_EQ(get("/etc/VirtualHosts").size(), edge + 11) << edge;
    }
}
