// Transactions: what they publish, what they refuse, and that nothing is seen of them before.
#include "PostfixTransaction.h"
#include "fixture.h"

#include <cstring>
#include <filesystem>
#include <regex>
#include <thread>

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

static const std::string List = "/etc/VirtualHosts", Spool = "/var/spool/vmail";
static const std::string Homes = Spool + "/b.com/mail/home/";
static const std::string CreateBob = "CreateMailDomain(b.com;bob;secret;50)";
static const std::string AddAlias = "VAlias(a@b.com;b@b.com;AddAlias)";
// An account as it stands in vpasswd and in vshadow.
static std::string account(const std::string& address)
{
    return address + ":x:1:2:c:/home:/bin/false\n";
}
static std::string shadow(const std::string& address, const std::string& flag = "1")
{
    return address + ":" + Hash + ":19675::99999::::" + flag + "\n";
}

// The world without what transactions keep between them: an empty directory, which is the lock.
static World shown()
{
    World all = world();
    all.erase("transaction/");
    all.erase(List + "-transaction/");
    for (const char* map : {"vmaps.txt", "valias.txt", "vquota.txt"})
        all.erase(map + std::string(".db"));
    return all;
}

// A program with a transaction of its own.
struct Host {
    explicit Host(Backend backend) : manager(backend) {}

    void open()
    {
        ASSERT_EQ(transaction.open(0), PostfixTransaction::Done) << transaction.reason();
    }

    // Commits. Returns nothing, or why that is refused.
    std::string commit()
    {
        return transaction.commit() == PostfixTransaction::Done
                   ? ""
                   : "refused: " + transaction.reason();
    }

    // Makes the calls in a transaction and commits it. One that is refused leaves the world as it was.
    std::string make(const VectorString& calls)
    {
        const World before = shown();
        open();
        for (const std::string& call : calls)
            run(manager, call);
        std::string refusal = commit();
        EXPECT_TRUE(refusal.empty() || shown() == before) << testing::PrintToString(shown());
        return refusal;
    }

    // What it is to change: "+" for what comes, "-" for what goes, "*" for what is changed.
    std::string changes()
    {
        std::string text;
        for (const PostfixTransaction::Change& change : transaction.changes())
            text += std::string(1, "+-*"[change.kind]) +
                    change.place.substr(change.place.rfind('/') + 1) + " " + change.name + "\n";
        return text;
    }

    TestManager manager;
    PostfixTransaction transaction{manager};
};

struct Transactions : WithPostmap {
    void SetUp() override { putEmptyMaps(); }
    Host files{Files};
};

#define EXPECT_HOLDS(text, part) EXPECT_NE((text).find(part), std::string::npos) << (text)

// Load has the others of these calls, with names that are parts of one another.
TEST_F(Transactions, NamesAreWholeNames)
{
    const std::string bob = shadow("bob@b.com"), other = shadow("bob@b.com.au");
    const std::string shadows = shadow("jim.bob@b.com") + other;
    const std::string vmaps = "jim.bob@b.com b.com/mail/inbox/jim.bob@b.com\n";
    const std::string aliases = "jim.bob@b.com x@y\nbob@ab.com bob@b.com.au\n";
    const std::string quotas = "jim.bob@b.com\t7\nbob@b.com\t5\n";
    const struct {
        std::string call, map, before, after;
    } rows[] = {
        // clang-format off
        {"VHostFile(b.com;RmvDomain)", List, "ab.com\nb.com\nb.com.au", "ab.com\nb.com.au\n"},
        {"VMaps(bob@b.com;b.com;RmvUser)", "vmaps.txt", vmaps + "bob@b.com x\n", vmaps},
        {"DeleteDomMailboxes(b.com;/etc/vmail/vshadow)", "vshadow", bob + shadows, other},
        {"UpdateMailbox(bob@b.com;user;UpdateUserType)", "vshadow", bob + shadows,
         shadow("bob@b.com", "0") + shadows},
        {"VAlias(bob@b.com;;DeleteAlias)", "valias.txt", "bob@b.com q@q\n" + aliases, aliases},
        {"DeleteDomAliases(b.com)", "valias.txt", aliases, "bob@ab.com bob@b.com.au\n"}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.call);
        putAsRoot({{"vpasswd", ""}, {"vshadow", shadows}});
        putAsRoot({{row.map, row.before}});
        EXPECT_EQ(files.make({row.call}), "");
        EXPECT_EQ(get(row.map), row.after);
        EXPECT_EQ(get(row.map + ".qvbackup"), row.before);
    }

    putAsRoot({{"valias.txt", "jim.bob@b.com a@a\nx@ab.com jim.bob@b.com\nbob@b.com b@b\n"},
               {"vquota.txt", quotas}});
    files.open();
    EXPECT_EQ(run(files.manager, "RetrieveAlias(bob@b.com)"), "b@b");
    EXPECT_EQ(run(files.manager, "RetrieveQuota(bob@b.com)"), "\t5");
    EXPECT_EQ(run(files.manager, "GetAliasList(bob@b.com)"), "0");
    EXPECT_EQ(run(files.manager, "GetLists(b.com)"), "0 bob");
}

