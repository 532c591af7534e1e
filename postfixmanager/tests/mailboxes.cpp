// The account files, the mailbox map, mailbox creation, update, deletion and queries.
#include "fixture.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

using Mailboxes = InWorld;

static const std::string Homes = "/var/spool/vmail/d/mail/home/", Home = Homes + "u@d";
static const std::string Inbox = "/var/spool/vmail/d/mail/inbox/u@d";
static const std::string Route = "u@d d/mail/inbox/u@d\n", HashText = Hash;
static const std::string Passwd = "u@d:x:1:2:c:/home/u@d:/bin/false\n";
static const std::string Shadow = "u@d:" + HashText + ":19675::99999::::1\n";
static const std::string ForMail = "root 644 mail's", ForAdmin = "root 644 qvadmin's";
static const World AccountWriters = {{"vpasswd", "PasswdFile(u)"}, {"vshadow", "ShadowFile(u)"}};

// clang-format off
TEST_F(Mailboxes, AccountLinesAreAppended)
{
    for (const auto& [file, call] : AccountWriters) {
        const std::string line = file == "vpasswd" ? Passwd : Shadow, step = copied(file);
        const World rights = {{file, ForMail}, {".", "root 760 root's"}};
        check({{call, {}, "0", {{file, line}}, step, Untouched, rights},
               {call, {{file, "a:b"}}, "0", {{file, "a:b" + line}, {file + ".qvbackup", "a:b"}},
                step, Untouched, rights},
               {call, {{file + "/", ""}}, "306", {}, step}});
    }
    emptyWorld();
    Account account("u", "d");
    spwd& shadow = account.shadow;
    shadow.sp_min = shadow.sp_max = shadow.sp_warn = shadow.sp_inact = shadow.sp_lstchg = 7;
    shadow.sp_expire = 30000;
    EXPECT_EQ(TestManager(Files).Postfix_ShadowFile(&account), 0);
    EXPECT_EQ(get("vshadow"), "u@d:" + HashText + ":19675::99999:::30000:1\n");
    EXPECT_EQ(shadow.sp_pwdp, HashText);
    EXPECT_STREQ(account.password, "ROcJtYNV"); // the clear text is gone from the host's buffer
}

TEST_F(Mailboxes, AccountLinesThatCannotBeWrittenAreReported)
{
    Account account("u", "d");
    std::string(550, 'p').copy(account.password, 550); // more than crypt takes
    EXPECT_EQ(TestManager(Files).Postfix_ShadowFile(&account), 306);
    for (const auto& [file, call] : AccountWriters) {
        EXPECT_EQ(run(Files, file == "vpasswd" ? "PasswdFile(u:u)" : "ShadowFile(u:u)"), "306");
        EXPECT_EQ(get(file), "");
        for (const char* missing : {"mail", "root"}) {
            emptyWorld();
            removeAccount(missing);
            EXPECT_EQ(run(Files, call), "306");
            EXPECT_EQ(world(), World{});
        }
    }
}

TEST_F(Mailboxes, AccountWritersWaitForTheLock)
{
    for (const auto& [file, call] : AccountWriters) {
        put({{file, "a:b\n"}});
        const int holder = open(("/etc/vmail/" + file).c_str(), O_RDWR | O_APPEND);
        lseek(holder, file == "vpasswd" ? 0 : 100000, SEEK_SET); // any byte locks the whole file
        ASSERT_EQ(lockf(holder, F_TLOCK, 1), 0);
        const pid_t writer = fork();
        if (writer == 0)
            _exit(run(Files, call) == "0" ? 0 : 1);
        usleep(200000);
        EXPECT_EQ(waitpid(writer, nullptr, WNOHANG), 0) << "did not wait";
        // nothing reads the file here: to close any descriptor of it would let go of the lock
        write(holder, "c:d\n", 4);
        close(holder); // lets go of the lock
        int status = -1;
        EXPECT_EQ(waitpid(writer, &status, 0), writer);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(get(file), "a:b\nc:d\n" + (file == "vpasswd" ? Passwd : Shadow));
    }
}

