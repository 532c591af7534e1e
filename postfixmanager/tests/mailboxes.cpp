// The account files, the mailbox map, mailbox creation, update, deletion and queries.
#include "fixture.h"

#include <cstring>
#include <filesystem>
#include <sstream>

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

using Mailboxes = InWorld;

static const std::string Home = "/var/spool/vmail/d.com/mail/home/u@d.com", Homes = "/var/spool/vmail/d.com/mail/home/";
static const std::string Route = "u@d.com d.com/mail/inbox/u@d.com\n";
static const std::string PasswdLine = "u@d.com:x:1:2:c:" + Home + ":/bin/false\n";
static const std::string ShadowLine = std::string("u@d.com:") + Hash + ":19675::99999::::1\n";
static const std::string PasswdAdded = traced("PasswdFile(u)") + copied("vpasswd");
static const std::string ShadowAdded = traced("ShadowFile(u)") + copied("vshadow");
static const std::string ClientRights = "root 644 mail's", AdminRights = "root 644 qvadmin's";

TEST_F(Mailboxes, AccountLinesAreAppended)
{
    const Variant passwd = {"vpasswd", ".qvbackup", "vpasswd_temp.txt", ClientRights, "", true, false, false};
    Variant shadow = passwd;
    shadow.map = "vshadow";
    const std::string addPasswd = "PasswdFile(u)", addShadow = "ShadowFile(u)";
    check(passwd, {{addPasswd, nullptr, "0", PasswdLine.c_str(), Made}});
    check(shadow, {{addShadow, nullptr, "0", ShadowLine.c_str(), Made}});
    const std::string copy = ".qvbackup", rights = ClientRights;
    check({{addPasswd, {{"vpasswd", PasswdLine}}, "0", {{"vpasswd", PasswdLine + PasswdLine}, {"vpasswd" + copy, PasswdLine}}, PasswdAdded, Untouched, {{"vpasswd", rights}}},
           {addShadow, {{"vshadow", "a:b"}}, "0", {{"vshadow", "a:b" + ShadowLine}, {"vshadow" + copy, "a:b"}}, ShadowAdded, Untouched, {{"vshadow", rights}}}});

    Account account("u");
    account.shadow.sp_min = account.shadow.sp_max = account.shadow.sp_warn = account.shadow.sp_inact = account.shadow.sp_lstchg = 7;
    account.shadow.sp_expire = 30000;
    account.shadow.sp_flag = 0;
    emptyWorld();
    EXPECT_EQ(TestManager(Files).Postfix_ShadowFile(&account), 0);
    EXPECT_EQ(get("vshadow"), std::string("u@d.com:") + Hash + ":19675::99999:::30000:0\n");
    EXPECT_STREQ(account.shadow.sp_pwdp, Hash);
    EXPECT_STREQ(account.password, "ROcJtYNV"); // the clear text is gone from the host's buffer
}

TEST_F(Mailboxes, AccountLinesThatCannotBeWrittenAreReported)
{
    // No field may hold a colon; a directory is no file to open.
    check({{"PasswdFile(u:u)", {}, "306", {{"vpasswd", ""}}, PasswdAdded}, {"ShadowFile(u:u)", {}, "306", {{"vshadow", ""}}, ShadowAdded},
           {"PasswdFile(u)", {{"vpasswd/", ""}}, "306", {}, PasswdAdded}, {"ShadowFile(u)", {{"vshadow/", ""}}, "306", {}, ShadowAdded}});
    for (const char* account : {"mail", "root"}) {
        emptyWorld();
        removeAccount(account);
        EXPECT_EQ(run(Files, "PasswdFile(u)") + run(Files, "ShadowFile(u)"), "306306");
        EXPECT_EQ(world(), World{});
    }
    emptyWorld();
    std::filesystem::remove("/etc/vmail");
    EXPECT_EQ(run(Files, "PasswdFile(u)") + run(Files, "ShadowFile(u)"), "306306");
    std::filesystem::create_directory("/etc/vmail");
    Account account("u");
    memset(account.password, 'p', 550); // more than crypt takes
    EXPECT_EQ(TestManager(Files).Postfix_ShadowFile(&account), 306);
    EXPECT_EQ(get("vshadow"), "");
}

