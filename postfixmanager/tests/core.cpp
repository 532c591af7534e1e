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
        const PostfixManager m(&tracker, "yes", " b ", "server", "port", "user", "word",
                               "database");
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
    for (const auto& [backend, result] : World{{"mysql", "1"},
                                               {"MySQL", "1"},
                                               {"MYSQL", "1"},
                                               {"", "0"},
                                               {"files", "0"},
                                               {"mysql ", "0"},
                                               {"mysqld", "0"}}) {
        TestManager manager(SqlNoServer);
        manager.m_mailAccountBackend = backend;
        EXPECT_EQ(run(manager, "VHostFile(d;AddDomain)"), result) << backend;
    }
}

TEST_F(Core, PasswordsAreHashedWithASaltFromTheClock)
{
    // The seed is the seconds modulo the microseconds; on a full second, the seconds alone.
    for (const auto& [microseconds, salt] :
         std::map<long, std::string>{{123456, "ROcJtYNV"}, {999999, "8F4SolCQ"}, {0, "drtGALMb"}}) {
        setClock(1700000000, microseconds);
        char password[32] = "a long enough password";
        const std::string hash = Encrypt(password);
        EXPECT_EQ(hash.substr(0, 12), "$1$" + salt + "$");
        EXPECT_EQ(hash.size(), 34U);
        EXPECT_EQ(password, salt);
        EXPECT_EQ(hash, crypt("a long enough password", hash.c_str()));
    }
}

// clang-format off
TEST_F(Core, SettingsFileReadersMatchNamesEachInItsWay)
{
    const std::string yes = "DovecotLDA \"yes\"\n", path = "/etc/Quorvel.conf";
    const struct {
        std::string file;
        bool exists;
        std::string value; // "-" when none is found
    } files[] = {
        {yes, true, "yes"}, {"DovecotLDA \"yes\"", true, "yes"}, {"dovecotlda \"YES\"\n", true,
         "YES"},
        {"DovecotLDA=\"yes\"\n", false, "yes"}, {"DovecotLDA = \"yes\"\n", true, "yes"},
        {"\t \v" + yes, true, "yes"}, {"DovecotLDA\t \"yes\"\n", false, "yes"}, {"", false, "-"},
        {"DovecotLDA yes\n" + yes, true, "-"}, {"DovecotLDA \"yes\n" + yes, true, "-"},
        {"DovecotLDA a \"\" \"c\"\n", true, ""}, {"DovecotLDAP \"no\"\n" + yes, true, "no"},
        {"#DovecotLDA \"no\"\n\n \n" + yes, true, "yes"}, {"Other \"DovecotLDA\"\n", false, "-"},
        {std::string(118, 'x') + "\n" + yes, true, "yes"}, {std::string(119, 'x') + "\n" + yes,
         true, "-"},
        {std::string(999, 'x') + "\n" + yes, true, "-"}, {std::string(1000, 'x') + "\n" + yes,
         false, "-"},
    };
    QVConfFileManager settings;
    std::string value;
    for (const auto& file : files) {
        SCOPED_TRACE(file.file);
        put({{path, file.file}});
        value = "-";
        EXPECT_EQ(settings.isParamExistInQVConfFile(path, "DovecotLDA"), file.exists);
        EXPECT_EQ(settings.getParamFromQVConfFile(path, value, "DovecotLDA"), file.value != "-");
        EXPECT_EQ(value, file.value);
    }
    put({{path, " \"value\"\n"}});
    for (const auto& [file, name] : World{{path, ""}, {"/etc/absent", "DovecotLDA"}}) {
        EXPECT_FALSE(settings.isParamExistInQVConfFile(file, name));
        EXPECT_EQ(settings.getParamFromQVConfFile(file, value, name), 0);
    }
    EXPECT_EQ(value, "-");
}

TEST_F(Core, TrimmingTakesBlanksAndTabsOffBothEnds)
{
    for (const auto& [word, trimmed] : World{{" \ta b\t ", "a b"}, {"a", "a"}, {"", ""}, {" \t ",
        ""}, {"a\n ", "a\n"}}) {
        std::string result = word;
        trimRightSpaces(result);
        EXPECT_EQ(result, trimmed);
    }
}