TEST_F(Mailboxes, MapTakesAndLosesLines)
{
    const std::string add = "VMaps(u;d;AddUser)", remove = "VMaps(bob;d;RmvUser)";
    const Variant map = {"vmaps.txt", ".qvbackup", "vmaps-temp.txt", ForMail, published("vmaps.txt"),
                         true, true, false};
    check(map, {
        {add, nullptr, "0", Route.c_str(), Made},
        {add, "u\n\nU@d", "0", ("u\n\nU@d" + Route).c_str(), Appended},
        {add, "x\nzu@d.au", "0", nullptr, Kept},
        {remove, nullptr, "1", nullptr, Kept},
        {remove, "bob@d\n\njimbob@e x\n@bob.com c\nkeep@e e\nBob@d\n  \nx y/bob", "0",
         "keep@e e\nBob@d\n  \n", Rewritten},
        {"VMaps(bob;d;rmvUser)", "bob\n\n", "0", nullptr, PublishedOnly},
    });
    EXPECT_EQ(run(SqlNoServer, add), "0"); // the tables do not matter here
    EXPECT_EQ(get("vmaps.txt"), "bob\n\n" + Route);
}

static const World Agent = {{"/etc/Quorvel.conf", "DovecotLDA \"yes\"\n"}, {Homes, ""}};
static const World HomeMade = {{Home, "qvadmin 2777 mail's"}}, NoHome = {{Home, "missing"}};
static const std::string Unlimited = "CreateMailbox(d;u;-1)", Limited = "CreateMailbox(d;u;50)";

TEST_F(Mailboxes, CreationWritesEveryFile)
{
    const std::string first = traced("PasswdFile(u)") + copied("vpasswd");
    const std::string second = traced("ShadowFile(u)") + copied("vshadow");
    const std::string quota = second + traced("VQuota(u@d;50;AddQuota)") + copied("vquota.txt");
    const std::string route =
        traced("VMaps(u;d;AddUser)") + copied("vmaps.txt") + published("vmaps.txt");
    const std::string unlimited = first + second + route, end = published("vquota.txt") + route;
    const std::string entry = Passwd.substr(0, Passwd.size() - 1) + ":userdb_mail=mbox:/home/u@d"
                              " userdb_quota_rule=*:storage=50B\n";
    const World account = {{"vpasswd", Passwd}, {"vshadow", Shadow}, {"vmaps.txt", Route}};
    const World noAgent = {{"/etc/Quorvel.conf", "DovecotLDA \"YES\"\n"}, {Home + "/", ""}};
    World withQuota = account;
    withQuota["vquota.txt"] = "u@d\t50\n";
    World withAgent = withQuota;
    withAgent["vpasswd"] = entry + "\n";
    withAgent["vpasswd.addbak"] = Passwd;
    check({
        {Unlimited, Agent, "305", account, unlimited, 0, HomeMade},
        {Unlimited, {}, "1", account, unlimited, 0},
        {Limited, noAgent, "305", withQuota, first + quota + end, 0, HomeMade},
        {Limited, Agent, "305", withAgent,
         first + copied("vpasswd", ".addbak") + "quota entry =" + entry + quota + end, 0,
         {{"vpasswd", "root 660 root's"}, {"vshadow", ForMail}}},
        {"CreateMailbox(d;u;-10)", {{"vquota.txt", "uu@d\t5\n"}, {Homes, ""}}, "306",
         {{"vpasswd", Passwd}, {"vshadow", Shadow}, {"vquota.txt.qvbackup", "uu@d\t5\n"}},
         first + second + traced("VQuota(u@d;-10;AddQuota)") + copied("vquota.txt"), 1, NoHome},
        {Limited, {{"vpasswd/", ""}, {Homes, ""}}, "306", {}, first, 306, NoHome},
        {Limited, {{"vshadow/", ""}, {Homes, ""}}, "306", {{"vpasswd", Passwd}}, first + second,
         306, NoHome},
    });
}

TEST_F(Mailboxes, CreationWritesTwoRows)
{
    const std::string insert = "query=insert into virtual_users values ('u@d','" + HashText + "',";
    const std::string row = "u@d|" + HashText + "|", self = "\nu@d|u@d\n";
    const World rows = {{"tables", row + "50" + self}};
    World taken = Agent;
    taken["tables"] = "U@D|h|7\n";
    check({{Limited, Agent, "305", rows, insert + "50)", Untouched, HomeMade},
           {Unlimited, Agent, "305", {{"tables", row + "0" + self}}, insert + "0)", Untouched,
            HomeMade},
           {"CreateMailbox(d;u;-10)", {}, "1", {{"tables", row + "-10" + self}}, insert + "-10)"},
           {Limited, taken, "306", {}, insert + "50)", Untouched, NoHome}}, Sql);
    sql("rename table virtual_aliases to a"); // the alias row's failure does not count
    Account account("v", "d");
    EXPECT_EQ(TestManager(Sql).Postfix_CreateMailbox(&account, "d", "v", "50"), 305);
    EXPECT_EQ(account.shadow.sp_pwdp, account.password); // the host's record stays as it is
    EXPECT_EQ(account.shadow.sp_lstchg, 0);
    sql("rename table a to virtual_aliases");
    removeAccount("qvadmin");
    EXPECT_EQ(run(Sql, "CreateMailbox(d;w;50)"), "1");
}

