// Transactions: what they publish, what they refuse, and that nothing is seen of them before.
#include "PostfixTransaction.h"
#include "fixture.h"

#include <cstring>
#include <filesystem>
#include <functional>
#include <sstream>

#include <pwd.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

static const std::string List = "/etc/VirtualHosts";
static const std::string Homes = "/var/spool/vmail/b.com/mail/home/";
static const World EmptyMaps = {
    {"vpasswd", ""}, {"vshadow", ""}, {"vmaps.txt", ""}, {"valias.txt", ""}, {"vquota.txt", ""}};

// An account as it stands in vpasswd and in vshadow.
static std::string account(const std::string& address)
{
    return address + ":x:1:2:c:/home:/bin/false\n";
}
static std::string shadow(const std::string& address, const std::string& flag = "1")
{
    return address + ":" + Hash + ":19675::99999::::" + flag + "\n";
}

// Empty maps, and the real postmap, which would wait while main.cf is new.
struct Transactions : testing::Test {
    void SetUp() override
    {
        emptyWorld();
        std::system("ln -sf /usr/sbin/postmap /run/bin/postmap; : > /etc/postfix/main.cf; touch -d "
                    "@1 /etc/postfix/main.cf");
        place({{List, ""}});
        place(EmptyMaps);
    }
    void TearDown() override { std::system("ln -sf /bin/true /run/bin/postmap"); }

    // As root's: postmap works as a map's owner.
    static void place(const World& files)
    {
        put(files);
        std::system("chown root: /etc/VirtualHosts /etc/vmail/v*; chmod 644 /etc/VirtualHosts "
                    "/etc/vmail/v*");
    }

    // The world without its tables, and without what transactions keep between them: an empty
    // directory, which is the lock.
    static World shown()
    {
        World all = world();
        all.erase("transaction/");
        all.erase(List + "-transaction/");
        for (const char* map : {"vmaps.txt", "valias.txt", "vquota.txt"})
            all.erase(map + std::string(".db"));
        return all;
    }

    // Why a transaction that does this is refused; the world is as it was.
    std::string refusal(const std::function<void()>& work)
    {
        const World before = shown();
        EXPECT_EQ(transaction.open(0), PostfixTransaction::Done) << transaction.reason();
        work();
        EXPECT_EQ(transaction.commit(), PostfixTransaction::Refused);
        EXPECT_EQ(shown(), before);
        return transaction.reason();
    }

    void committed(const std::function<void()>& work)
    {
        ASSERT_EQ(transaction.open(0), PostfixTransaction::Done) << transaction.reason();
        work();
        ASSERT_EQ(transaction.commit(), PostfixTransaction::Done) << transaction.reason();
    }

    // "+" for what comes, "-" for what goes, "*" for what is changed.
    static std::string listed(PostfixTransaction& open)
    {
        std::string changes;
        for (const PostfixTransaction::Change& change : open.changes())
            changes += std::string(1, "+-*"[change.kind]) +
                       change.place.substr(change.place.rfind('/') + 1) + " " + change.name + "\n";
        return changes;
    }

    TestManager manager{Files};
    PostfixTransaction transaction{manager};
};

#define EXPECT_HOLDS(text, part) EXPECT_NE((text).find(part), std::string::npos) << (text)

