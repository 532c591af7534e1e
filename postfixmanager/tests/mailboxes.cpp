// The account files, the mailbox map, mailbox creation, update, deletion and queries.
#include "fixture.h"

#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

using Mailboxes = InWorld;

static const std::string Homes = "/var/spool/vmail/d/mail/home/", Home = Homes + "u@d";
static const std::string Inbox = "/var/spool/vmail/d/mail/inbox/u@d";
static const std::string Route = "u@d d/mail/inbox/u@d\n";
static const std::string Passwd = "u@d:x:1:2:c:" + Home + ":/bin/false\n";
static const std::string Shadow = std::string("u@d:") + Hash + ":19675::99999::::1\n";
static const std::string ForMail = "root 644 mail's", ForAdmin = "root 644 qvadmin's";
static const std::string Any = std::to_string(Untouched);

static std::string groupId(const char* name)
{
    return std::to_string(getgrnam(name)->gr_gid);
}

// clang-format off
TEST_F(Mailboxes, AccountLinesAreAppended)
{
    for (const auto& [file, call] : World{{"vpasswd", "PasswdFile(u)"}, {"vshadow",
        "ShadowFile(u)"}}) {
        const std::string line = file == "vpasswd" ? Passwd : Shadow, step = "cp " + file;
        const World rights = {{file, ForMail}, {".", "root 700 root's"}};
        const std::string copy = file + ".qvbackup";
        check({{call, {}, "0", {{file, line}}, step, Untouched, rights},
               {call, {{file, line}}, "0", {{file, line + line}, {copy, line}}, step, Untouched,
                rights},
               {call, {{file, "a:b"}}, "0", {{file, "a:b" + line}, {copy, "a:b"}}, step},
               {call, {{file + "/", ""}}, "306", {}, step}});
    }
    Account account("u", "d");
    spwd& shadow = account.shadow;
    shadow.sp_min = shadow.sp_max = shadow.sp_warn = shadow.sp_inact = shadow.sp_lstchg = 7;
    shadow.sp_expire = 30000;
    shadow.sp_flag = 0;
    emptyWorld();
    EXPECT_EQ(TestManager(Files).Postfix_ShadowFile(&account), 0);
    EXPECT_EQ(get("vshadow"), std::string("u@d:") + Hash + ":19675::99999:::30000:0\n");
    EXPECT_STREQ(shadow.sp_pwdp, Hash);
    EXPECT_STREQ(account.password, "ROcJtYNV"); // the clear text is gone from the host's buffer
}

TEST_F(Mailboxes, AccountLinesThatCannotBeWrittenAreReported)
{
    EXPECT_EQ(run(Files, "PasswdFile(u:u)") + run(Files, "ShadowFile(u:u)"), "306306"); // no colons
    EXPECT_EQ(get("vpasswd") + get("vshadow"), "");
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
    Account account("u", "d");
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
    for (const auto& [file, call] : World{{"vpasswd", "PasswdFile(u)"}, {"vshadow",
        "ShadowFile(u)"}}) {
        put({{file, "a:b\n"}});
        const int holder = open(("/etc/vmail/" + file).c_str(), O_RDWR);
        struct flock lock {};
        lock.l_type = F_WRLCK;
        lock.l_start = 100000; // beyond what is there: the whole file counts, to any length
        ASSERT_EQ(fcntl(holder, F_SETLK, &lock), 0);
        const pid_t writer = inProcess([&, call = call] { return run(Files, call) == "0"; });
        usleep(200000);
        EXPECT_EQ(waitpid(writer, nullptr, WNOHANG), 0) << "did not wait";
        EXPECT_EQ(std::filesystem::file_size("/etc/vmail/" + file), 4U); // reading would unlock it
        close(holder); // lets go of the lock
        EXPECT_TRUE(succeeded(writer));
        EXPECT_NE(get(file), "a:b\n");
    }
}