TEST_F(Transactions, ManyOperationsAreSeenAtOnce)
{
    fs::create_directories(Spool + "/old.com/mail/inbox");
    putAsRoot({{List, "old.com\n"},
               {"vpasswd", account("x@old.com")},
               {"vshadow", shadow("x@old.com")},
               {"vmaps.txt", "x@old.com old.com/mail/inbox/x@old.com\n"}});
    const World before = shown();
    files.open();
    std::string commands;
    for (const char* call :
         {"CreateMailDomain(b.com;bob;secret;50)", "CreateMailbox(b.com;ann;-1)",
          "VAlias(info@b.com;ann@b.com;AddAlias)", "UpdateCatchAllAddress(b.com;ann)",
          "DeleteMailbox(ann;b.com)", "CreateMailbox(b.com;ann;-1)", "DeleteMailDomain(old.com)"}) {
        run(files.manager, call);
        commands += happened;
    }
    EXPECT_EQ(commands.find("\n$ "), std::string::npos) << "a command ran before the commit";
    EXPECT_EQ(shown(), before);
    EXPECT_FALSE(fs::exists(Spool + "/b.com"));

    const std::string changes = files.changes();
    for (const char* change :
         {"+vpasswd bob@b.com\n", "-vshadow x@old.com\n", "+vquota.txt bob@b.com\n",
          "+vmaps.txt @b.com\n", "+valias.txt info@b.com\n", "+VirtualHosts b.com\n",
          "-VirtualHosts old.com\n", "-vmail /var/spool/vmail/old.com\n",
          "+vmail /var/spool/vmail/b.com/mail/home/ann@b.com\n"})
        EXPECT_HOLDS(changes, change);

    const std::string done = watched([&] { EXPECT_EQ(files.commit(), ""); });
    // vmaps.txt gains and loses, so its table is built twice; each other one once.
    EXPECT_EQ(std::count(done.begin(), done.end(), '$'), 5) << done;
    EXPECT_EQ(done.find("$ postfix reload"), done.rfind("$ postfix"));
    EXPECT_EQ(get(List), "b.com\n");
    EXPECT_EQ(std::system("postmap -q ann@b.com /etc/vmail/vmaps.txt >/dev/null"), 0);
    EXPECT_NE(std::system("postmap -q x@old.com /etc/vmail/vmaps.txt"), 0);
    EXPECT_EQ(rights(Homes + "ann@b.com"), "qvadmin 2777 mail's");
    EXPECT_EQ(rights(Spool + "/b.com"), "qvadmin 775 mail's");
    EXPECT_EQ(rights("vmaps.txt"), "root 644 qvadmin's");
    EXPECT_FALSE(fs::exists(Spool + "/old.com"));
}