// Runs the call in a process of its own and gives back the process.
template <class Call> static pid_t inProcess(Call call)
{
    const pid_t process = fork();
    if (process == 0)
        _exit(call() ? 0 : 1);
    return process;
}

static bool succeeded(pid_t process)
{
    int status = -1;
    return waitpid(process, &status, 0) == process && status == 0;
}

TEST_F(Mailboxes, AccountWritersWaitForTheLock)
{
    for (const auto& [file, call] : World{{"vpasswd", "PasswdFile(u)"}, {"vshadow", "ShadowFile(u)"}}) {
        put({{file, "a:b\n"}});
        const int holder = open(("/etc/vmail/" + file).c_str(), O_RDWR);
        struct flock lock {};
        lock.l_type = F_WRLCK;
        lock.l_start = 100000; // beyond what is there: the whole file counts, to any length
        ASSERT_EQ(fcntl(holder, F_SETLK, &lock), 0);
        const pid_t writer = inProcess([&] { return run(Files, call) == "0"; });
        usleep(200000);
        EXPECT_EQ(get(file), "a:b\n");
        EXPECT_EQ(waitpid(writer, nullptr, WNOHANG), 0) << "did not wait";
        close(holder); // lets go of the lock
        EXPECT_TRUE(succeeded(writer));
        EXPECT_NE(get(file), "a:b\n");
    }
}

TEST_F(Mailboxes, RacingWritersLeaveWholeLines)
{
    const std::string comment(20000, 'c'); // longer than one write: unlocked, lines would mix
    const auto write = [&] {
        int written = 0;
        for (int n = 0; n < 40; ++n) {
            Account account("u");
            account.passwd.pw_gecos = const_cast<char*>(comment.c_str());
            written += TestManager(Files).Postfix_PasswdFile(&account) == 0;
        }
        return written == 40;
    };
    const pid_t first = inProcess(write), second = inProcess(write);
    EXPECT_TRUE(succeeded(first) && succeeded(second));
    std::istringstream lines(get("vpasswd"));
    int whole = 0;
    for (std::string line; std::getline(lines, line);)
        whole += line == "u@d.com:x:1:2:" + comment + ":" + Home + ":/bin/false";
    EXPECT_EQ(whole, 80);
}

TEST_F(Mailboxes, MapTakesAndLosesLines)
{
    const Variant map = {"vmaps.txt", ".qvbackup", "vmaps-temp.txt", ClientRights, published("vmaps.txt"), true, true, false};
    const std::string add = "VMaps(u;d.com;AddUser)", remove = "VMaps(bob;d.com;RmvUser)", two = "a\n\n" + Route;
    const std::string capitals = "U@d.com\n" + Route;
    const std::vector<MapCase> cases = {
        {add, nullptr, "0", Route.c_str(), Made},
        {add, "a\n\n", "0", two.c_str(), Appended},
        {add, "", "0", Route.c_str(), Appended},
        {add, Route.c_str(), "0", Route.c_str(), Kept},
        {add, "x\nzu@d.com.au", "0", "x\nzu@d.com.au", Kept},
        {add, "U@d.com\n", "0", capitals.c_str(), Appended},
        {remove, nullptr, "1", nullptr, Kept},
        {remove, "bob@d\n\njimbob@e x\n@bob.com c\nkeep@e e/mail\nBob@d\n  \nx y/bob", "0", "keep@e e/mail\nBob@d\n  \n", Rewritten},
        {"VMaps(;;RmvUser)", "a\nb\n", "0", "", Rewritten},
        {"VMaps(bob;d.com;rmvUser)", "bob\n\n", "0", "bob\n\n", PublishedOnly},
        {"VMaps(bob;d.com;)", nullptr, "0", nullptr, PublishedOnly},
    };
    check(map, cases);
    sql("do 0");
    emptyWorld();
    EXPECT_EQ(run(SqlNoServer, add), "0"); // the tables do not matter here
    EXPECT_EQ(get("vmaps.txt"), Route);
    for (const char* account : {"mail", "root"}) {
        put({{"vmaps.txt", "bob\n"}});
        removeAccount(account);
        EXPECT_EQ(run(Files, remove), "0");
        EXPECT_EQ(get("vmaps.txt"), "");
    }
}

