// What others put in the place of directories, maps and settings: nothing is given away, nothing
// outside is removed, and no call waits for ever.
#include "system/LargeFilesAndDates.h"

#include "PostfixTransaction.h"
#include "QVConfFileManager.h"
#include "fixture.h"

#include <csignal>
#include <filesystem>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

static const std::string Dir = "/var/spool/vmail/d", Mail = Dir + "/mail";
static const std::string Outside = "/var/spool/outside";

// Something of root's at every name that a link could make a call reach.
struct Planted : testing::Test {
    void SetUp() override
    {
        emptyWorld();
        fs::permissions("/var/spool/vmail", fs::perms(0755));
        EXPECT_EQ(run(Files, "CreateDomDir(d)"), "0");
        makeOutside();
    }

    void makeOutside()
    {
        fs::remove_all(Outside);
        for (const char* file : {"/u@d", "/home/u@d/kept", "/inbox/u@d", "/oldaccounts/kept"})
            put({{Outside + file, "root's"}});
        std::system(("chown -R root: " + Outside + "; chmod -R go= " + Outside).c_str());
        outside = seen();
    }

    // All that is outside, with owner, mode and content.
    static World seen()
    {
        World all = {{Outside, rights(Outside)}};
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(Outside))
            all[entry.path()] =
                rights(entry.path()) + (entry.is_regular_file() ? get(entry.path()) : "");
        return all;
    }

    World outside;
};

// clang-format off
TEST_F(Planted, LinksInTheSpoolLeadNowhere)
{
    const struct {
        std::string place, tree, domain, mailbox;
    } rows[] = {
        {"", "1", "304", "1"}, {"/home", "1", "304", "1"}, {"/inbox", "0", "303", "305"},
        {"/home/oldaccounts", "0", "303", "305"}, {"/home/u@d", "0", "303", "305"},
        {"/inbox/u@d", "0", "303", "305"}};
    for (const auto& row : rows)
        for (const std::string& target : {Outside, Outside + "/u@d", std::string("/nowhere")}) {
            SCOPED_TRACE("mail" + row.place + " -> " + target);
            SetUp();
            fs::remove_all(Mail + row.place);
            fs::create_symlink(target, Mail + row.place);
            EXPECT_EQ(run(Files, "CreateDomDir(d)"), row.tree);
            EXPECT_EQ(run(Sql, "CreateMailbox(d;u;-1)"), row.mailbox);
            EXPECT_EQ(run(Sql, "DeleteMailbox(u;d)"), "307");
            EXPECT_EQ(fs::is_symlink(Mail + row.place), row.place.find('@') == std::string::npos);
            EXPECT_EQ(run(Sql, "CreateMailDomain(d;u;secret;-1)"), row.domain);
            EXPECT_EQ(rights(Dir), "qvadmin 775 mail's");
            EXPECT_EQ(run(Sql, "DeleteMailDomain(d)"), "317");
            EXPECT_FALSE(fs::exists(Dir));
            EXPECT_EQ(seen(), outside);
        }
    SetUp();
    fs::create_hard_link(Outside + "/u@d", Mail + "/home/u@d");
    EXPECT_EQ(run(Sql, "CreateMailbox(d;u;-1)"), "305");
    EXPECT_EQ(seen(), outside);
}

// Root's own link, to another disk say.
TEST_F(Planted, ADomainsDirectoryMayBeALink)
{
    fs::remove_all(Dir);
    fs::create_directory_symlink("/var/spool/outside/home", Dir);
    EXPECT_EQ(run(Sql, "CreateMailDomain(d;u;secret;-1)"), "303");
    EXPECT_EQ(rights(Outside + "/home"), "qvadmin 775 mail's");
    EXPECT_EQ(rights(Outside + "/home/mail/home/u@d"), "qvadmin 2777 mail's");
    put({{Mail + "/inbox/u@d", "mail"}});
    EXPECT_EQ(run(Sql, "DeleteMailbox(u;d)"), "307");
    EXPECT_TRUE(fs::is_empty(Mail + "/inbox") && rights(Mail + "/home/u@d") == "missing");
    EXPECT_EQ(rights(Outside + "/home") + rights(Mail), "qvadmin 775 mail'sqvadmin 2775 mail's");
    EXPECT_EQ(run(Sql, "DeleteMailDomain(d)"), "317"); // as ever, the link alone
    EXPECT_TRUE(fs::exists(Outside + "/home/mail"));
}
// clang-format on