TEST_F(Transactions, ADomainIsDeletedAndMadeAnew)
{
    const std::string part(61, 'x'), longest = part + "." + part + "." + part + "." + part;
    for (const std::string& name : {std::string("b.com"), longest}) {
        EXPECT_EQ(files.make({"CreateMailDomain(" + name + ";ann;secret;50)"}), "");
        EXPECT_EQ(files.make({"DeleteMailDomain(" + name + ")",
                              "CreateMailDomain(" + name + ";bob;secret;50)"}),
                  "");
    }
    EXPECT_EQ(rights(Homes + "bob@b.com"), "qvadmin 2777 mail's");
    EXPECT_FALSE(fs::exists(Homes + "ann@b.com"));
}

TEST_F(Transactions, WhatIsDroppedNeverWas)
{
    const World before = shown();
    files.open();
    EXPECT_EQ(run(files.manager, CreateBob), "303");
    EXPECT_EQ(run(files.manager, "IsMailboxExists(bob@b.com)"), "true");
    EXPECT_EQ(PostfixTransaction(files.manager).open(0), PostfixTransaction::Refused);
    files.transaction.drop();
    EXPECT_EQ(shown(), before);
    EXPECT_EQ(run(files.manager, "IsMailboxExists(bob@b.com)"), "false");
    EXPECT_EQ(files.commit(), "refused: no transaction is open");

    // A process that dies leaves its copies; the next transaction discards them.
    if (fork() == 0) {
        files.open();
        run(files.manager, CreateBob);
        _exit(0);
    }
    wait(nullptr);
    EXPECT_NE(get("transaction/vpasswd"), "");
    EXPECT_EQ(files.make({}), "");
    EXPECT_FALSE(fs::exists("/etc/vmail/transaction/vpasswd"));
    EXPECT_EQ(shown(), before);
}

TEST_F(Transactions, WhatSomebodyElseMadeMeanwhileStays)
{
    putAsRoot({{List, "taken.com\n"}});
    EXPECT_EQ(files.make({}), ""); // makes the directory of the stage
    put({{Spool + "/taken.com/", ""},
         {Spool + "/ours.com/", ""},
         {"transaction/new-directories", Spool + "/taken.com\n" + Spool + "/ours.com\n"}});
    EXPECT_EQ(files.make({}), "");
    EXPECT_TRUE(fs::exists(Spool + "/taken.com"));
    EXPECT_FALSE(fs::exists(Spool + "/ours.com"));
}

TEST_F(Transactions, OneAtATime)
{
    EXPECT_EQ(files.make({}), ""); // makes the directory that is the lock
    const int holder = open("/etc/vmail/transaction", O_RDONLY);
    ASSERT_EQ(flock(holder, LOCK_SH), 0);
    EXPECT_EQ(files.transaction.open(0), PostfixTransaction::Busy);
    EXPECT_HOLDS(files.transaction.reason(), "(process " + std::to_string(getpid()) + ")");
    std::thread release([&] { usleep(300000), close(holder); });
    EXPECT_EQ(files.transaction.open(-1), PostfixTransaction::Done);
    release.join();
}