TEST_F(Mailboxes, CreationWritesEveryFile)
{
    const std::string plain = "CreateMailbox(d.com;u;-1)", limited = "CreateMailbox(d.com;u;50)";
    const std::string routed = traced("VMaps(u;d.com;AddUser)") + copied("vmaps.txt") + published("vmaps.txt");
    const std::string asked = traced("VQuota(u@d.com;50;AddQuota)") + copied("vquota.txt");
    const std::string quota = asked + published("vquota.txt");
    const World account = {{"vpasswd", PasswdLine}, {"vshadow", ShadowLine}, {"vmaps.txt", Route}};
    World withQuota = account;
    withQuota["vquota.txt"] = "u@d.com\t50\n";
    World withAgent = withQuota;
    withAgent["vpasswd.addbak"] = PasswdLine;
    const std::string entry = PasswdLine.substr(0, PasswdLine.size() - 1) + ":userdb_mail=mbox:" + Home + " userdb_quota_rule=*:storage=50B\n";
    withAgent["vpasswd"] = entry + "\n";
    const World on = {{"/etc/Quorvel.conf", "DovecotLDA \"yes\"\n"}, {Homes, ""}}, off = {{"/etc/Quorvel.conf", "DovecotLDA \"YES\"\n"}, {Homes, ""}};
    const World home = {{Home, "qvadmin 2777 mail's"}};
    check({
        {plain, on, "305", account, traced(plain) + PasswdAdded + ShadowAdded + routed, 0, home},
        {limited, off, "305", withQuota, traced(limited) + PasswdAdded + ShadowAdded + quota + routed, 0, home},
        {limited, on, "305", withAgent, traced(limited) + PasswdAdded + copied("vpasswd", ".addbak") + "quota entry =" + entry + ShadowAdded + quota + routed, 0,
         {{"vpasswd", "root 600 root's"}, {"vshadow", ClientRights}}},
        {plain, {{Home + "/", ""}}, "305", account, traced(plain) + PasswdAdded + ShadowAdded + routed, 0, home},
        {plain, {}, "1", account, traced(plain) + PasswdAdded + ShadowAdded + routed, 0},
        {limited, {{"vquota.txt", "uu@d.com\t5\n"}, {Homes, ""}}, "306", {{"vpasswd", PasswdLine}, {"vshadow", ShadowLine}, {"vquota.txt.qvbackup", "uu@d.com\t5\n"}},
         traced(limited) + PasswdAdded + ShadowAdded + asked, 1, {{Home, "missing"}}},
        {limited, {{"vpasswd/", ""}, {Homes, ""}}, "306", {}, traced(limited) + PasswdAdded, 306, {{Home, "missing"}}},
        {limited, {{"vshadow/", ""}, {Homes, ""}}, "306", {{"vpasswd", PasswdLine}}, traced(limited) + PasswdAdded + ShadowAdded, 306, {{Home, "missing"}}},
    });
}