TEST_F(Transactions, NamesAreWholeNames)
{
    const std::string bob = "bob@b.com";
    const std::string accounts = account("jim.bob@b.com") + account("bob@b.com.au");
    const std::string shadows = shadow("jim.bob@b.com") + shadow("bob@b.com.au");
    const std::string vmaps = "jim.bob@b.com b.com/mail/inbox/jim.bob@b.com\n";
    const std::string bobs = "bob@b.com b.com/mail/inbox/bob@b.com\n";
    const std::string aliases = "jim.bob@b.com x@y\nbob@ab.com bob@b.com.au\n";
    const std::string quotas = "jim.bob@b.com\t7\n";
    const struct {
        std::string call, map, before, after;
    } rows[] = {
        // clang-format off
        {"VHostFile(b.com;AddDomain)", List, "ab.com\n", "ab.com\nb.com\n"},
        {"VHostFile(b.com;RmvDomain)", List, "ab.com\nb.com\nb.com.au", "ab.com\nb.com.au\n"},
        {"VMaps(bob;b.com;AddUser)", "vmaps.txt", vmaps, vmaps + bobs},
        {"VMaps(bob@b.com;b.com;RmvUser)", "vmaps.txt", vmaps + bobs, vmaps},
        {"DeleteMailboxUser(bob@b.com;/etc/vmail/vpasswd)", "vpasswd", account(bob) + accounts, accounts},
        {"DeleteDomMailboxes(b.com;/etc/vmail/vshadow)", "vshadow", shadow(bob) + shadows, shadow("bob@b.com.au")},
        {"UpdateMailbox(bob@b.com;user;UpdateUserType)", "vshadow", shadow(bob) + shadows, shadow(bob, "0") + shadows},
        {"VQuota(bob@b.com;5;AddQuota)", "vquota.txt", quotas, quotas + "bob@b.com\t5\n"},
        {"VQuota(bob@b.com;6;UpdateQuota)", "vquota.txt", quotas + "bob@b.com\t5\n", quotas + "bob@b.com\t6\n"},
        {"VAlias(bob@b.com;z@z;AddAlias)", "valias.txt", aliases, aliases + "bob@b.com z@z\n"},
        {"VAlias(bob@b.com;;DeleteAlias)", "valias.txt", "bob@b.com q@q\n" + aliases, aliases},
        {"VList(bob@b.com;z@z;UpdateList)", "valias.txt", aliases + "bob@b.com q@q", aliases + "bob@b.com z@z\n"},
        {"DeleteDomAliases(b.com)", "valias.txt", aliases, "bob@ab.com bob@b.com.au\n"}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.call);
        place({{"vpasswd", accounts}, {"vshadow", shadows}});
        place({{row.map, row.before}});
        committed([&] { run(manager, row.call); });
        EXPECT_EQ(get(row.map), row.after);
        EXPECT_EQ(get(row.map + ".qvbackup"), row.before);
    }

    place({{"valias.txt", "jim.bob@b.com a@a\nx@ab.com jim.bob@b.com\nbob@b.com b@b\n"},
           {"vquota.txt", "jim.bob@b.com\t7\nbob@b.com\t5\n"}});
    committed([&] {
        EXPECT_EQ(run(manager, "RetrieveAlias(bob@b.com)"), "b@b");
        EXPECT_EQ(run(manager, "RetrieveQuota(bob@b.com)"), "\t5");
        EXPECT_EQ(run(manager, "GetAliasList(bob@b.com)"), "0");
        EXPECT_EQ(run(manager, "GetLists(b.com)"), "0 bob");
    });
}