TEST_F(Core, SqlClientConnectsOrSaysWhyNotAndTellsFailedStatements)
{
    sql("do 0");
    for (const char* port : {"", "port"}) { // the default port
        MySQLClient client("qvmail", "secret", "127.0.0.1", port);
        MYSQL* const made = client.CreateDBConnection("qvmail");
        EXPECT_TRUE(made != nullptr && made == client.MySQL);
        EXPECT_EQ(client.CloseDBConnection(), 0);
    }
    MySQLClient nowhere("qvmail", "wrong", "127.0.0.1", "3306");
    EXPECT_EQ(nowhere.CreateDBConnection("qvmail"), nullptr);
    EXPECT_EQ(nowhere.CloseDBConnection(), 0);
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
    EXPECT_EQ(openConnections(), 0U);
}

// Each operation's answer without a connection and without the tables, what it prints for that, and
// what it does before it connects.
static const struct {
    const char *call, *unconnected, *failed, *message, *first = "";
} Failures[] = {
    {"VHostFile(d;AddDomain)", "1", "1", "", "cp /etc/VirtualHosts"},
    {"VHostFile(d;RmvDomain)", "1", "1", "", "cp /etc/VirtualHosts"},
    {"DeleteDomAliases(d)", "1", "1", ""},
    {"CreateMailbox(d;u;5)", "306", "306", ""},
    {"DeleteMailbox(u;d)", "308", "308", ""},
    {"UpdateMailbox(u@d;x;UpdatePasswd)", "1", "1", "", "mysql is used"},
    {"GetMailboxList(d)", "63", "63", "No mailbox found\n"},
    {"GetMailboxCount(d)", "63", "63", "No mailbox count resultset found\n"},
    {"IsMailboxExists(u@d)", "true", "true", "No mailbox found\n"},
    {"VQuota(u@d;5;DeleteQuota)", "1", "1", ""},
    {"VQuota(u@d;5;UpdateQuota)", "1", "1", ""},
    {"RetrieveQuota(u@d)", "-1", "-1", "No mailbox found\n"},
    {"IsDomainHasUnlimitedQuota(d)", "true", "false", "resultset is null\n"},
    {"VAlias(u@d;a;AddAlias)", "0", "0", "resultset is null\n"},
    {"VAlias(u@d;a;UpdateAlias)", "0", "0", ""},
    {"VAlias(u@d;a;DeleteAlias)", "0", "0", ""},
    {"RetrieveAlias(u@d)", "", "", "No forward address found\n"},
    {"IsVAliasExists(u@d)", "true", "false", "resultset is null\n"},
    {"VList(l@d;a1;UpdateList)", "0", "1", ""},
    {"VList(l@d;;DeleteList)", "0", "0", ""},
    {"GetLists(d)", "63", "63", "No list member found\n"},
    {"GetListSettings(l@d)", "63", "63", "No list member found\n"},
    {"IsVListExists(l@d)", "true", "false", "resultset is null\n"},
    {"UpdateCatchAllAddress(d;c)", "331", "331", "resultset is null\n"},
    {"RemoveCatchAllAddress(d)", "334", "334", ""},
    {"RetreiveCatchAllAddress(d)", "0", "0", "unable to run get catch all query\n"},
    {"IsCatchAllExists(d)", "true", "false", "resultset is null\n"},
};

TEST_F(Core, EveryOperationReportsAFailedConnection)
{
    sql("do 0");
    const std::map<Backend, std::string> reasons = {
        {SqlWrongPassword, "Unable to connect mysql server\n"},
        {SqlNoServer, "Unable to connect mysql server\n"},
        {SqlWrongDatabase, "Unable to use database\n"}}; // each leaves its connection behind
    for (const auto& [backend, reason] : reasons) {
        for (const auto& failure : Failures) {
            SCOPED_TRACE(failure.call + reason);
            TestManager manager(backend);
            EXPECT_EQ(run(manager, failure.call), failure.unconnected);
            EXPECT_EQ(happened, traced(failure.call) + steps(failure.first) + reason);
            EXPECT_EQ(manager.ErrNo, Untouched);
            EXPECT_EQ(world(), World{});
        }
        EXPECT_EQ(openConnections(), backend == SqlWrongDatabase ? std::size(Failures) : 0U);
    }
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
        EXPECT_EQ(openConnections(), 0U);
    }
    sql("rename table d to virtual_domains, u to virtual_users, a to virtual_aliases");
    EXPECT_EQ(rights("/var/spool/vmail/d"), "missing");
}