TEST_F(Mailboxes, CreationWritesTwoRows)
{
    const auto row = [](const std::string& quota) { return std::string("u@d.com|") + Hash + "|" + quota + "\nu@d.com|u@d.com\n"; };
    const auto insert = [](const std::string& call, const std::string& quota) {
        return traced(call) + "query=insert into virtual_users values ('u@d.com','" + Hash + "'," + quota + ")\n";
    };
    const std::string plain = "CreateMailbox(d.com;u;-1)", limited = "CreateMailbox(d.com;u;50)", bad = "CreateMailbox(d.com;u;x)";
    const World tree = {{Homes, ""}, {"/etc/Quorvel.conf", "DovecotLDA \"yes\"\n"}}, home = {{Home, "qvadmin 2777 mail's"}};
    const World there = {{Homes, ""}, {"tables", "U@D.com|h|7\n"}}, none = {{Home, "missing"}};
    check({{limited, tree, "305", {{"tables", row("50")}}, insert(limited, "50"), Untouched, home},
           {plain, tree, "305", {{"tables", row("0")}}, insert(plain, "0"), Untouched, home},
           {limited, {}, "1", {{"tables", row("50")}}, insert(limited, "50")},
           {limited, there, "306", {}, insert(limited, "50"), Untouched, none},
           {bad, tree, "306", {}, insert(bad, "x"), Untouched, none}}, Sql);
    check({{limited, tree, "306", {}, insert(limited, "50"), Untouched, none}}, SqlReadOnly);
    sql("rename table virtual_aliases to a");
    EXPECT_EQ(run(Sql, limited), "305"); // the alias row's failure does not count
    sql("rename table a to virtual_aliases; delete from virtual_users");
    for (const char* account : {"mail", "qvadmin"}) {
        emptyWorld();
        put(tree);
        removeAccount(account);
        EXPECT_EQ(run(Sql, plain), "1");
    }
}

static const std::string Reloaded = "$ postfix reload\n";

TEST_F(Mailboxes, PasswordIsReplacedInItsLine)
{
    const std::string call = "UpdateMailbox(u@d.com;secret;UpdatePasswd)", start = "cp\ncp1\n", hash = Hash;
    const Variant shadow = {"vshadow", "", "vshadow_temp.txt", AdminRights, Reloaded, false, false, true};
    const std::string last = "u@d.com:" + hash + ":1::2:\n";
    check(shadow, {{call, nullptr, "1", nullptr, Kept, "cp\n"},
                   {call, "u@d.com:old:1::2:\n", "321", last.c_str(), Rewritten, start + last},
                   {call, "u@d.com:old:1::2:", "321", last.c_str(), Rewritten, start + last},
                   {call, "u@d.com.au:h\n\nzu@d.com:h:\n\nu@d.com:old:1::2:\nU@D.COM::\n\nu@d.com\nu@d.com:h\nu@d.com:h\n\nv:h:\n", "321",
                    ("u@d.com.au:h\n\nzu@d.com:h:\n\n" + last + "U@D.COM:" + hash + ":\nv:h:\n\n").c_str(), Rewritten, start + last + "U@D.COM:" + hash + ":\n"},
                   {call, "", "321", "\n", Rewritten, start},
                   {"UpdateMailbox(u@d.com;secret;updatePasswd)", "u@d.com:h:\n", std::to_string(Untouched), "u@d.com:h:\n", PublishedOnly}});
}

TEST_F(Mailboxes, TypeIsReplacedInBothFiles)
{
    const std::string mail = std::to_string(getgrnam("mail")->gr_gid), admin = std::to_string(getgrnam("qvadmin")->gr_gid);
    const std::string promote = "UpdateMailbox(u@d.com;admin;UpdateUserType)", demote = "UpdateMailbox(u@d.com;Admin;UpdateUserType)";
    const World before = {{"vpasswd", "\na:x:1:2:c\nzu@d.com.au:x:1:2:c:h:s:a:b\nu@d.com:x:1::c\nU@d.com:x:1:2:c\nu@d.com:x:1:2:c\n"},
                          {"vshadow", "\na:h:1\nzu@d.com.au:h:1:1:0\n\nU@d.com:h:1\nu@d.com:h:\n"}};
    const auto after = [&](const std::string& gid, const std::string& flag) {
        return World{{"vpasswd", "\na:x:1:2:c\nzu@d.com.au:x:1:" + gid + ":c:h:s:a:b\nu@d.com:x:1:" + gid + ":c\nU@d.com:x:1:2:c\nu@d.com:x:1:" + gid + ":c\n" + gid + "\n"},
                     {"vshadow", "\na:h:1\nzu@d.com.au:h:1:1:" + flag + "\n" + flag + "\nU@d.com:h:1\nu@d.com:h:" + flag + "\n" + flag + "\n"}};
    };
    const World rights = {{"vpasswd", AdminRights}, {"vshadow", AdminRights}};
    const World leftOver = {{"vpasswd", "a:b\n"}, {"vpasswd_temp.txt", "left\nover "}, {"vshadow", "c:d"}, {"vshadow_temp.txt", "left "}};
    check({{promote, before, "321", after(mail, "1"), traced(promote) + Reloaded, 321, rights},
           {demote, before, "321", after(admin, "0"), traced(demote) + Reloaded, 321, rights},
           {demote, leftOver, "321", {{"vpasswd", "left\nover a:b\n\n"}, {"vpasswd_temp.txt", "gone"}, {"vshadow", "left c:d\n"}, {"vshadow_temp.txt", "gone"}},
            traced(demote) + Reloaded, 321},
           {promote, {{"vshadow", "a:b\n"}}, "1", {}, traced(promote)},
           {promote, {{"vpasswd", "a:b\n"}}, "1", {{"vpasswd", "a:b\n\n"}}, traced(promote), Untouched, {{"vpasswd", AdminRights}}}});
}

