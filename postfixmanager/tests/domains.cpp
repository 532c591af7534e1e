// The domain list, a domain's spool tree, domain creation and deletion.
#include "fixture.h"

#include <filesystem>

#include <crypt.h>

namespace fs = std::filesystem;

using Domains = InWorld;

static const std::string List = "/etc/VirtualHosts", ListCopy = List + ".qvbackup";
static const std::string Spool = "/var/spool/vmail", Dir = Spool + "/d.com";

// clang-format off
TEST_F(Domains, ListIsKeptInItsFile)
{
    const std::string add = "VHostFile(b.com;AddDomain)", remove = "VHostFile(b.com;RmvDomain)";
    check({List, ".qvbackup", List + "-temp.txt", "root 660 root's", "", true, true, false}, {
        {add, nullptr, "0", "b.com\n", Made},
        {add, "\nB.com\n\n", "0", "\nB.com\n\nb.com\n", Appended},
        {add, "a.com", "0", "a.comb.com\n", Appended},
        {add, "x\nab.com.au\n", "0", nullptr, Kept},
        {"VHostFile(;AddDomain)", "", "0", nullptr, Kept},
        {remove, nullptr, "1", nullptr, Kept},
        {remove, "ab.com\n\nb.com\nc.com\nb.com.au\nB.COM", "0", "c.com\nB.COM\n", Rewritten},
        {"VHostFile(b.com;addDomain)", "b.com\n\n", "0", nullptr, Kept},
    });
}

TEST_F(Domains, ListIsKeptInItsTable)
{
    const std::string add = "VHostFile(b.com;AddDomain)", remove = "VHostFile(b.com;RmvDomain)";
    const std::string copy = copied(List);
    const std::string insert = copy + "query=insert into  virtual_domains values ('b.com')";
    const std::string drop = copy + "query=delete from  virtual_domains where name = 'b.com'";
    check({{add, "ab.com\n", "0", "ab.com\nb.com\n", insert},
           {remove, "b.com\nab.com\nb.com\n", "0", "ab.com\n", drop},
           {"VHostFile(b.com;)", "b.com\n", "0", "b.com\n", copy}});
    check({{add, {{List, "a\n"}}, "0", {{ListCopy, "a\n"}, {"tables", "b.com\n"}}, insert}}, Sql);
}

static const World Tree = {{Dir, "qvadmin 775 mail's"}, {Dir + "/mail", "qvadmin 2775 mail's"},
                           {Dir + "/mail/inbox", "qvadmin 2777 mail's"},
                           {Dir + "/mail/home", "qvadmin 2775 mail's"},
                           {Dir + "/mail/home/oldaccounts", "qvadmin 2775 mail's"}};

TEST_F(Domains, SpoolTreeIsMadeAndMadeAgain)
{
    const std::string create = "CreateDomDir(d.com)";
    const World others = {{Dir + "/", ""}, {Dir + "/mail/home/", ""}}; // of another owner and mode
    for (const World& before : {World(), others})
        check({{create, before, "0", {}, "", Untouched, Tree}});
    for (const char* account : {"mail", "qvadmin"}) {
        emptyWorld();
        removeAccount(account);
        EXPECT_EQ(run(Files, create), "1");
        EXPECT_TRUE(fs::is_empty(Spool));
    }
}

static const std::string Create = "CreateMailDomain(d.com;u;secret;-1)";
static std::string listed()
{
    return traced("VHostFile(d.com;AddDomain)") + copied(List);
}
static std::string inserted()
{
    return listed() + "query=insert into  virtual_domains values ('d.com')\n";
}

TEST_F(Domains, CreationMakesListTreeAndFirstMailbox)
{
    const passwd* const owner = getpwnam("qvadmin");
    const std::string ids = std::to_string(owner->pw_uid) + ":" + std::to_string(owner->pw_gid);
    const std::string home = Dir + "/mail/home/u@d.com", hash = Hash;
    const World made = {{List, "d.com\n"}, {"vshadow", "u@d.com:" + hash + ":19675::99999::::1\n"},
                        {"vpasswd", "u@d.com:x:" + ids + ":u@d.com:" + home + ":/bin/false\n"},
                        {"vmaps.txt", "u@d.com d.com/mail/inbox/u@d.com\n"}};
    const World rows = {{"tables", "d.com\nu@d.com|" + hash + "|0\nu@d.com|u@d.com\n"}};
    World tree = Tree;
    tree[home] = "qvadmin 2777 mail's";
    const std::string mailbox = traced("CreateDomDir(d.com)") + traced("CreateMailbox(d.com;u;-1)");
    const std::string written = listed() + mailbox + traced("PasswdFile(u)") + copied("vpasswd") +
        traced("ShadowFile(u)") + copied("vshadow") + traced("VMaps(u;d.com;AddUser)") +
        copied("vmaps.txt") + published("vmaps.txt") + published("vmaps.txt");
    const std::string rowsMade = inserted() + mailbox + "query=insert into virtual_users values "
        "('u@d.com','" + hash + "',0)\n" + published("vmaps.txt");
    check({{Create, {}, "303", made, written, 305, tree}});
    EXPECT_EQ(run(Files, Create), "303"); // a domain that is listed is no error
    EXPECT_EQ(get(List), "d.com\n");
    check({{Create, {}, "303", rows, rowsMade, 305, tree}}, Sql);

    const std::string user(180, 'u'), password(500, 'p'); // long ones fit
    emptyWorld();
    EXPECT_EQ(run(Files, "CreateMailDomain(d.com;" + user + ";" + password + ";-1)"), "303");
    EXPECT_EQ(get("vshadow").substr(187, 34), crypt(password.c_str(), Hash));
}