TEST_F(Mailboxes, PasswordIsReplacedInItsLine)
{
    const std::string call = "UpdateMailbox(u@d;secret;UpdatePasswd)";
    const std::string mine = "u@d:" + HashText + ":1::2:\n", other = "U@D:" + HashText + ":\n";
    const std::string others = "u@d.au:h\n\nzu@d:h:\n\n";
    check({"vshadow", "", "vshadow_temp.txt", ForAdmin, "$ postfix reload", false, false, true}, {
        {call, nullptr, "1", nullptr, Kept, "cp"},
        {call, "u@d:old:1::2:", "321", mine.c_str(), Rewritten, "cp\ncp1\n" + mine},
        {call, (others + "u@d::1::2:\nU@D:o:\n\nu@d\nu@d:h\n\nv:h:\n").c_str(), "321",
         (others + mine + other + "v:h:\n\n").c_str(), Rewritten, "cp\ncp1\n" + mine + other},
        {"UpdateMailbox(u@d;secret;updatePasswd)", "u@d:h:\n", std::to_string(Untouched), nullptr,
         PublishedOnly},
    });
    for (const auto& [length, result] : std::map<int, std::string>{{255, "321"}, {256, "1"}})
        EXPECT_EQ(run(Files, "UpdateMailbox(u@d;" + std::string(length, 'p') + ";UpdatePasswd)"),
                  result);
    check({{call, "u@d|h|1\nv@d|h|1\n", "321", "u@d|" + HashText + "|1\nv@d|h|1\n",
            "mysql is used\nUpdatePasswd\nquery=update virtual_users set password = '" + HashText +
            "' where email = 'u@d'"}});
}

TEST_F(Mailboxes, TypeIsReplacedInBothFiles)
{
    const auto files = [](const std::string& gid, const std::string& flag, bool after) {
        return World{{"vpasswd", "\na:x:1:2:c\nzu@d.au:x:1:" + gid + ":c:h:s:a:b\nU@d:x:1:2:c\n"
                                 "u@d:x:1:" + gid + ":c\n" + (after ? gid + "\n" : "")},
                     {"vshadow", "\na:h:1\nzu@d.au:h:1:" + flag + "\nU@d:h:1\nu@d:h:" + flag +
                                 "\n" + (after ? flag + "\n" : "")}};
    };
    const std::string raise = "UpdateMailbox(u@d;admin;UpdateUserType)";
    const std::string lower = "UpdateMailbox(u@d;Admin;UpdateUserType)", end = "$ postfix reload";
    const std::string mail = std::to_string(getgrnam("mail")->gr_gid);
    const std::string admin = std::to_string(getgrnam("qvadmin")->gr_gid);
    const World before = files("", "7", false);
    const World rights = {{"vpasswd", ForAdmin}, {"vshadow", ForAdmin}};
    check({{raise, before, "321", files(mail, "1", true), end, 321, rights},
           {lower, before, "321", files(admin, "0", true), end, 321, rights},
           {lower, {{"vpasswd", "a:b\n"}, {"vpasswd_temp.txt", "left "}, {"vshadow", ""}}, "321",
            {{"vpasswd", "left a:b\n\n"}, {"vpasswd_temp.txt", "gone"}, {"vshadow", "\n"}},
            end, 321},
           {raise, {{"vshadow", "a:b\n"}}, "1", {}, ""},
           {raise, {{"vpasswd", "a:b\n"}}, "1", {{"vpasswd", "a:b\n\n"}}, ""}});
}