// As "qvadmin", puts a link in a directory's place and the directory back, as fast as it goes.
static pid_t startSwapping(const std::string& place)
{
    const uid_t user = getpwnam("qvadmin")->pw_uid;
    const pid_t swapper = fork();
    if (swapper != 0)
        return swapper;
    if (setgid(getpwnam("mail")->pw_gid) != 0 || setuid(user) != 0)
        _exit(1);
    const std::string other = Dir + "/swapped";
    for (;;) {
        mkdir(place.c_str(), 02775); // where an earlier round has ended
        symlink(Outside.c_str(), other.c_str());
        renameat2(AT_FDCWD, place.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
    }
}

TEST_F(Planted, SwappedDirectoriesLeadNowhere)
{
    constexpr int Rounds = 40;
    for (const char* const place : {"", "/home", "/home/u@d", "/inbox"}) {
        SetUp();
        int hits = 0, done = 0;
        const pid_t swapper = startSwapping(Mail + place);
        while (!fs::is_symlink(Mail + place)) // it is at work
            ASSERT_EQ(waitpid(swapper, nullptr, WNOHANG), 0);
        for (int round = 0; round < Rounds; ++round) {
            done += run(Files, "CreateDomDir(d)") == "0";
            done += run(Sql, "CreateMailbox(d;u;-1)") == "305";
            done += run(Sql, "DeleteMailbox(u;d)") == "307";
            if (seen() == outside)
                continue;
            ++hits;
            makeOutside();
        }
        kill(swapper, SIGKILL);
        waitpid(swapper, nullptr, 0);
        EXPECT_EQ(hits, 0) << place;
        EXPECT_GT(done, Rounds) << place; // deletions at least, and some of the rest
    }
}

// ---- In the place of maps and settings ----

static std::string underWay; // for the alarm

static void reportHang(int)
{
    write(STDERR_FILENO, underWay.data(), underWay.size());
    abort();
}

static void linkTo(const std::string& target, const std::string& path)
{
    fs::create_symlink(target, path);
}

static const struct {
    const char* name;
    std::function<void(const std::string& path)> make;
} Kinds[] = {{"fifo", [](const std::string& path) { mkfifo(path.c_str(), 0600); }},
             {"directory", [](const std::string& path) { fs::create_directory(path); }},
             {"socket", [](const std::string& path) { mknod(path.c_str(), S_IFSOCK | 0600, 0); }},
             {"link to a fifo", [](const std::string& path) { linkTo("/run/fifo", path); }},
             {"link to a device", [](const std::string& path) { linkTo("/dev/zero", path); }}};

static const struct {
    std::string map, call, answer;
} Answers[] = {
    // clang-format off
    {"/etc/VirtualHosts", "VHostFile(d;AddDomain)", "0"}, {"/etc/VirtualHosts", "VHostFile(d;RmvDomain)", "1"},
    {"/etc/VirtualHosts", "DeleteMailDomain(d)", "0"}, {"vpasswd", "PasswdFile(u)", "306"},
    {"vpasswd", "GetMailboxList(d)", "63"}, {"vpasswd", "GetMailboxCount(d)", "63"},
    {"vpasswd", "DeleteDomMailboxes(d;/etc/vmail/vpasswd)", "1"},
    {"vpasswd", "UpdateMailbox(u@d;admin;UpdateUserType)", "1"}, {"vpasswd", "addDovecotQuota(u@d;/h;5)", "1"},
    {"vshadow", "ShadowFile(u)", "306"}, {"vshadow", "IsMailboxExists(u@d)", "false"},
    {"vshadow", "UpdateMailbox(u@d;x;UpdatePasswd)", "1"}, {"vmaps.txt", "VMaps(u;d;AddUser)", "0"},
    {"vmaps.txt", "VMaps(u@d;d;RmvUser)", "1"}, {"vmaps.txt", "UpdateCatchAllAddress(d;u)", "331"},
    {"vmaps.txt", "RemoveCatchAllAddress(d)", "333"}, {"vmaps.txt", "RetreiveCatchAllAddress(d)", "0"},
    {"valias.txt", "VAlias(u@d;a@b;AddAlias)", "327"}, {"valias.txt", "VAlias(u@d;a@b;UpdateAlias)", "1"},
    {"valias.txt", "VAlias(u@d;;DeleteAlias)", "329"}, {"valias.txt", "VList(l@d;a@b;AddList)", "310"},
    {"valias.txt", "VList(l@d;a@b;UpdateList)", "1"}, {"valias.txt", "VList(l@d;;DeleteList)", "0"},
    {"valias.txt", "DeleteDomAliases(d)", "0"}, {"valias.txt", "GetAliasList(u@d)", "63"},
    {"valias.txt", "GetLists(d)", "63"}, {"valias.txt", "GetListSettings(l@d)", "63"},
    {"valias.txt", "RetrieveAlias(u@d)", ""}, {"vquota.txt", "VQuota(u@d;5;AddQuota)", "0"},
    {"vquota.txt", "VQuota(u@d;5;UpdateQuota)", "1"}, {"vquota.txt", "VQuota(u@d;;DeleteQuota)", "1"},
    {"vquota.txt", "RetrieveQuota(u@d)", "-1"}, {"vquota.txt", "RetrieveDomainQuota(d)", "0"}};
// clang-format on

// With the real postmap, which would wait for a fifo's content too.
struct OddFiles : testing::Test {
    void SetUp() override
    {
        std::system("ln -sf /usr/sbin/postmap /run/bin/postmap; : > /etc/postfix/main.cf; touch -d "
                    "@1 /etc/postfix/main.cf; mkfifo /run/fifo");
        signal(SIGALRM, reportHang);
    }
    void TearDown() override
    {
        alarm(0);
        std::system("ln -sf /bin/true /run/bin/postmap; rm /run/fifo");
    }

    static void begin(const std::string& what, const std::string& map,
                      const std::function<void(const std::string& path)>& make)
    {
        underWay = what + " at " + map + "\n";
        alarm(10);
        emptyWorld();
        std::system(
            "cd /etc/vmail; touch vpasswd vshadow vmaps.txt valias.txt vquota.txt ../VirtualHosts");
        const std::string path = map[0] == '/' ? map : "/etc/vmail/" + map;
        fs::remove(path);
        make(path);
    }
};

TEST_F(OddFiles, NoCallWaitsForThemOrTakesThemForMaps)
{
    for (const auto& kind : Kinds) {
        for (const auto& [map, call, answer] : Answers) {
            SCOPED_TRACE(kind.name + (" at " + map) + ": " + call);
            begin(kind.name + (": " + call), map, kind.make);
            const std::string path = map[0] == '/' ? map : "/etc/vmail/" + map;
            EXPECT_EQ(run(Files, call), answer);
            EXPECT_FALSE(fs::is_regular_file(path));
        }
        begin(kind.name, "/etc/Quorvel.conf", kind.make);
        std::string value;
        EXPECT_FALSE(
            QVConfFileManager().isParamExistInQVConfFile("/etc/Quorvel.conf", "DovecotLDA"));
        EXPECT_EQ(
            QVConfFileManager().getParamFromQVConfFile("/etc/Quorvel.conf", value, "DovecotLDA"),
            0);
        EXPECT_EQ(run(Files, "CreateMailDomain(d;u;secret;5)"), "303");

        for (const char* const map :
             {"/etc/VirtualHosts", "/etc/vmail/vpasswd", "/etc/vmail/vshadow",
              "/etc/vmail/vmaps.txt", "/etc/vmail/vquota.txt", "/etc/Quorvel.conf"}) {
            begin(kind.name, map, kind.make);
            TestManager manager(Files);
            PostfixTransaction transaction(manager);
            ASSERT_EQ(transaction.open(0), PostfixTransaction::Done) << transaction.reason();
            run(manager, "CreateMailDomain(d;u;secret;5)");
            EXPECT_EQ(transaction.commit(), PostfixTransaction::Refused);
            EXPECT_EQ(transaction.reason().find(map), 0U) << transaction.reason();
        }
    }
}

// A hole of 5 GB is a line without an end.
TEST_F(OddFiles, ALineWithoutAnEndFillsNoMemory)
{
    std::system("ln -sf /bin/true /run/bin/postmap");
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    for (const auto& row : Answers) {
        SCOPED_TRACE(row.map + ": " + row.call);
        begin("hole: " + row.call, row.map, [](const std::string& path) {
            EXPECT_EQ(close(open(path.c_str(), O_CREAT | O_WRONLY, 0600)), 0);
            fs::resize_file(path, 5LL << 30);
        });
        run(Files, row.call);
    }
    getrusage(RUSAGE_SELF, &after);
    // In KiB; sanitizers keep some of what is freed.
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 1 << 20);
}