TEST_F(Domains, CreationStopsAtTheStepThatFailsAndKeepsWhatIsDone)
{
    check({{Create, {}, "304", {}, inserted(), 1}}, SqlReadOnly);
    EXPECT_TRUE(fs::is_empty(Spool));
    fs::remove(Spool);
    EXPECT_EQ(run(Files, Create), "304");
    EXPECT_EQ(happened, traced(Create) + listed() + traced("CreateDomDir(d.com)"));
    EXPECT_EQ(world(), (World{{List, "d.com\n"}}));

    emptyWorld();
    put({{"vquota.txt", "uu@d.com\t7\n"}}); // counts as the mailbox's
    TestManager manager(Files);
    EXPECT_EQ(run(manager, "CreateMailDomain(d.com;u;secret;5)"), "304");
    EXPECT_EQ(manager.ErrNo, 306);
    EXPECT_EQ(happened.find("postmap"), std::string::npos);
    EXPECT_EQ(rights(Dir + "/mail/home/oldaccounts"), Tree.at(Dir + "/mail/home/oldaccounts"));
}

TEST_F(Domains, DeletionStripsEachFile)
{
    const std::string strip = "DeleteDomMailboxes(b.com;/etc/vmail/vquota.txt)";
    const std::string aliases = "DeleteDomAliases(b.com)";
    check({"vquota.txt", "", "temp.txt", "root 644 qvadmin's", "", false, false, false}, {
        {strip, nullptr, "1", nullptr, Kept},
        {strip, "u@b.com:x\n\nu@b.com b\nu@b.com\t1\nu@ab.com:x\nu@b.com.au b\nu@B.com:x\n"
                "u@b.com:x b\nu@b.com b:x\nu\tv@b.com x\nu@b.com b\tx\n@b.com x\nu@c.com:u@b.com",
         "0", "u@ab.com:x\nu@b.com.au b\nu@B.com:x\nu@b.com b:x\nu@c.com:u@b.com\n", Rewritten},
    });
    check({{strip, {{"vquota.txt", "u@b.com\t1\n"}, {"temp.txt/", ""}}, "0",
            {{"vquota.txt", ""}, {"temp.txt/", "gone"}}, ""}});
    const Variant aliasMap = {"valias.txt", "", "valias-temp.txt", "root 660 qvadmin's",
                              published("valias.txt"), false, false, false};
    check(aliasMap, {
        {aliases, nullptr, "0", nullptr, PublishedOnly},
        {aliases, "", "0", "\n", Rewritten},
        {aliases, "\nu@b.com x\n\nu@ab.com x\nb.comic@x y\nu@c.com v@b.com\n\nu@b.com\n", "0",
         "\nu@c.com v@b.com\n\n", Rewritten},
    });
}

TEST_F(Domains, DeletionRemovesAllThatIsTheDomains)
{
    const std::string call = "DeleteMailDomain(b.com)", mail = Spool + "/b.com";
    const std::string start = traced("VHostFile(b.com;RmvDomain)") + copied(List);
    const auto strip = [](const std::string& map) {
        return traced("DeleteDomMailboxes(b.com;/etc/vmail/" + map + ")");
    };
    const std::string end = "rm -r " + mail + "\n$ rm -r " + mail;
    const std::string aliases = traced("DeleteDomAliases(b.com)") + published("valias.txt") + end;
    const World gone = {{mail, "missing"}, {Spool, "root 760 root's"}};
    check({{call, {{List, "b.com\na\n"}, {"vpasswd", "u@b.com:x\nu@ab.com:x\n"},
                   {"vshadow", "u@b.com:h\n"}, {"vmaps.txt", "@b.com b\n"}, {mail + "/m/", ""},
                   {"vquota.txt", "u@b.com\t1\n"}, {"valias.txt", "u@ab.com x\n"}},
            "317", {{List, "a\n"}, {ListCopy, "b.com\na\n"}, {"vpasswd", "u@ab.com:x\n"},
                    {"vshadow", ""}, {"vmaps.txt", ""}, {"vquota.txt", ""}, {"valias.txt", ""}},
            start + strip("vpasswd") + strip("vshadow") + strip("vmaps.txt") +
            strip("vquota.txt") + aliases, 0, gone},
           {call, {{List, ""}}, "317", {{ListCopy, ""}}, start + aliases, 0},
           {call, {{"vpasswd", "u@b.com:x\n"}}, "0", {}, start, 1}});

    const std::string rows = "u@ab.com|h|1\nl@ab.com|b\n", queries = start +
        "query=delete from  virtual_domains where name = 'b.com'\n"
        "query=delete from virtual_users where email like '%@b.com'\n" +
        traced("DeleteDomAliases(b.com)") +
        "query=delete from virtual_aliases where source like '%@b.com'\n" + end;
    check({{call, {{"tables", rows + "b.com\nu@b.com|h|1\nl@b.com|a\n@b.com|u@b.com\n"},
                   {"vpasswd", "u@b.com:x\n"}, {mail + "/m/", ""}},
            "317", {{"tables", rows}}, queries, 0, gone}}, Sql);
    for (const std::string table : {"virtual_domains", "virtual_users", "virtual_aliases"}) {
        sql("rename table " + table + " to t");
        TestManager manager(Sql);
        EXPECT_EQ(run(manager, call), table == "virtual_users" ? "1" : "0");
        EXPECT_EQ(manager.ErrNo, table == "virtual_users" ? 0 : 1);
        EXPECT_EQ(happened.find("rm -r"), std::string::npos);
        sql("rename table t to " + table);
    }
}
