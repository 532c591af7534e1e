// The domain list, a domain's spool tree, domain creation and deletion.
#include "fixture.h"

#include <filesystem>

#include <crypt.h>

namespace fs = std::filesystem;

using Domains = InWorld;

static const char List[] = "/etc/VirtualHosts";

TEST_F(Domains, ListIsKeptInItsFile)
{
    const Variant list = {List, ".qvbackup", "/etc/VirtualHosts-temp.txt", "root 600 root's", "", true, true, false};
    const std::string add = "VHostFile(b.com;AddDomain)", remove = "VHostFile(b.com;RmvDomain)";
    check(list, {
                    {add, nullptr, "0", "b.com\n", Made},
                    {add, "a.com\n", "0", "a.com\nb.com\n", Appended},
                    {add, "b.com\na.com", "0", "b.com\na.com", Kept},
                    {add, "x\nab.com.au\n", "0", "x\nab.com.au\n", Kept},
                    {add, "B.com\n", "0", "B.com\nb.com\n", Appended},
                    {add, "a.com", "0", "a.comb.com\n", Appended},
                    {add, "\n\n", "0", "\n\nb.com\n", Appended},
                    {"VHostFile(;AddDomain)", "", "0", "", Kept},
                    {remove, nullptr, "1", nullptr, Kept},
                    {remove, "ab.com\n\nb.com\nc.com\nb.com.au\nB.COM", "0", "c.com\nB.COM\n", Rewritten},
                    {remove, "a\n\n", "0", "a\n", Rewritten},
                    {"VHostFile(;RmvDomain)", "a\nb\n", "0", "", Rewritten},
                    {"VHostFile(b.com;addDomain)", "b.com\n\n", "0", "b.com\n\n", Kept},
                });
}

TEST_F(Domains, ListIsKeptInItsTable)
{
    const std::string copy = copied(List), insert = copy + "query=insert into  virtual_domains values ('b.com')\n";
    const std::string drop = copy + "query=delete from  virtual_domains where name = 'b.com'\n";
    check({{"VHostFile(b.com;AddDomain)", "ab.com\n", "0", "ab.com\nb.com\n", insert},
           {"VHostFile(b.com;RmvDomain)", "b.com\nab.com\nb.com\n", "0", "ab.com\n", drop},
           {"VHostFile(b.com;)", "b.com\n", "0", "b.com\n", copy}});
    check({{"VHostFile(b.com;AddDomain)", "", "1", "", insert}, {"VHostFile(b.com;RmvDomain)", "b.com\n", "1", "b.com\n", drop}}, SqlReadOnly);
    put({{List, "b.com\n"}}); // the file is left alone, but copied
    run(Sql, "VHostFile(b.com;RmvDomain)");
    EXPECT_EQ(world(), (World{{List, "b.com\n"}, {"/etc/VirtualHosts.qvbackup", "b.com\n"}}));
}

static World spool()
{
    World tree;
    for (const auto& entry : fs::recursive_directory_iterator("/var/spool/vmail"))
        tree[entry.path().string().substr(17)] = rights(entry.path());
    return tree;
}

static const World Tree = {{"d.com", "qvadmin 775 mail's"},
                           {"d.com/mail", "qvadmin 2775 mail's"},
                           {"d.com/mail/inbox", "qvadmin 2777 mail's"},
                           {"d.com/mail/home", "qvadmin 2775 mail's"},
                           {"d.com/mail/home/oldaccounts", "qvadmin 2775 mail's"}};

TEST_F(Domains, SpoolTreeIsMadeAndMadeAgain)
{
    const std::string create = "CreateDomDir(d.com)";
    EXPECT_EQ(run(Files, create), "0");
    EXPECT_EQ(happened, traced(create));
    EXPECT_EQ(spool(), Tree);
    put({{"/var/spool/vmail/d.com/", ""}, {"/var/spool/vmail/d.com/mail/home/", ""}});
    EXPECT_EQ(run(Files, create), "0");
    EXPECT_EQ(spool(), Tree);

    fs::remove_all("/var/spool/vmail/d.com/mail");
    fs::create_symlink("/nowhere/at/all", "/var/spool/vmail/d.com/mail"); // there, but nothing fits below
    EXPECT_EQ(run(Files, create), "1");
    EXPECT_EQ(spool().size(), 2U);
    fs::remove_all("/var/spool/vmail");
    EXPECT_EQ(run(Files, create), "1");
    for (const char* account : {"mail", "qvadmin"}) {
        emptyWorld();
        removeAccount(account);
        EXPECT_EQ(run(Files, create), "1");
        EXPECT_EQ(spool(), World{});
    }
}

