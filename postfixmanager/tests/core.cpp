// The manager object, the settings file, password hashing, and what holds for all operations.
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

// clang-format off
TEST_F(Core, ManagerKeepsItsSettingsAndReportsItself)
{
    struct : CQVTrackManager {
        VectorString modules;
        void CQVModuleName(std::string name) override { modules.push_back(name); }
    } tracker;
    const PostfixManager m(&tracker, "yes", " b ", "server", "port", "user", "word", "database");
    EXPECT_EQ(VectorString(&m.m_dovecotLDA, &m.m_dovecotLDA + 7), // in their order
              (VectorString{"", " b ", "user", "word", "server", "database", "port"}));
    EXPECT_EQ(m.TrackManager, &tracker);
    EXPECT_EQ(tracker.modules, VectorString{"PostfixManager"});
    for (const char* name : {"", "mysqlx", "mysq"}) // tables that are not there would answer true
        EXPECT_FALSE(
            PostfixManager(&tracker, "", name, "", "", "", "", "").Postfix_IsMailboxExists("u@d"));
}

TEST_F(Core, PasswordsAreHashedWithASaltFromTheClock)
{
    // The seed is the seconds modulo the microseconds; on a full second, the seconds alone.
    const std::map<long, std::string> salts = {
        {123456, "ROcJtYNV"}, {999999, "8F4SolCQ"}, {957460, "a.i7By/z"}, {0, "drtGALMb"}};
    for (const auto& [microseconds, salt] : salts) {
        setClock(1700000000, microseconds);
        char password[32] = "a long enough password";
        EXPECT_EQ(Encrypt(password), crypt("a long enough password", ("$1$" + salt).c_str()));
        EXPECT_EQ(password, salt);
    }
}

TEST_F(Core, SettingsFileReadersMatchNamesEachInItsWay)
{
    const std::string path = "/etc/Quorvel.conf", yes = "DovecotLDA \"yes\"\n";
    const auto x = [](std::size_t count) { return std::string(count, 'x') + "\n"; };
    const World files = { // whether the one finds the name, and the value that the other finds
        {yes, "1yes"}, {"\t \vdovecotlda = \"YES\"", "1YES"}, {"", "0-"},
        {"DovecotLDA=\"yes\"\n", "0yes"}, {"DovecotLDA\t \"yes\"\n", "0yes"},
        {"DovecotLDA yes\n" + yes, "1-"}, {"DovecotLDA \"yes\n" + yes, "1-"},
        {"DovecotLDA a \"\" \"c\"\n", "1"}, {"DovecotLDAP \"no\"\n" + yes, "1no"},
        {"#DovecotLDA \"no\"\n\n \n" + yes, "1yes"}, {"Other \"DovecotLDA\"\n", "0-"},
        {x(118) + yes, "1yes"}, {x(119) + yes, "1-"}, {x(999) + yes, "1-"}, {x(1000) + yes, "0-"}};
    QVConfFileManager settings;
    for (const auto& [file, answer] : files) {
        put({{path, file}});
        std::string value = "-";
        const int found = settings.getParamFromQVConfFile(path, value, "DovecotLDA");
        const bool exists = settings.isParamExistInQVConfFile(path, "DovecotLDA");
        EXPECT_EQ(std::to_string(exists) + value, answer) << file;
        EXPECT_EQ(found, value == "-" ? 0 : 1) << file;
        EXPECT_FALSE(settings.isParamExistInQVConfFile(path, ""));
        EXPECT_EQ(settings.getParamFromQVConfFile(path, value, ""), 0);
    }
}

TEST_F(Core, TrimmingTakesBlanksAndTabsOffBothEnds)
{
    std::string text = " \ta b\n\t ", blank = " \t ";
    trimRightSpaces(text);
    trimRightSpaces(blank);
    EXPECT_EQ(text + blank, "a b\n");
}