TEST_F(Mailboxes, RacingWritersLeaveWholeLines)
{
    std::string comment(20000, 'c'), expected; // longer than one write: unlocked, lines would mix
    const auto write = [&] {
        bool written = true;
        for (int n = 0; n < 40; ++n) {
            Account account("u", "d");
            account.passwd.pw_gecos = comment.data();
            written = TestManager(Files).Postfix_PasswdFile(&account) == 0 && written;
        }
        return written;
    };
    for (int n = 0; n < 80; ++n)
        expected += "u@d:x:1:2:" + comment + ":" + Home + ":/bin/false\n";
    const pid_t first = inProcess(write), second = inProcess(write);
    EXPECT_TRUE(succeeded(first));
    EXPECT_TRUE(succeeded(second));
    EXPECT_TRUE(get("vpasswd") == expected);
}

TEST_F(Mailboxes, MapTakesAndLosesLines)
{
    const std::string add = "VMaps(u;d;AddUser)", remove = "VMaps(bob;d;RmvUser)";
    check(Variant{"vmaps.txt", ".qvbackup", "vmaps-temp.txt", ForMail, "publish vmaps.txt", true,
        true,
                  false}, {
        {add, nullptr, "0", Route.c_str(), Made},
        {add, "a\n\n", "0", ("a\n\n" + Route).c_str(), Appended},
        {add, "", "0", Route.c_str(), Appended},
        {add, Route.c_str(), "0", nullptr, Kept},
        {add, "x\nzu@d.au", "0", nullptr, Kept},
        {add, "U@d\n", "0", ("U@d\n" + Route).c_str(), Appended},
        {remove, nullptr, "1", nullptr, Kept},
        {remove, "bob@d\n\njimbob@e x\n@bob.com c\nkeep@e e\nBob@d\n  \nx y/bob", "0",
         "keep@e e\nBob@d\n  \n", Rewritten},
        {"VMaps(;;RmvUser)", "a\nb\n", "0", "", Rewritten},
        {"VMaps(bob;d;rmvUser)", "bob\n\n", "0", nullptr, PublishedOnly},
        {"VMaps(bob;d;)", nullptr, "0", nullptr, PublishedOnly},
    });
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

static const World Agent = {{"/etc/Quorvel.conf", "DovecotLDA \"yes\"\n"}, {Homes, ""}};
static const World HomeMade = {{Home, "qvadmin 2777 mail's"}}, NoHome = {{Home, "missing"}};

TEST_F(Mailboxes, CreationWritesEveryFile)
{
    const std::string plain = "CreateMailbox(d;u;-1)", limited = "CreateMailbox(d;u;50)";
    const std::string first = "PasswdFile(u)\ncp vpasswd\n", second = "ShadowFile(u)\ncp vshadow\n";
    const std::string quota = "VQuota(u@d;50;AddQuota)\ncp vquota.txt\n", publish =
        "publish vquota.txt\n";
    const std::string route = "VMaps(u;d;AddUser)\ncp vmaps.txt\npublish vmaps.txt\n";
    const std::string entry = Passwd.substr(0, Passwd.size() - 1) + ":userdb_mail=mbox:" + Home +
                              " userdb_quota_rule=*:storage=50B\n";
    const World account = {{"vpasswd", Passwd}, {"vshadow", Shadow}, {"vmaps.txt", Route}};
    World withQuota = account, withAgent, noAgent = Agent;
    withQuota["vquota.txt"] = "u@d\t50\n";
    withAgent = withQuota;
    withAgent["vpasswd"] = entry + "\n";
    withAgent["vpasswd.addbak"] = Passwd;
    noAgent["/etc/Quorvel.conf"] = "DovecotLDA \"YES\"\n";
    check({
        {plain, Agent, "305", account, first + second + route, 0, HomeMade},
        {plain, {{Home + "/", ""}}, "305", account, first + second + route, 0, HomeMade},
        {plain, {}, "1", account, first + second + route, 0},
        {limited, noAgent, "305", withQuota, first + second + quota + publish + route, 0, HomeMade},
        {limited, Agent, "305", withAgent, first + "cp vpasswd .addbak\nquota entry =" + entry +
         second +
         quota + publish + route, 0, {{"vpasswd", "root 600 root's"}, {"vshadow", ForMail}}},
        {limited, {{"vquota.txt", "uu@d\t5\n"}, {Homes, ""}}, "306",
         {{"vpasswd", Passwd}, {"vshadow", Shadow}, {"vquota.txt.qvbackup", "uu@d\t5\n"}},
         first + second + quota, 1, NoHome},
        {limited, {{"vpasswd/", ""}, {Homes, ""}}, "306", {}, first, 306, NoHome},
        {limited, {{"vshadow/", ""}, {Homes, ""}}, "306", {{"vpasswd", Passwd}}, first + second,
         306,
         NoHome},
    });
}

TEST_F(Mailboxes, CreationWritesTwoRows)
{
    const std::string hash = Hash;
    const std::string values = "query=insert into virtual_users values ('u@d','" + hash + "',";
    const std::string plain = "CreateMailbox(d;u;-1)", limited = "CreateMailbox(d;u;50)";
    const std::string row = "u@d|" + hash + "|", self = "\nu@d|u@d\n";
    World there = Agent;
    there["tables"] = "U@D|h|7\n";
    check({{limited, Agent, "305", {{"tables", row + "50" + self}}, values + "50)", Untouched,
        HomeMade},
           {plain, Agent, "305", {{"tables", row + "0" + self}}, values + "0)", Untouched,
            HomeMade},
           {limited, {}, "1", {{"tables", row + "50" + self}}, values + "50)"},
           {limited, there, "306", {}, values + "50)", Untouched, NoHome},
           {"CreateMailbox(d;u;x)", Agent, "306", {}, values + "x)", Untouched, NoHome}}, Sql);
    check({{limited, Agent, "306", {}, values + "50)", Untouched, NoHome}}, SqlReadOnly);
    sql("rename table virtual_aliases to a");
    EXPECT_EQ(run(Sql, limited), "305"); // the alias row's failure does not count
    sql("rename table a to virtual_aliases");
    for (const char* account : {"mail", "qvadmin"}) {
        emptyWorld();
        put(Agent);
        removeAccount(account);
        EXPECT_EQ(run(Sql, plain), "1");
    }
}

TEST_F(Mailboxes, PasswordIsReplacedInItsLine)
{
    const std::string call = "UpdateMailbox(u@d;secret;UpdatePasswd)", hash = Hash;
    const std::string last = "u@d:" + hash + ":1::2:\n", other = "U@D:" + hash + ":\n";
    const std::string others = "u@d.au:h\n\nzu@d:h:\n\n";
    check({"vshadow", "", "vshadow_temp.txt", ForAdmin, "$ postfix reload", false, false, true}, {
        {call, nullptr, "1", nullptr, Kept, "cp"},
        {call, "u@d:old:1::2:\n", "321", last.c_str(), Rewritten, "cp\ncp1\n" + last},
        {call, "u@d:old:1::2:", "321", last.c_str(), Rewritten, "cp\ncp1\n" + last},
        {call, (others + "u@d::1::2:\nU@D:o:\n\nu@d\nu@d:h\n\nv:h:\n").c_str(), "321",
         (others + last + other + "v:h:\n\n").c_str(), Rewritten, "cp\ncp1\n" + last + other},
        {call, "", "321", "\n", Rewritten, "cp\ncp1\n"},
        {"UpdateMailbox(u@d;secret;updatePasswd)", "u@d:h:\n", Any, nullptr, PublishedOnly},
    });
    for (const auto& [password, result] : World{{std::string(255, 'p'), "321"}, {std::string(256,
        'p'), "1"}})
        EXPECT_EQ(run(Files, "UpdateMailbox(u@d;" + password + ";UpdatePasswd)"), result);
    check({{call, "u@d|h|1\nv@d|h|1\n", "321", "u@d|" + hash + "|1\nv@d|h|1\n",
            "mysql is used\nUpdatePasswd\nquery=update virtual_users set password = '" + hash +
            "' where email = 'u@d'"}});
}

TEST_F(Mailboxes, TypeIsReplacedInBothFiles)
{
    const auto accounts = [](const std::string& gid, const std::string& end) {
        return World{{"vpasswd", "\na:x:1:2:c\nzu@d.au:x:1:" + gid + ":c:h:s:a:b\nU@d:x:1:2:c\n" +
                                     "u@d:x:1:" + gid + ":c\n" + end}};
    };
    const auto with = [](World accounts, const std::string& flag, const std::string& end) {
        accounts["vshadow"] = "\na:h:1\nzu@d.au:h:1:" + flag + "\nU@d:h:1\nu@d:h:" + flag +
                              "\n" + end;
        return accounts;
    };
    const std::string raise = "UpdateMailbox(u@d;admin;UpdateUserType)";
    const std::string lower = "UpdateMailbox(u@d;Admin;UpdateUserType)";
    const std::string mail = groupId("mail"), admin = groupId("qvadmin"), reload =
        "$ postfix reload";
    const World before = with(accounts("", ""), "7", ""), rights = {{"vpasswd", ForAdmin},
        {"vshadow", ForAdmin}};
    const World leftOver = {{"vpasswd", "a:b\n"}, {"vpasswd_temp.txt", "left\nover "},
                            {"vshadow", "c:d"}, {"vshadow_temp.txt", "left "}};
    check({{raise, before, "321", with(accounts(mail, mail + "\n"), "1", "1\n"), reload, 321,
        rights},
           {lower, before, "321", with(accounts(admin, admin + "\n"), "0", "0\n"), reload, 321,
            rights},
           {lower, leftOver, "321", {{"vpasswd", "left\nover a:b\n\n"}, {"vpasswd_temp.txt",
            "gone"},
                                     {"vshadow", "left c:d\n"}, {"vshadow_temp.txt", "gone"}},
                                      reload, 321},
           {raise, {{"vshadow", "a:b\n"}}, "1", {}, ""},
           {raise, {{"vpasswd", "a:b\n"}}, "1", {{"vpasswd", "a:b\n\n"}}, ""}});
}

TEST_F(Mailboxes, DeletionRemovesLinesRowsAndMail)
{
    const std::string call = "DeleteMailbox(u;d)", drop = "DeleteMailboxUser(u@d;/etc/vmail/";
    const std::string spool = "$ rm -r " + Home + "\n$ rm  " + Inbox + "\n";
    const std::string map = drop + "vpasswd)\n" + drop + "vshadow)\n"
                            "VMaps(u@d;d;RmvUser)\ncp vmaps.txt\n";
    const std::string alias = map + "publish vmaps.txt\nVAlias(u@d;;DeleteAlias)\n";
    const std::string quota = "VQuota(u@d;;DeleteQuota)\ncp vquota.txt\npublish vquota.txt\n";
    const World mail = {{Home + "/", ""}, {Inbox, "mail"}}, noMail = {{Home, "missing"}, {Inbox,
        "missing"}};
    const World maps = {{"vmaps.txt", Route + "a b\n"}, {"vquota.txt", "u@d\t1\n"},
                        {"valias.txt", "zu@d a\nb u@d\n"}};
    World before = {{"vpasswd", "zu@d:x\n\na:b\nu@d"}, {"vshadow", "u@d:h\n"},
                    {"temp.txt", "left over"}};
    World after = {{"vpasswd", "\na:b\n"}, {"vshadow", "\n"}, {"temp.txt", "gone"}, {"vmaps.txt",
        "a b\n"},
                   {"valias.txt", "b u@d\n"}, {"vquota.txt", ""}}, rights = noMail;
    for (const auto& [name, content] : maps)
        after[name + ".qvbackup"] = content;
    before.insert(maps.begin(), maps.end());
    before.insert(mail.begin(), mail.end());
    rights["vpasswd"] = rights["vshadow"] = "root 600 " + groupId("qvadmin");
    check({{call, before, "307", after, alias + "cp valias.txt\npublish valias.txt\n" + quota +
        spool, 0, rights},
           {call, {{"vmaps.txt", ""}}, "307", {{"vpasswd", ""}, {"vshadow", ""},
            {"vmaps.txt.qvbackup", ""}},
            alias + "publish valias.txt\n" + spool, 329},
           {call, {{"vpasswd", "a\n"}}, "308", {{"vpasswd", "a\n\n"}, {"vshadow", ""}}, map, 1}});

    const std::string queries = "query=delete from virtual_users where email = 'u@d'\n"
                                "query=delete from virtual_aliases where source = 'u@d'\n";
    before = mail;
    before["tables"] = "u@d|h|1\nzu@d|h|1\nu@d|a\nb|u@d\n";
    before["vpasswd"] = "u@d:x\n";
    check({{call, before, "307", {{"tables", "zu@d|h|1\nb|u@d\n"}}, queries + spool, Untouched,
            noMail}}, Sql);
    sql("rename table virtual_aliases to a");
    EXPECT_EQ(run(Sql, call), "308");
    EXPECT_EQ(happened, traced(call) + queries);
    sql("rename table a to virtual_aliases");
    emptyWorld();
    put({{"vpasswd", "u@d:x\na\n"}});
    removeAccount("qvadmin");
    EXPECT_EQ(run(Files, call), "308");
    EXPECT_EQ(get("vpasswd"), "a\n\n");
    EXPECT_EQ(run(Files, "UpdateMailbox(u@d;x;UpdateUserType)"), "1");
}

TEST_F(Mailboxes, QueriesReadTheAccounts)
{
    const std::string list = "GetMailboxList(d)", count = "GetMailboxCount(d)";
    const World files = {{"vpasswd", "u@d:x\nv@d\nw@D:x\nx@sub.d:x\ny@d:\n\nd:x:\n"
                                     "a@d b:x\n"},
                         {"vshadow", "u@d:h\n\nzv@d:h\nw@d\n"}};
    put(files);
    for (const auto& [call, answer] :
         World{{list, "0 u v y d:x:"}, {count, "4"}, {"GetMailboxList(x)", "0"},
               {"GetMailboxCount(x)", "0"}, {"IsMailboxExists(U@D)", "true"},
               {"IsMailboxExists(w@d)", "true"}, {"IsMailboxExists(v@d)", "false"}}) {
        EXPECT_EQ(run(Files, call), answer) << call;
        EXPECT_EQ(happened, traced(call));
    }
    EXPECT_EQ(world(), files);
    emptyWorld();
    EXPECT_EQ(run(Files, list) + run(Files, count) + run(Files, "IsMailboxExists(u@d)"),
        "6363false");
    put({{"vshadow", "\n"}});
    EXPECT_EQ(run(Files, "IsMailboxExists()"), "true"); // an empty line's name, before all others

    const std::string rows = "u@d|h|1\nV@D|h|1\nw@sub.d|h|1\nbare|h|1\n", other = "zu@d|h|1\n";
    const std::string from = " from virtual_users where email like '%@d'";
    const std::string one = "query=select 1 from virtual_users where email = 'u@d'";
    check({{list, rows, "0 u V", rows, "query=select email" + from},
           {list, "", "0", "", "query=select email" + from},
           {count, rows, "2", rows, "query=select COUNT(email)" + from},
           {"IsMailboxExists(u@d)", rows, "true", rows, one},
           {"IsMailboxExists(u@d)", other, "false", other, one}});
}