TEST_F(Transactions, ManyOperationsAreSeenAtOnce)
{
    fs::create_directories("/var/spool/vmail/old.com/mail/inbox");
    place({{List, "old.com\n"},
           {"vpasswd", account("x@old.com")},
           {"vshadow", shadow("x@old.com")},
           {"vmaps.txt", "x@old.com old.com/mail/inbox/x@old.com\n"}});
    const World before = shown();
    ASSERT_EQ(transaction.open(0), PostfixTransaction::Done);
    std::string commands;
    for (const char* call :
         {"CreateMailDomain(b.com;bob;secret;50)", "CreateMailbox(b.com;ann;-1)",
          "VAlias(info@b.com;ann@b.com;AddAlias)", "UpdateCatchAllAddress(b.com;ann)",
          "DeleteMailbox(ann;b.com)", "CreateMailbox(b.com;ann;-1)", "DeleteMailDomain(old.com)"}) {
        run(manager, call);
        commands += happened;
    }
    EXPECT_EQ(commands.find("\n$ "), std::string::npos) << "a command ran before the commit";
    EXPECT_EQ(shown(), before);
    EXPECT_FALSE(fs::exists("/var/spool/vmail/b.com"));

    const std::string changes = listed(transaction);
    for (const char* change :
         {"+vpasswd bob@b.com\n", "-vshadow x@old.com\n", "+vquota.txt bob@b.com\n",
          "+vmaps.txt @b.com\n", "+valias.txt info@b.com\n", "+VirtualHosts b.com\n",
          "-VirtualHosts old.com\n", "-vmail /var/spool/vmail/old.com\n",
          "+vmail /var/spool/vmail/b.com/mail/home/ann@b.com\n"})
        EXPECT_HOLDS(changes, change);

    const std::string done = watched(
        [&] { EXPECT_EQ(transaction.commit(), PostfixTransaction::Done) << transaction.reason(); });
    // vmaps.txt gains and loses, so its table is built twice; each other one once.
    EXPECT_EQ(std::count(done.begin(), done.end(), '$'), 5) << done;
    EXPECT_EQ(done.find("$ postfix reload"), done.rfind("$ postfix"));
    EXPECT_EQ(get(List), "b.com\n");
    EXPECT_EQ(get("vmaps.txt"), "bob@b.com b.com/mail/inbox/bob@b.com\n"
                                "@b.com b.com/mail/inbox/ann@b.com\n"
                                "ann@b.com b.com/mail/inbox/ann@b.com\n");
    EXPECT_EQ(std::system("postmap -q ann@b.com /etc/vmail/vmaps.txt >/dev/null"), 0);
    EXPECT_NE(std::system("postmap -q x@old.com /etc/vmail/vmaps.txt"), 0);
    EXPECT_EQ(rights(Homes + "ann@b.com"), "qvadmin 2777 mail's");
    EXPECT_EQ(rights("/var/spool/vmail/b.com"), "qvadmin 775 mail's");
    EXPECT_EQ(rights("vmaps.txt"), "root 644 qvadmin's");
    EXPECT_FALSE(fs::exists("/var/spool/vmail/old.com"));
}

TEST_F(Transactions, ADomainIsDeletedAndMadeAnew)
{
    const std::string longest(61, 'x'),
        domain = longest + "." + longest + "." + longest + "." + longest;
    for (const std::string& name : {std::string("b.com"), domain}) {
        committed([&] { run(manager, "CreateMailDomain(" + name + ";ann;secret;50)"); });
        committed([&] {
            run(manager, "DeleteMailDomain(" + name + ")");
            run(manager, "CreateMailDomain(" + name + ";bob;secret;50)");
        });
    }
    EXPECT_EQ(rights(Homes + "bob@b.com"), "qvadmin 2777 mail's");
    EXPECT_FALSE(fs::exists(Homes + "ann@b.com"));
}

TEST_F(Transactions, WhatIsDroppedNeverWas)
{
    const World before = shown();
    {
        PostfixTransaction dropped(manager);
        ASSERT_EQ(dropped.open(0), PostfixTransaction::Done);
        EXPECT_EQ(run(manager, "CreateMailDomain(b.com;bob;secret;50)"), "303");
        EXPECT_EQ(run(manager, "IsMailboxExists(bob@b.com)"), "true");
        EXPECT_EQ(PostfixTransaction(manager).open(0), PostfixTransaction::Refused);
    }
    EXPECT_EQ(shown(), before);
    EXPECT_EQ(run(manager, "IsMailboxExists(bob@b.com)"), "false");
    EXPECT_EQ(transaction.commit(), PostfixTransaction::Refused); // none is open

    // A process that dies leaves its copies; the next transaction discards them.
    if (fork() == 0) {
        transaction.open(0);
        manager.Postfix_CreateMailDomain("b.com", "bob", "secret", "50");
        _exit(0);
    }
    wait(nullptr);
    EXPECT_NE(get("transaction/vpasswd"), "");
    committed([] {});
    EXPECT_FALSE(fs::exists("/etc/vmail/transaction/vpasswd"));
    EXPECT_EQ(shown(), before);
}

TEST_F(Transactions, WhatSomebodyElseMadeMeanwhileStays)
{
    place({{List, "taken.com\n"}});
    for (const char* domain : {"taken.com", "ours.com"})
        fs::create_directory(std::string("/var/spool/vmail/") + domain);
    committed([] {}); // makes the directory of the stage
    put({{"transaction/new-directories",
          "/var/spool/vmail/taken.com\n/var/spool/vmail/ours.com\n"}});
    committed([] {});
    EXPECT_TRUE(fs::exists("/var/spool/vmail/taken.com"));
    EXPECT_FALSE(fs::exists("/var/spool/vmail/ours.com"));
}