TEST_F(Transactions, WhatCannotBeDoneIsRefusedWhole)
{
    for (const char* map : {"vpasswd", "vshadow", "vquota.txt", "vmaps.txt", "/etc/VirtualHosts"}) {
        SCOPED_TRACE(map);
        fs::rename(pathOf(map), "/etc/kept");
        EXPECT_HOLDS(files.make({CreateBob}), pathOf(map) + " is missing");
        fs::create_symlink("/etc/kept", pathOf(map));
        EXPECT_HOLDS(files.make({CreateBob}), "link");
        fs::rename("/etc/kept", pathOf(map));
    }

    putAsRoot({{"vpasswd", account("bob@b.com")}});
    EXPECT_HOLDS(files.make({CreateBob}), "vpasswd would have two entries of bob@b.com");
    EXPECT_HOLDS(files.make({"VAlias(a b@b.com;x;AddAlias)", "VAlias(c@b.com;;AddAlias)"}),
                 "malformed entry");
    EXPECT_HOLDS(files.make({"DeleteMailDomain()"}), "is no path of a domain");
    EXPECT_HOLDS(files.make({"DeleteMailDomain(../../etc)"}), "is no path");
    EXPECT_HOLDS(files.make({"CreateMailbox(none.com;u;5)"}), "no directory above");
    removeAccount("qvadmin");
    EXPECT_HOLDS(files.make({CreateBob}), "\"qvadmin\"");

    fs::create_directory("/etc/vmail/valias.txt.qvbackup");
    EXPECT_HOLDS(files.make({AddAlias}), "valias.txt.qvbackup is not a regular file");
    fs::remove("/etc/vmail/valias.txt.qvbackup");

    put({{"transaction/journal", "journal of a mail administration, format 1\n\nend\n"}});
    EXPECT_EQ(files.transaction.open(0), PostfixTransaction::Refused);
    fs::remove("/etc/vmail/transaction/journal");

    putAsRoot({{"valias.txt", "x@b.com y@b.com\n"}});
    files.open();
    run(files.manager, AddAlias);
    std::system("echo 'z@b.com z@z' >> /etc/vmail/valias.txt"); // a host without transactions
    EXPECT_HOLDS(files.commit(), "valias.txt was changed meanwhile");
    EXPECT_EQ(get("valias.txt"), "x@b.com y@b.com\nz@b.com z@z\n");

    for (const char* tool : {"/bin/false", "/bin/true"}) {
        std::system(("ln -sf " + std::string(tool) + " /run/bin/postmap").c_str());
        EXPECT_HOLDS(files.make({AddAlias}), "postmap");
    }
}

TEST_F(Transactions, FullDisk)
{
    // The files alone: a plain rewrite leaves its map as it was, and answers as ever.
    ASSERT_EQ(mount("tmpfs", "/etc/vmail", "tmpfs", 0, "size=64k"), 0);
    std::string many;
    for (int i = 0; many.size() < 30000; ++i)
        many += shadow("user" + std::to_string(i) + "@b.com");
    putEmptyMaps();
    putAsRoot({{"vshadow", many}});
    std::system("cat /dev/zero > /etc/vmail/full");
    const std::string change = "UpdateMailbox(user1@b.com;other;UpdatePasswd)";
    EXPECT_EQ(run(files.manager, change), "321");
    EXPECT_EQ(run(files.manager, "DeleteMailboxUser(user1@b.com;/etc/vmail/vshadow)"), "0");
    EXPECT_EQ(get("vshadow"), many);
    EXPECT_FALSE(fs::exists("/etc/vmail/vshadow_temp.txt") || fs::exists("/etc/vmail/temp.txt"));

    EXPECT_HOLDS(files.make({change}), "No space left on device");
    EXPECT_EQ(get("vshadow"), many);
    umount("/etc/vmail");
}