TEST_F(Core, AnActionThatTablesDoNotKnowLeavesItsConnectionOpen)
{
    sql("do 0");
    for (const auto& [call, result] : World{{"VQuota(u@d;9;AddQuota)", "1"},
        {"VQuota(u@d;9;updateQuota)", "1"},
                                            {"VAlias(u@d;a;addAlias)", "0"}, {"VList(l@d;a1,b2;)",
                                             "0"},
                                            {"UpdateMailbox(u@d;admin;UpdateUserType)", "321"}}) {
        TestManager manager(Sql);
        EXPECT_EQ(run(manager, call), result);
        EXPECT_EQ(happened, traced(call) + (result == "321" ? "mysql is used\n" : ""));
        EXPECT_EQ(manager.ErrNo, Untouched);
        EXPECT_EQ(openConnections(), 1U) << call;
    }
}

// One corpus for both backends, where they must agree: each call and its answer, in order.
TEST_F(Core, BackendsAgree)
{
    const VectorString corpus[] = {
        {"CreateMailDomain(d;admin;secret;2048)", "303"}, {"CreateMailbox(d;user;1024)", "305"},
        {"CreateMailDomain(e.com;other;secret;4096)", "303"}, {"GetMailboxList(d)", "0 admin user"},
        {"GetMailboxCount(d)", "2"}, {"IsMailboxExists(USER@d)", "true"},
        {"IsMailboxExists(x@d)", "false"}, {"RetrieveDomainQuota(d)", "1 3"},
        {"VQuota(user@d;3072;UpdateQuota)", "325"}, {"RetrieveDomainQuota(d)", "1 5"},
        {"VAlias(user@d;a@x.org;AddAlias)", "327"}, {"VAlias(user@d;b@x.org;AddAlias)", "0"},
        {"RetrieveAlias(user@d)", "a@x.org"}, {"VAlias(user@d;b@x.org;UpdateAlias)", "321"},
        {"RetrieveAlias(user@d)", "b@x.org"}, {"VList(list@d;a@x,b@y;AddList)", "310"},
        {"VList(list@d;a@x;AddList)", "309"}, {"GetLists(d)", "0 list"},
        {"VList(list@d;c@z;UpdateList)", "323"}, {"GetListSettings(list@d)", "0 c@z"},
        {"UpdateCatchAllAddress(d;admin)", "332"}, {"UpdateCatchAllAddress(d;user)", "332"},
        {"UpdateMailbox(user@d;new;UpdatePasswd)", "321"}, {"VAlias(user@d;;DeleteAlias)", "329"},
        {"RetrieveAlias(user@d)", ""}, {"VList(list@d;;DeleteList)", "319"}, {"GetLists(d)", "0"},
        {"RemoveCatchAllAddress(d)", "333"}, {"DeleteMailbox(user;d)", "307"},
        {"GetMailboxList(d)", "0 admin"}, {"IsMailboxExists(user@d)", "false"},
        {"DeleteMailDomain(d)", "317"}, {"GetMailboxList(d)", "0"},
        {"GetMailboxList(e.com)", "0 other"}, {"RetrieveDomainQuota(e.com)", "1 4"}};
    sql("do 0");
    for (const Backend backend : {Files, Sql}) {
        emptyWorld();
        for (const VectorString& line : corpus)
            EXPECT_EQ(run(backend, line[0]), line[1]) << line[0] << " " << backend;
    }
}

// Lines longer than any block the library reads, and a text that lies across every block's edge.
TEST_F(Core, LinesOfAnyLengthAreReadAndRewritten)
{
    constexpr std::size_t Block = 131072;
    const std::string far(3 * Block, 'x'), added = "new@e.com e.com/mail/inbox/new@e.com\n";
    for (const std::string& front : {far, far + "\n", far + " "}) {
        put({{"vmaps.txt", front + "u@d" + far + "\nv@e.com\n"}});
        EXPECT_EQ(run(Files, "VMaps(u;d;AddUser)"), "0");
        EXPECT_EQ(happened.find("postmap"), std::string::npos);
        EXPECT_EQ(run(Files, "VMaps(v@e;;RmvUser)") + run(Files, "VMaps(new;e.com;AddUser)"), "00");
        EXPECT_TRUE(get("vmaps.txt") == front + "u@d" + far + "\n" + added);
    }
    for (std::size_t edge = Block - 12; edge <= Block; ++edge) {
        put({{"/etc/VirtualHosts", std::string(edge - 1, 'x') + "\ndomain.com\n"}});
        run(Files, "VHostFile(domain.com;AddDomain)");
        EXPECT_EQ(get("/etc/VirtualHosts").size(), edge + 11) << edge;
    }
}