TEST_F(Transactions, OneAtATime)
{
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t holder = fork();
    if (holder == 0) {
        transaction.open(0);
        write(ready[1], "x", 1);
        usleep(300000);
        _exit(0);
    }
    char x;
    ASSERT_EQ(read(ready[0], &x, 1), 1);
    EXPECT_EQ(transaction.open(0), PostfixTransaction::Busy);
    EXPECT_HOLDS(transaction.reason(), std::to_string(holder));
    EXPECT_EQ(transaction.open(-1), PostfixTransaction::Done);
    wait(nullptr);
}

TEST_F(Transactions, WhatCannotBeDoneIsRefusedWhole)
{
    const auto createBob = [&] { run(manager, "CreateMailDomain(b.com;bob;secret;50)"); };
    const auto addAlias = [&] { run(manager, "VAlias(a@b.com;b@b.com;AddAlias)"); };

    for (const char* map : {"vpasswd", "vshadow", "vquota.txt", "vmaps.txt", "/etc/VirtualHosts"}) {
        SCOPED_TRACE(map);
        const std::string path = map[0] == '/' ? map : std::string("/etc/vmail/") + map;
        fs::rename(path, "/etc/kept");
        EXPECT_HOLDS(refusal(createBob), path + " is missing");
        fs::create_symlink("/etc/kept", path);
        EXPECT_HOLDS(refusal(createBob), "link");
        fs::rename("/etc/kept", path);
    }

    place({{"vpasswd", account("bob@b.com")}});
    EXPECT_HOLDS(refusal(createBob), "vpasswd would have two entries of bob@b.com");
    EXPECT_HOLDS(refusal([&] {
                     run(manager, "VAlias(a b@b.com;x;AddAlias)");
                     run(manager, "VAlias(c@b.com;;AddAlias)");
                 }),
                 "malformed entry");
    EXPECT_HOLDS(refusal([&] { run(manager, "DeleteMailDomain()"); }), "is no path of a domain");
    EXPECT_HOLDS(refusal([&] { run(manager, "DeleteMailDomain(../../etc)"); }), "is no path");
    EXPECT_HOLDS(refusal([&] { run(manager, "CreateMailbox(none.com;u;5)"); }),
                 "no directory above");
    removeAccount("qvadmin");
    EXPECT_HOLDS(refusal(createBob), "\"qvadmin\"");

    std::system("mkdir /etc/vmail/valias.txt.qvbackup");
    EXPECT_HOLDS(refusal(addAlias), "valias.txt.qvbackup is not a regular file");
    fs::remove("/etc/vmail/valias.txt.qvbackup");

    put({{"transaction/journal", "journal of a mail administration, format 1\n\nend\n"}});
    EXPECT_EQ(transaction.open(0), PostfixTransaction::Refused);
    fs::remove("/etc/vmail/transaction/journal");

    place({{"valias.txt", "x@b.com y@b.com\n"}});
    const std::string kept = "x@b.com y@b.com\n";
    ASSERT_EQ(transaction.open(0), PostfixTransaction::Done);
    addAlias();
    std::system("echo 'z@b.com z@z' >> /etc/vmail/valias.txt"); // a host without transactions
    EXPECT_EQ(transaction.commit(), PostfixTransaction::Refused);
    EXPECT_HOLDS(transaction.reason(), "valias.txt was changed meanwhile");
    EXPECT_EQ(get("valias.txt"), kept + "z@b.com z@z\n");

    for (const char* tool : {"/bin/false", "/bin/true"}) {
        std::system(("ln -sf " + std::string(tool) + " /run/bin/postmap").c_str());
        EXPECT_HOLDS(refusal(addAlias), "postmap");
    }
}