TEST_F(Transactions, OnTables)
{
    Host tables(Sql);
    put({{"tables", "x_b.com\nbob@x_b.com|h|1\nann@xab.com|h|1\n"}});
    tables.open();
    EXPECT_EQ(run(tables.manager, CreateBob), "303");
    EXPECT_EQ(run(tables.manager, "VQuota(bob@b.com;60;UpdateQuota)"), "325");
    EXPECT_EQ(run(tables.manager, "DeleteMailDomain(x_b.com)"), "317");
    EXPECT_EQ(run(tables.manager, "IsMailboxExists(bob@b.com)"), "true");
    EXPECT_EQ(sql("select name from virtual_domains"), "x_b.com\n");
    const std::string changes = tables.changes();
    EXPECT_EQ(changes.substr(0, changes.find("+vmail")),
              "+virtual_domains b.com\n+virtual_users bob@b.com\n-virtual_domains x_b.com\n"
              "-virtual_users bob@x_b.com\n");
    EXPECT_EQ(tables.commit(), "");
    EXPECT_EQ(sql("select name from virtual_domains"), "b.com\n");
    EXPECT_EQ(sql("select email, quota from virtual_users order by email"),
              "ann@xab.com|1\nbob@b.com|60\n");
    EXPECT_EQ(rights(Homes + "bob@b.com"), "qvadmin 2777 mail's");

    // Of a mailbox that forwards, its forward is told, and not its alias for itself.
    const std::string forwards[][2] = {
        {"VAlias(bob@b.com;z@z;UpdateAlias)", "+virtual_aliases bob@b.com\n"},
        {"VAlias(bob@b.com;;DeleteAlias)", "-virtual_aliases bob@b.com\n"}};
    for (const auto& [call, change] : forwards) {
        tables.open();
        run(tables.manager, call);
        EXPECT_EQ(tables.changes(), change);
        EXPECT_EQ(tables.commit(), "");
    }

    // What is asked to learn a commit's fate holds what others wrote.
    sql("insert into virtual_aliases values ('q@b.com', 'o''brien@x\t')");
    EXPECT_EQ(tables.make({"VAlias(q@b.com;z@z;UpdateAlias)"}), "");

    sql("set global sql_mode = ''");
    for (const auto& [bad, reason] :
         World{{"CreateMailbox(b.com;bob;5)", "Duplicate entry"},
               {"VAlias(a'b@b.com;x;DeleteAlias)", "a name holds a quote"},
               {"VQuota(bob@b.com\\;5;UpdateQuota)", "a name holds a quote"},
               {"VQuota(bob@b.com;99999999999999999999;UpdateQuota)", "Out of range"}})
        EXPECT_HOLDS(tables.make({AddAlias, bad}), reason) << bad;
    sql("set global sql_mode = default");
    sql("alter table virtual_aliases engine = MyISAM");
    EXPECT_EQ(tables.transaction.open(0), PostfixTransaction::Refused);
    EXPECT_HOLDS(tables.transaction.reason(), "engine = InnoDB");
    sql("alter table virtual_aliases engine = InnoDB");
    EXPECT_EQ(openConnections(), 0U);
    for (const auto& [backend, reason] : std::map<Backend, std::string>{
             {SqlWrongPassword, "the password is wrong (Access denied"},
             {SqlWrongDatabase, "there is no such database"},
             {SqlNoServer, "3399 cannot be used as \"qvmail\": no database listens there"}}) {
        Host unreachable(backend);
        EXPECT_EQ(unreachable.transaction.open(0), PostfixTransaction::Refused);
        EXPECT_HOLDS(unreachable.transaction.reason(), reason);
    }
}

// The mailboxes and their hashes, that of "secret" as "h".
static std::string storedHashes(Backend backend)
{
    std::string all = sql("select email, password from virtual_users order by id");
    if (backend == Files)
        all = std::regex_replace(get("vshadow"), std::regex(":([^:\n]*):.*"), "|$1");
    for (std::size_t i; (i = all.find(Hash)) != std::string::npos;)
        all.replace(i, strlen(Hash), "h");
    return all;
}