static const std::string Create = "CreateMailDomain(d.com;u;secret;-1)";
static const std::string Announced = traced(Create) + traced("VHostFile(d.com;AddDomain)") + copied(List);
static const std::string InsertDomain = "query=insert into  virtual_domains values ('d.com')\n";

TEST_F(Domains, CreationMakesListTreeAndFirstMailbox)
{
    const passwd* const owner = getpwnam("qvadmin");
    const std::string account = "u@d.com:x:" + std::to_string(owner->pw_uid) + ":" + std::to_string(owner->pw_gid) +
                                ":u@d.com:/var/spool/vmail/d.com/mail/home/u@d.com:/bin/false\n";
    const std::string shadow = std::string("u@d.com:") + Hash + ":19675::99999::::1\n";
    const std::string route = "u@d.com d.com/mail/inbox/u@d.com\n", publish = published("vmaps.txt");
    const std::string mailbox = traced("CreateDomDir(d.com)") + traced("CreateMailbox(d.com;u;-1)");
    const std::string steps = Announced + mailbox + traced("PasswdFile(u)") + copied("vpasswd") + traced("ShadowFile(u)") +
                              copied("vshadow") + traced("VMaps(u;d.com;AddUser)") + copied("vmaps.txt") + publish;
    const World made = {{List, "d.com\n"}, {"vpasswd", account}, {"vshadow", shadow}, {"vmaps.txt", route}};
    World twice = {{"vpasswd", account + account}, {"vshadow", shadow + shadow}};
    for (const auto& [name, content] : made)
        twice[name + ".qvbackup"] = content;
    check({{Create, {}, "303", made, steps + publish, 305}, {Create, made, "303", twice, steps, 305}});
    World tree = Tree;
    tree["d.com/mail/home/u@d.com"] = "qvadmin 2777 mail's";
    EXPECT_EQ(spool(), tree);

    const std::string row = std::string("'u@d.com','") + Hash + "',0";
    check({{Create, {}, "303", {{"tables", std::string("d.com\nu@d.com|") + Hash + "|0\nu@d.com|u@d.com\n"}},
            Announced + InsertDomain + mailbox + "query=insert into virtual_users values (" + row + ")\n" + publish, 305}}, Sql);
    EXPECT_EQ(spool(), tree);
}

TEST_F(Domains, CreationStopsAtTheStepThatFailsAndKeepsWhatIsDone)
{
    check({{Create, {}, "304", {}, Announced + InsertDomain, 1}}, SqlReadOnly);
    EXPECT_EQ(spool(), World{});
    fs::remove("/var/spool/vmail");
    EXPECT_EQ(run(Files, Create), "304");
    EXPECT_EQ(happened, Announced + traced("CreateDomDir(d.com)"));
    EXPECT_EQ(world(), (World{{List, "d.com\n"}}));

    emptyWorld();
    put({{"vquota.txt", "uu@d.com\t7\n"}}); // counts as the mailbox's
    TestManager manager(Files);
    EXPECT_EQ(run(manager, "CreateMailDomain(d.com;u;secret;5)"), "304");
    EXPECT_EQ(manager.ErrNo, 306);
    EXPECT_EQ(happened.find("postmap"), std::string::npos);
    EXPECT_EQ(spool(), Tree);
    EXPECT_NE(get("vshadow"), "");
}

TEST_F(Domains, LongNamesAndPasswordsFit)
{
    const std::string user(180, 'u'), domain = std::string(60, 'd') + ".com", password(500, 'p');
    EXPECT_EQ(run(Files, "CreateMailDomain(" + domain + ";" + user + ";" + password + ";-1)"), "303");
    const std::string hash = get("vshadow").substr(user.size() + 1 + domain.size() + 1, 34);
    EXPECT_EQ(hash, crypt(password.c_str(), hash.c_str()));
}