TEST_F(Transactions, FullDisk)
{
    // The files alone: a plain rewrite leaves its map as it was, and answers as ever.
    ASSERT_EQ(mount("tmpfs", "/etc/vmail", "tmpfs", 0, "size=64k"), 0);
    std::string many;
    for (int i = 0; many.size() < 30000; ++i)
        many += shadow("user" + std::to_string(i) + "@b.com");
    place(EmptyMaps);
    place({{"vshadow", many}});
    std::system("cat /dev/zero > /etc/vmail/full");
    const std::string change = "UpdateMailbox(user1@b.com;other;UpdatePasswd)";
    EXPECT_EQ(run(manager, change), "321");
    EXPECT_EQ(run(manager, "DeleteMailboxUser(user1@b.com;/etc/vmail/vshadow)"), "0");
    EXPECT_EQ(get("vshadow"), many);
    EXPECT_FALSE(fs::exists("/etc/vmail/vshadow_temp.txt") || fs::exists("/etc/vmail/temp.txt"));

    EXPECT_EQ(transaction.open(0), PostfixTransaction::Done) << transaction.reason();
    EXPECT_EQ(run(manager, change), "321");
    EXPECT_EQ(transaction.commit(), PostfixTransaction::Refused);
    EXPECT_HOLDS(transaction.reason(), "No space left on device");
    EXPECT_EQ(get("vshadow"), many);
    umount("/etc/vmail");
}

TEST_F(Transactions, OnTables)
{
    TestManager onTables(Sql);
    PostfixTransaction sqlTransaction(onTables);
    put({{"tables", "x_b.com\nbob@x_b.com|h|1\nann@xab.com|h|1\n"}});
    ASSERT_EQ(sqlTransaction.open(0), PostfixTransaction::Done) << sqlTransaction.reason();
    EXPECT_EQ(run(onTables, "CreateMailDomain(b.com;bob;secret;50)"), "303");
    EXPECT_EQ(run(onTables, "VQuota(bob@b.com;60;UpdateQuota)"), "325");
    EXPECT_EQ(run(onTables, "DeleteMailDomain(x_b.com)"), "317");
    EXPECT_EQ(run(onTables, "IsMailboxExists(bob@b.com)"), "true");
    EXPECT_EQ(sql("select name from virtual_domains"), "x_b.com\n");
    const std::string changes = listed(sqlTransaction);
    EXPECT_EQ(changes.substr(0, changes.find("+vmail")),
              "+virtual_domains b.com\n+virtual_users bob@b.com\n-virtual_domains x_b.com\n"
              "-virtual_users bob@x_b.com\n");
    EXPECT_EQ(sqlTransaction.commit(), PostfixTransaction::Done) << sqlTransaction.reason();
    EXPECT_EQ(sql("select name from virtual_domains"), "b.com\n");
    EXPECT_EQ(sql("select email, quota from virtual_users order by email"),
              "ann@xab.com|1\nbob@b.com|60\n");
    EXPECT_EQ(rights(Homes + "bob@b.com"), "qvadmin 2777 mail's");

    // Of a mailbox that forwards, its forward is told, and not its alias for itself.
    for (const auto& [call, change] :
         {std::pair("VAlias(bob@b.com;z@z;UpdateAlias)", "+virtual_aliases bob@b.com\n"),
          std::pair("VAlias(bob@b.com;;DeleteAlias)", "-virtual_aliases bob@b.com\n")}) {
        ASSERT_EQ(sqlTransaction.open(0), PostfixTransaction::Done) << sqlTransaction.reason();
        run(onTables, call);
        EXPECT_EQ(listed(sqlTransaction), change);
        EXPECT_EQ(sqlTransaction.commit(), PostfixTransaction::Done) << sqlTransaction.reason();
    }

    // What is asked to learn a commit's fate holds what others wrote.
    sql("insert into virtual_aliases values ('q@b.com', 'o''brien@x\t')");
    ASSERT_EQ(sqlTransaction.open(0), PostfixTransaction::Done) << sqlTransaction.reason();
    EXPECT_EQ(run(onTables, "VAlias(q@b.com;z@z;UpdateAlias)"), "321");
    EXPECT_EQ(sqlTransaction.commit(), PostfixTransaction::Done) << sqlTransaction.reason();

    const std::pair<const char*, const char*> refusals[] = {
        {"CreateMailbox(b.com;bob;5)", "Duplicate entry"},
        {"VAlias(a'b@b.com;x;DeleteAlias)", "a name holds a quote"},
        {"VQuota(bob@b.com\\;5;UpdateQuota)", "a name holds a quote"},
        {"VQuota(bob@b.com;99999999999999999999;UpdateQuota)", "Out of range"}};
    sql("set global sql_mode = ''");
    for (const auto& [bad, reason] : refusals) {
        SCOPED_TRACE(bad);
        const World before = shown();
        ASSERT_EQ(sqlTransaction.open(0), PostfixTransaction::Done) << sqlTransaction.reason();
        run(onTables, "VAlias(new@b.com;x@b.com;AddAlias)");
        run(onTables, bad);
        EXPECT_EQ(sqlTransaction.commit(), PostfixTransaction::Refused);
        EXPECT_HOLDS(sqlTransaction.reason(), reason);
        EXPECT_EQ(shown(), before);
    }
    sql("set global sql_mode = default");
    sql("alter table virtual_aliases engine = MyISAM");
    EXPECT_EQ(sqlTransaction.open(0), PostfixTransaction::Refused);
    EXPECT_HOLDS(sqlTransaction.reason(), "engine = InnoDB");
    sql("alter table virtual_aliases engine = InnoDB");
    EXPECT_EQ(openConnections(), 0U);
    for (const auto& [backend, reason] :
         {std::pair(SqlWrongPassword, "the password is wrong (Access denied"),
          std::pair(SqlWrongDatabase, "there is no such database"),
          std::pair(SqlNoServer,
                    "port 3399 cannot be used as \"qvmail\": no database listens there")}) {
        TestManager unreachable(backend);
        PostfixTransaction refused(unreachable);
        EXPECT_EQ(refused.open(0), PostfixTransaction::Refused);
        EXPECT_HOLDS(refused.reason(), reason);
    }
}