TEST_F(Mailboxes, DeletionRemovesLinesRowsAndMail)
{
    const std::string call = "DeleteMailbox(u;d)";
    const std::string spool = "$ rm -r " + Home + "\n$ rm  " + Inbox + "\n";
    const std::string map = traced("DeleteMailboxUser(u@d;/etc/vmail/vpasswd)") +
                            traced("DeleteMailboxUser(u@d;/etc/vmail/vshadow)") +
                            traced("VMaps(u@d;d;RmvUser)") + copied("vmaps.txt");
    const std::string alias = map + published("vmaps.txt") + traced("VAlias(u@d;;DeleteAlias)");
    const std::string quota = published("valias.txt") + traced("VQuota(u@d;;DeleteQuota)") +
                              copied("vquota.txt") + published("vquota.txt");
    const World before = {{"vpasswd", "zu@d:x\n\na:b\nu@d"}, {"vshadow", "u@d:h\n"},
                          {"temp.txt", "left over"}, {"vmaps.txt", Route + "a b\n"},
                          {"valias.txt", "zu@d a\nb u@d\n"}, {"vquota.txt", "u@d\t1\n"},
                          {Home + "/", ""}, {Inbox, "mail"}};
    World after = {{"vpasswd", "\na:b\n"}, {"vshadow", "\n"}, {"temp.txt", "gone"},
                   {"vmaps.txt", "a b\n"}, {"valias.txt", "b u@d\n"}, {"vquota.txt", ""}};
    for (const char* copied : {"vmaps.txt", "valias.txt", "vquota.txt"})
        after[std::string(copied) + ".qvbackup"] = before.at(copied);
    const std::string admins = std::to_string(getgrnam("qvadmin")->gr_gid);
    const World noMail = {{Home, "missing"}, {Inbox, "missing"}};
    const World rights = {{"vpasswd", "root 600 " + admins}, // the left-over work file's mode
                          {"vshadow", "root 660 " + admins}, {Home, "missing"}};
    check({{call, before, "307", after, alias + copied("valias.txt") + quota + spool, 0, rights},
           {call, {{"vmaps.txt", ""}}, "307",
            {{"vpasswd", ""}, {"vshadow", ""}, {"vmaps.txt.qvbackup", ""}},
            alias + published("valias.txt") + spool, 329},
           {call, {{"vpasswd", "a\n"}}, "308", {{"vpasswd", "a\n\n"}, {"vshadow", ""}}, map, 1}});

    const std::string queries = "query=delete from virtual_users where email = 'u@d'\n"
                                "query=delete from virtual_aliases where source = 'u@d'\n";
    check({{call, {{"tables", "u@d|h|1\nzu@d|h|1\nu@d|a\nb|u@d\n"}, {"vpasswd", "u@d:x\n"},
                   {Home + "/", ""}, {Inbox, "mail"}}, "307",
            {{"tables", "zu@d|h|1\nb|u@d\n"}}, queries + spool, Untouched, noMail}}, Sql);
    sql("rename table virtual_aliases to a");
    EXPECT_EQ(run(Sql, call), "308");
    EXPECT_EQ(happened, traced(call) + queries);
    sql("rename table a to virtual_aliases");
    removeAccount("qvadmin");
    EXPECT_EQ(run(Files, call), "308");
    EXPECT_EQ(run(Files, "UpdateMailbox(u@d;x;UpdateUserType)"), "1");
}

TEST_F(Mailboxes, QueriesReadTheAccounts)
{
    const std::string list = "GetMailboxList(d)", count = "GetMailboxCount(d)";
    EXPECT_EQ(run(Files, list) + run(Files, count) + run(Files, "IsMailboxExists(u@d)"),
              "6363false");
    const World files = {{"vpasswd", "u@d:x\nv@d\nw@D:x\nx@sub.d:x\nv@d:\n\nd:x:\na@d b:x\n"},
                         {"vshadow", "\nu@d:h\n\nzv@d:h\nw@d\n"}};
    put(files);
    for (const auto& [call, answer] :
         World{{list, "0 u v v d:x:"}, {count, "4"}, {"GetMailboxList(x)", "0"},
               {"GetMailboxList()", "0  "}, {"GetMailboxCount()", "0"}, // two empty lines
               {"IsMailboxExists(U@D)", "true"}, {"IsMailboxExists(w@d)", "true"},
               {"IsMailboxExists()", "true"}, // the first, empty line has a name
               {"IsMailboxExists(v@d)", "false"}}) {
        EXPECT_EQ(run(Files, call), answer) << call;
        EXPECT_EQ(happened, traced(call));
    }
    EXPECT_EQ(world(), files);

    const std::string rows = "u@d|h|1\nV@D|h|1\nw@sub.d|h|1\nbare|h|1\n", other = "zu@d|h|1\n";
    const std::string from = " from virtual_users where email like '%@d'";
    const std::string one = "query=select 1 from virtual_users where email = 'u@d'";
    check({{list, rows, "0 u V", rows, "query=select email" + from},
           {count, rows, "2", rows, "query=select COUNT(email)" + from},
           {"IsMailboxExists(u@d)", rows, "true", rows, one},
           {"IsMailboxExists(u@d)", other, "false", other, one}});
}