// Each operation's answer without a connection and without the tables, what it prints for that, and
// what it does before it connects.
static const std::string None = "resultset is null\n", NoBox = "No mailbox found\n";
static const std::string Copy = copied("/etc/VirtualHosts"), NoMember = "No list member found\n";
static const struct {
    std::string call, unconnected, failed, message = {}, first = {};
} Failures[] = {
    {"VHostFile(d;AddDomain)", "1", "1", "", Copy}, {"VHostFile(d;RmvDomain)", "1", "1", "", Copy},
    {"UpdateMailbox(u@d;x;UpdatePasswd)", "1", "1", "", "mysql is used\n"},
    {"DeleteDomAliases(d)", "1", "1"}, {"CreateMailbox(d;u;5)", "306", "306"},
    {"DeleteMailbox(u;d)", "308", "308"}, {"VQuota(u@d;5;DeleteQuota)", "1", "1"},
    {"VQuota(u@d;5;UpdateQuota)", "1", "1"}, {"VAlias(u@d;a;UpdateAlias)", "0", "0"},
    {"VAlias(u@d;a;DeleteAlias)", "0", "0"}, {"VList(l@d;;DeleteList)", "0", "0"},
    {"VList(l@d;a1;UpdateList)", "0", "1"}, {"RemoveCatchAllAddress(d)", "334", "334"},
    {"GetMailboxList(d)", "63", "63", NoBox}, {"IsMailboxExists(u@d)", "true", "true", NoBox},
    {"RetrieveQuota(u@d)", "-1", "-1", NoBox}, {"GetLists(d)", "63", "63", NoMember},
    {"GetListSettings(l@d)", "63", "63", NoMember}, {"VAlias(u@d;a;AddAlias)", "0", "0", None},
    {"IsVAliasExists(u@d)", "true", "false", None}, {"IsVListExists(l@d)", "true", "false", None},
    {"IsCatchAllExists(d)", "true", "false", None},
    {"IsDomainHasUnlimitedQuota(d)", "true", "false", None},
    {"RetrieveDomainQuota(d)", "2 -1", "0", "No quota resultset found\n"}, // no server: unlimited
    {"UpdateCatchAllAddress(d;c)", "331", "331", None},
    {"GetMailboxCount(d)", "63", "63", "No mailbox count resultset found\n"},
    {"RetrieveAlias(u@d)", "", "", "No forward address found\n"},
    {"RetreiveCatchAllAddress(d)", "0", "0", "unable to run get catch all query\n"},
};

TEST_F(Core, EveryOperationReportsAFailedConnection)
{
    for (const Backend backend : {SqlWrongPassword, SqlNoServer})
        for (const auto& f : Failures) {
            const std::string steps = f.first + "Unable to connect mysql server";
            check({{f.call, World{}, f.unconnected, World{}, steps}}, backend);
        }
    EXPECT_EQ(run(SqlWrongDatabase, "DeleteDomAliases(d)"), "1");
    EXPECT_EQ(happened, traced("DeleteDomAliases(d)") + "Unable to use database\n");
    EXPECT_EQ(openConnections(), 1U); // it is left behind
    TestManager manager(Sql);
    manager.m_mailSqlServerPort = ""; // the default one
    EXPECT_EQ(run(manager, "GetMailboxList(d)"), "0");
}

TEST_F(Core, EveryOperationReportsAFailedStatementAndClosesItsConnection)
{
    sql("rename table virtual_domains to d, virtual_users to u, virtual_aliases to a");
    for (const auto& f : Failures) {
        const std::string failed = f.message.empty() ? "" : "Unable to execute query\n" + f.message;
        SCOPED_TRACE(f.call);
        TestManager manager(Sql);
        EXPECT_EQ(run(manager, f.call), f.failed);
        EXPECT_NE(happened.find("query="), std::string::npos);
        EXPECT_NE(happened.find(failed), std::string::npos) << happened;
        EXPECT_EQ(manager.ErrNo, Untouched);
        EXPECT_EQ(openConnections(), 0U);
    }
    sql("rename table d to virtual_domains, u to virtual_users, a to virtual_aliases");
    EXPECT_EQ(rights("/var/spool/vmail/d"), "missing");
    EXPECT_EQ(MySQLClient("", "", "", "").CloseDBConnection(), 0); // connected or not
}

TEST_F(Core, AnActionThatTablesDoNotKnowLeavesItsConnectionOpen)
{
    const World calls = {{"VQuota(u@d;9;AddQuota)", "1"}, {"VAlias(u@d;a;addAlias)", "0"},
                         {"VList(l@d;a1;)", "0"}, {"UpdateMailbox(u@d;x;UpdateUserType)", "321"}};
    for (const auto& [call, result] : calls) {
        EXPECT_EQ(run(Sql, call), result);
        EXPECT_EQ(happened, traced(call) + (result == "321" ? "mysql is used\n" : ""));
        EXPECT_EQ(openConnections(), 1U) << call;
    }
}

// Lines longer than any block the library reads, and texts that lie across every block's edge.
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
    const std::string longer = "the.longest.of.all.domains.com";
    for (const std::string& domain : {longer, longer.substr(19)})
        for (std::size_t edge = Block - domain.size() - 1; edge <= Block; ++edge) {
            const std::string list = std::string(edge - 1, 'x') + "\n" + domain + "\n";
            put({{"/etc/VirtualHosts", list}});
            run(Files, "VHostFile(" + domain + ";AddDomain)");
            EXPECT_TRUE(get("/etc/VirtualHosts") == list) << edge;
        }
}