TEST_F(Transactions, PasswordHashesAreStoredAsTheyAre)
{
    const std::string hash = "{SHA512-CRYPT}$6$salt$hash";
    const std::string accounts = "jim.bob@b.com|h\nbob@b.com|h\n";
    std::vector<std::pair<std::string, std::string>> unfit = {{"b@b.com", "x"}, {"b'x", "x"}};
    for (const char* field : {"", "a:b", "a'b", "\"", "a\\b", "a b", "a\n", "\x7f"})
        unfit.emplace_back("bob@b.com", field);
    for (const Backend backend : {Files, Sql}) {
        SCOPED_TRACE(backend);
        putEmptyMaps();
        Host host(backend);
        PostfixTransaction& moving = host.transaction;
        putAsRoot({{"vshadow", shadow("jim.bob@b.com") + shadow("bob@b.com")},
                   {"tables", "b.com\njim.bob@b.com|h|1\nbob@b.com|h|1\n"}});
        EXPECT_EQ(moving.storePasswordHashes({{"bob@b.com", hash}}), 1);
        EXPECT_HOLDS(moving.reason(), "no transaction is open");
        for (const auto& [address, field] : unfit) {
            SCOPED_TRACE(field);
            host.open();
            EXPECT_EQ(moving.storePasswordHashes({{"jim.bob@b.com", hash}, {address, field}}), 1);
            EXPECT_HOLDS(host.commit(), (field == "x" ? "no mailbox " : "password of ") + address);
            EXPECT_EQ(storedHashes(backend), accounts);
        }

        Account bad("bad"), made("made", "n.com");
        strcpy(bad.password, "a:b");
        hash.copy(made.password, sizeof made.password);
        EXPECT_EQ(moving.createMailboxWithHash(&bad, "d.com", "bad", "-1"), 306);
        host.open();
        EXPECT_EQ(moving.createMailboxWithHash(&bad, "d.com", "bad", "-1"), 306);
        EXPECT_HOLDS(host.commit(), "password of bad@d.com");

        host.open();
        run(host.manager, "CreateMailDomain(n.com;new;secret;-1)");
        EXPECT_EQ(moving.createMailboxWithHash(&made, "n.com", "made", "5"), 305);
        run(host.manager, "CreateMailbox(n.com;clear;-1)");
        EXPECT_EQ(moving.storePasswordHashes(
                      {{"new@n.com", "!"}, {"bob@b.com", "first"}, {"BOB@b.com", hash}}),
                  321);
        EXPECT_EQ(happened.find(hash), std::string::npos);
        EXPECT_EQ(storedHashes(backend), accounts);
        EXPECT_EQ(host.commit(), "");
        const std::string moved = "jim.bob@b.com|h\nbob@b.com|" + hash + "\nnew@n.com|!\n";
        EXPECT_EQ(storedHashes(backend), moved + "made@n.com|" + hash + "\nclear@n.com|h\n");
    }
}

TEST_F(Transactions, MapsAreRepaired)
{
    PostfixTransaction& repair = files.transaction;
    const std::string aliases = "/etc/vmail/valias.txt", unended = "a@a.com x@y.com";
    const auto keepAll = [](std::string_view line) { return std::optional(std::string(line)); };
    const auto keepNone = [](std::string_view) { return std::optional<std::string>(); };
    EXPECT_EQ(repair.repairMap(List, keepAll), 1);
    putAsRoot({{List, "a.com\n\na.com\n"}, {aliases, unended}});
    files.open();
    EXPECT_EQ(repair.repairMap(List, keepNone), 321);
    EXPECT_EQ(repair.repairMap(aliases, keepAll), 321);
    run(files.manager, AddAlias);
    EXPECT_EQ(files.commit(), "");
    EXPECT_EQ(get(List), "");
    EXPECT_EQ(get(aliases), unended + "\na@b.com b@b.com\n");

    putAsRoot({{aliases, unended}}); // whose last line alone is mended
    files.open();
    EXPECT_EQ(repair.repairMap(aliases, keepAll), 321);
    EXPECT_EQ(files.commit(), "");
    EXPECT_EQ(get(aliases), unended + "\n");

    files.open();
    EXPECT_EQ(repair.repairMap("/etc/passwd", keepAll), 1);
    EXPECT_HOLDS(files.commit(), "none of the maps");
}

TEST_F(Transactions, ARecordThatGetpwnamReturnedIsWrittenAsItIs)
{
    SvpopUser record{getpwnam("qvadmin"), nullptr, ""};
    EXPECT_EQ(files.manager.Postfix_PasswdFile(&record), 0);
    EXPECT_EQ(get("vpasswd").substr(0, 8), "qvadmin:");
}