TEST_F(Mailboxes, UpdateInTables)
{
    const std::string update = "UpdateMailbox(u@d.com;secret;UpdatePasswd)", type = "UpdateMailbox(u@d.com;admin;UpdateUserType)";
    check({{update, "u@d.com|h|1\nv@d.com|h|1\n", "321", std::string("u@d.com|") + Hash + "|1\nv@d.com|h|1\n",
            std::string("mysql is used\nUpdatePasswd\nquery=update virtual_users set password = '") + Hash + "' where email = 'u@d.com'\n"}});
    TestManager manager(Sql);
    EXPECT_EQ(run(manager, type), "321");
    EXPECT_EQ(happened, traced(type) + "mysql is used\n");
    EXPECT_EQ(openConnections(), 1); // stays open
    put({{"vshadow", "u@d.com:h:\n"}});
    for (const auto& [password, result] : World{{std::string(255, 'p'), "321"}, {std::string(5000, 'p'), "1"}})
        EXPECT_EQ(run(Files, "UpdateMailbox(u@d.com;" + password + ";UpdatePasswd)"), result);
}

TEST_F(Mailboxes, DeletionRemovesLinesRowsAndMail)
{
    const std::string call = "DeleteMailbox(u;d.com)", file = "/etc/vmail/";
    const std::string spool = "$ rm -r " + Home + "\n$ rm  /var/spool/vmail/d.com/mail/inbox/u@d.com\n";
    const std::string accounts = traced(call) + traced("DeleteMailboxUser(u@d.com;/etc/vmail/vpasswd)") + traced("DeleteMailboxUser(u@d.com;/etc/vmail/vshadow)");
    const std::string map = accounts + traced("VMaps(u@d.com;d.com;RmvUser)") + copied("vmaps.txt");
    const std::string alias = map + published("vmaps.txt") + traced("VAlias(u@d.com;;DeleteAlias)");
    const std::string quota = traced("VQuota(u@d.com;;DeleteQuota)") + copied("vquota.txt") + published("vquota.txt");
    const std::string group = "root 600 " + std::to_string(getgrnam("qvadmin")->gr_gid);
    const std::string inbox = "/var/spool/vmail/d.com/mail/inbox/u@d.com";
    const World before = {{"vpasswd", "zu@d.com:x\n\na:b\nu@d.com"}, {"vshadow", "u@d.com:h\n"}, {"vmaps.txt", Route + "a b\n"}, {"valias.txt", "zu@d.com a\nb u@d.com\n"},
                          {"vquota.txt", "u@d.com\t1\n"}, {Home + "/", ""}, {inbox, "mail"}, {"temp.txt", "left over"}};
    check({{call, before, "307", {{"vpasswd", "\na:b\n"}, {"vshadow", "\n"}, {"vmaps.txt", "a b\n"}, {"vmaps.txt.qvbackup", Route + "a b\n"}, {"valias.txt", "b u@d.com\n"},
            {"valias.txt.qvbackup", "zu@d.com a\nb u@d.com\n"}, {"vquota.txt", ""}, {"vquota.txt.qvbackup", "u@d.com\t1\n"}, {"temp.txt", "gone"}},
            alias + copied("valias.txt") + published("valias.txt") + quota + spool, 0, {{Home, "missing"}, {inbox, "missing"}, {"vpasswd", group}, {"vshadow", group}}},
           {call, {{"vmaps.txt", ""}}, "307", {{"vpasswd", ""}, {"vshadow", ""}, {"vmaps.txt.qvbackup", ""}}, alias + published("valias.txt") + spool, 329},
           {call, {{"vpasswd", "a\n"}}, "308", {{"vpasswd", "a\n\n"}, {"vshadow", ""}}, map, 1}});

    const std::string rows = "query=delete from virtual_users where email = 'u@d.com'\n", forwards = "query=delete from virtual_aliases where source = 'u@d.com'\n";
    check({{call, {{"tables", "u@d.com|h|1\nzu@d.com|h|1\nu@d.com|a\nb|u@d.com\n"}, {Home + "/", ""}, {inbox, "mail"}, {"vpasswd", "u@d.com:x\n"}}, "307",
            {{"tables", "zu@d.com|h|1\nb|u@d.com\n"}}, traced(call) + rows + forwards + spool, Untouched, {{Home, "missing"}, {inbox, "missing"}}}}, Sql);
    sql("rename table virtual_aliases to a");
    EXPECT_EQ(run(Sql, call), "308");
    EXPECT_EQ(happened, traced(call) + rows + forwards);
    sql("rename table a to virtual_aliases");
    emptyWorld();
    put({{"vpasswd", "u@d.com:x\na\n"}});
    removeAccount("qvadmin");
    EXPECT_EQ(run(Files, call), "308");
    EXPECT_EQ(get("vpasswd"), "a\n\n");
}