TEST_F(Transactions, PasswordHashesAreStoredAsTheyAre)
{
    const std::string hash = "{SHA512-CRYPT}$6$salt$hash";
    const std::string accounts = "jim.bob@b.com|h\nbob@b.com|h\n";
    for (const Backend backend : {Files, Sql}) {
        SCOPED_TRACE(backend);
        SetUp();
        TestManager host(backend);
        PostfixTransaction moving(host);
        const auto stored = [&] {
            if (backend == Sql)
                return sql("select email, replace(password, '" + std::string(Hash) +
                           "', 'h') from virtual_users order by id");
            std::string all;
            std::istringstream lines(get("vshadow"));
            for (std::string name, field, rest; std::getline(lines, name, ':') &&
                                                std::getline(lines, field, ':') &&
                                                std::getline(lines, rest);)
                all += name + "|" + (field == Hash ? "h" : field) + "\n";
            return all;
        };
        place({{"vshadow", shadow("jim.bob@b.com") + shadow("bob@b.com")},
               {"tables", "b.com\njim.bob@b.com|h|1\nbob@b.com|h|1\n"}});
        ASSERT_EQ(stored(), accounts);
        EXPECT_EQ(moving.storePasswordHashes({{"bob@b.com", hash}}), 1);
        EXPECT_HOLDS(moving.reason(), "no transaction is open");

        std::vector<std::pair<std::string, std::string>> refusals = {{"b@b.com", "x"},
                                                                     {"b'x", "x"}};
        for (const char* field : {"", "a:b", "a'b", "\"", "a\\b", "a b", "a\n", "\x7f"})
            refusals.emplace_back("bob@b.com", field);
        for (const auto& [address, field] : refusals) {
            SCOPED_TRACE(field);
            ASSERT_EQ(moving.open(0), PostfixTransaction::Done) << moving.reason();
            EXPECT_EQ(moving.storePasswordHashes({{"jim.bob@b.com", hash}, {address, field}}), 1);
            EXPECT_HOLDS(moving.failure(),
                         (field == "x" ? "no mailbox " : "password of ") + address);
            EXPECT_EQ(moving.commit(), PostfixTransaction::Refused);
            EXPECT_EQ(stored(), accounts);
        }

        Account bad("bad"), made("made", "n.com");
        snprintf(bad.password, sizeof bad.password, "a:b");
        snprintf(made.password, sizeof made.password, "%s", hash.c_str());
        EXPECT_EQ(moving.createMailboxWithHash(&bad, "d.com", "bad", "-1"), 306);
        ASSERT_EQ(moving.open(0), PostfixTransaction::Done) << moving.reason();
        EXPECT_EQ(moving.createMailboxWithHash(&bad, "d.com", "bad", "-1"), 306);
        EXPECT_HOLDS(moving.failure(), "password of bad@d.com");
        EXPECT_EQ(moving.commit(), PostfixTransaction::Refused);

        for (const bool isKept : {false, true}) {
            ASSERT_EQ(moving.open(0), PostfixTransaction::Done) << moving.reason();
            run(host, "CreateMailDomain(n.com;new;secret;-1)");
            EXPECT_EQ(moving.createMailboxWithHash(&made, "n.com", "made", "5"), 305);
            run(host, "CreateMailbox(n.com;clear;-1)");
            EXPECT_EQ(moving.storePasswordHashes(
                          {{"new@n.com", "!"}, {"bob@b.com", "first"}, {"BOB@b.com", hash}}),
                      321);
            EXPECT_EQ(happened.find(hash), std::string::npos);
            isKept ? (void)moving.commit() : moving.drop();
            EXPECT_EQ(stored(), isKept
                                    ? "jim.bob@b.com|h\nbob@b.com|" + hash +
                                          "\nnew@n.com|!\nmade@n.com|" + hash + "\nclear@n.com|h\n"
                                    : accounts);
        }
    }
}