TEST_F(Domains, DeletionStripsEachFile)
{
    const std::string strip = "DeleteDomMailboxes(b.com;/etc/vmail/vquota.txt)";
    const std::string before = "u@b.com:x\n\nu@b.com b\nu@b.com\t1\nu@ab.com:x\nu@b.com.au b\nu@B.com:x\nu@b.com:x b\n"
                               "u@b.com b:x\nu\tv@b.com x\nu@b.com b\tx\n@b.com x\nu@c.com:u@b.com";
    const std::string after = "u@ab.com:x\nu@b.com.au b\nu@B.com:x\nu@b.com b:x\nu@c.com:u@b.com\n";
    check(Variant{"vquota.txt", "", "temp.txt", "root 644 qvadmin's", "", false, false, false},
          {{strip, nullptr, "1", nullptr, Kept}, {strip, before.c_str(), "0", after.c_str(), Rewritten}});

    const std::string aliases = "DeleteDomAliases(b.com)";
    const Variant map = {"valias.txt", "", "valias-temp.txt", "root 600 qvadmin's", published("valias.txt"), false, false, false};
    check(map, {{aliases, nullptr, "0", nullptr, PublishedOnly},
                {aliases, "", "0", "\n", Rewritten},
                {aliases, "u@b.com x\n\nu@ab.com x\nb.comic@x y\nu@c.com v@b.com\n\nu@b.com\n", "0", "u@c.com v@b.com\n\n", Rewritten},
                {aliases, "\nu@c.com x", "0", "\nu@c.com x\n", Rewritten}});
}

static std::string stripped(const std::string& file)
{
    return traced("DeleteDomMailboxes(b.com;/etc/vmail/" + file + ")");
}

TEST_F(Domains, DeletionRemovesAllThatIsTheDomains)
{
    const std::string call = "DeleteMailDomain(b.com)", drop = "rm -r /var/spool/vmail/b.com\n";
    const std::string start = traced(call) + traced("VHostFile(b.com;RmvDomain)") + copied(List);
    const std::string aliases = traced("DeleteDomAliases(b.com)"), end = published("valias.txt") + drop + "$ " + drop;
    const World accounts = {{"vpasswd", "u@b.com:x\nu@ab.com:x\n"}, {"vmaps.txt", "@b.com b.com/mail/inbox/u@b.com\n"}};
    World all = accounts, listed = accounts;
    all[List] = "b.com\na\n";
    all["valias.txt"] = "u@ab.com x\n";
    all["/var/spool/vmail/b.com/mail/inbox/u@b.com"] = "mail";
    listed[List] = "";
    check({{call, all, "317", {{List, "a\n"}, {"/etc/VirtualHosts.qvbackup", "b.com\na\n"}, {"vpasswd", "u@ab.com:x\n"}, {"vmaps.txt", ""}, {"valias.txt", ""}},
            start + stripped("vpasswd") + stripped("vmaps.txt") + aliases + end, 0, {{"/var/spool/vmail/b.com", "missing"}, {"/var/spool/vmail", "root 700 root's"}}},
           {call, accounts, "0", {}, start, 1},
           {call, {{List, ""}, {"vshadow", "u@b.com:h\n"}, {"vquota.txt", "u@b.com\t1\n"}}, "317", {{"/etc/VirtualHosts.qvbackup", ""}, {"vshadow", ""}, {"vquota.txt", ""}},
            start + stripped("vshadow") + stripped("vquota.txt") + aliases + end, 0}});

    const std::string rows = "b.com\nu@b.com|h|1\nu@ab.com|h|1\nl@b.com|a\n@b.com|u@b.com\nl@ab.com|u@b.com\n";
    const std::string queries = "query=delete from  virtual_domains where name = 'b.com'\n";
    const std::string users = "query=delete from virtual_users where email like '%@b.com'\n";
    const std::string forwards = "query=delete from virtual_aliases where source like '%@b.com'\n" + drop + "$ " + drop;
    check({{call, {{"tables", rows}, {"vpasswd", "u@b.com:x\n"}, {"/var/spool/vmail/b.com/mail/", ""}}, "317", {{"tables", "u@ab.com|h|1\nl@ab.com|u@b.com\n"}},
            start + queries + users + aliases + forwards, 0, {{"/var/spool/vmail/b.com", "missing"}}}}, Sql);
    sql("rename table virtual_users to u");
    TestManager manager(Sql);
    EXPECT_EQ(run(manager, call), "1");
    EXPECT_EQ(happened, start + queries + users);
    sql("rename table u to virtual_users; rename table virtual_aliases to a");
    EXPECT_EQ(run(manager, call), "0");
    EXPECT_EQ(manager.ErrNo, 1);
    EXPECT_EQ(happened.find("rm -r"), std::string::npos);
    sql("rename table a to virtual_aliases");
}