TEST_F(Mailboxes, QueriesReadTheAccounts)
{
    const World files = {{"vpasswd", "u@d.com:x\nv@d.com\nw@D.com:x\nx@sub.d.com:x\ny@d.com:\n\nd.com:x:\na@d.com b:x\n"},
                         {"vshadow", "u@d.com:h\n\nzv@d.com:h\nw@d.com\n"}};
    put(files);
    const World answers = {{"GetMailboxList(d.com)", "0 u v y d.com:x:"},   {"GetMailboxCount(d.com)", "4"},
                           {"GetMailboxList(x)", "0"}, {"GetMailboxCount(x)", "0"}, {"IsMailboxExists(U@D.com)", "true"}, {"IsMailboxExists(v@d.com)", "false"},
                           {"IsMailboxExists(w@d.com)", "true"}, {"IsMailboxExists(u@d)", "false"}};
    for (const auto& [call, answer] : answers) {
        EXPECT_EQ(run(Files, call), answer) << call;
        EXPECT_EQ(happened, traced(call));
    }
    EXPECT_EQ(world(), files);
    emptyWorld();
    EXPECT_EQ(run(Files, "GetMailboxList(d.com)") + run(Files, "GetMailboxCount(d.com)") + run(Files, "IsMailboxExists(u@d.com)"), "6363false");
    put({{"vshadow", "\n"}});
    EXPECT_EQ(run(Files, "IsMailboxExists()"), "true"); // an empty line's name, before all others

    const std::string rows = "u@d.com|h|1\nV@D.com|h|1\nw@sub.d.com|h|1\nbare|h|1\n", list = "query=select email from virtual_users where email like '%@d.com'\n";
    const std::string count = "query=select COUNT(email) from virtual_users where email like '%@d.com'\n", one = "query=select 1 from virtual_users where email = 'u@d.com'\n";
    check({{"GetMailboxList(d.com)", rows, "0 u V", rows, list}, {"GetMailboxList(d.com)", "", "0", "", list}, {"GetMailboxCount(d.com)", rows, "2", rows, count},
           {"IsMailboxExists(u@d.com)", rows, "true", rows, one}, {"IsMailboxExists(u@d.com)", "zu@d.com|h|1\n", "false", "zu@d.com|h|1\n", one}});
}