TEST_F(Transactions, MapsAreRepaired)
{
    PostfixTransaction repair(manager);
    const auto keepAll = [](std::string_view line) { return std::optional(std::string(line)); };
    int count = 0;
    const auto keepFirst = [&](std::string_view line) {
        return ++count > 1 ? std::nullopt : std::optional(std::string(line));
    };
    EXPECT_EQ(repair.repairMap(List, keepAll), 1);
    place({{List, "a.com\n\na.com\n"}, {"valias.txt", "a@a.com x@y.com"}});
    ASSERT_EQ(repair.open(0), PostfixTransaction::Done) << repair.reason();
    EXPECT_EQ(repair.repairMap(List, keepFirst), 321);
    EXPECT_EQ(repair.repairMap("/etc/vmail/valias.txt", keepAll), 321);
    run(manager, "VAlias(b@a.com;z@y.com;AddAlias)");
    EXPECT_EQ(repair.commit(), PostfixTransaction::Done) << repair.reason();
    EXPECT_EQ(get(List), "a.com\n");
    EXPECT_EQ(get("valias.txt"), "a@a.com x@y.com\nb@a.com z@y.com\n");

    place({{"valias.txt", "a@a.com x@y.com"}}); // whose last line alone is mended
    ASSERT_EQ(repair.open(0), PostfixTransaction::Done) << repair.reason();
    EXPECT_EQ(repair.repairMap("/etc/vmail/valias.txt", keepAll), 321);
    EXPECT_EQ(repair.commit(), PostfixTransaction::Done) << repair.reason();
    EXPECT_EQ(get("valias.txt"), "a@a.com x@y.com\n");

    ASSERT_EQ(repair.open(0), PostfixTransaction::Done) << repair.reason();
    EXPECT_EQ(repair.repairMap("/etc/passwd", keepAll), 1);
    EXPECT_HOLDS(repair.failure(), "none of the maps");
    EXPECT_EQ(repair.commit(), PostfixTransaction::Refused);
}

TEST_F(Transactions, ARecordThatGetpwnamReturnedIsWrittenAsItIs)
{
    SvpopUser record{getpwnam("qvadmin"), nullptr, ""};
    EXPECT_EQ(manager.Postfix_PasswdFile(&record), 0);
    EXPECT_EQ(get("vpasswd").substr(0, 8), "qvadmin:");
}
