// What others put in the place of directories, maps and settings: nothing is given away, nothing
// outside is removed, and no call waits for ever.
#include "system/LargeFilesAndDates.h"

#include "QVConfFileManager.h"
#include "fixture.h"

#include <csignal>
#include <filesystem>
#include <fstream>

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

    // All that is outside, with owner, group, mode, size and time.
    static std::string seen()
    {
        std::system(("find " + Outside + " -printf '%p %u %g %m %s %T@\n' > /run/seen").c_str());
        return get("/run/seen");
    }

    std::string outside;
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
        int done = 0;
        const pid_t swapper = startSwapping(Mail + place);
        while (!fs::is_symlink(Mail + place)) // it is at work
            ASSERT_EQ(waitpid(swapper, nullptr, WNOHANG), 0);
        for (int round = 0; round < Rounds && !HasFailure(); ++round) {
            done += run(Files, "CreateDomDir(d)") == "0";
            done += run(Sql, "CreateMailbox(d;u;-1)") == "305";
            done += run(Sql, "DeleteMailbox(u;d)") == "307";
            EXPECT_EQ(seen(), outside) << place;
        }
        kill(swapper, SIGKILL);
        waitpid(swapper, nullptr, 0);
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

using Maker = std::function<void(const std::string& path)>;

static Maker linkTo(const char* target)
{
    return [target](const std::string& path) { fs::create_symlink(target, path); };
}

static const std::map<std::string, Maker> Kinds = {
    {"fifo", [](const std::string& path) { mkfifo(path.c_str(), 0600); }},
    {"directory", [](const std::string& path) { fs::create_directory(path); }},
    {"socket", [](const std::string& path) { mknod(path.c_str(), S_IFSOCK | 0600, 0); }},
    {"link to a fifo", linkTo("/run/fifo")},
    {"link to a device", linkTo("/dev/zero")}};

// Each is answered as when there is no map, unless it would make the map.
static const std::map<std::string, VectorString> Calls = {
    // clang-format off
    {VDOMAINFILE, {"VHostFile(d;AddDomain)", "VHostFile(d;RmvDomain)", "DeleteMailDomain(d)"}},
    {"vpasswd", {"PasswdFile(u)", "GetMailboxList(d)", "GetMailboxCount(d)",
                 "DeleteDomMailboxes(d;/etc/vmail/vpasswd)", "addDovecotQuota(u@d;/h;5)",
                 "UpdateMailbox(u@d;admin;UpdateUserType)"}},
    {"vshadow", {"ShadowFile(u)", "IsMailboxExists(u@d)", "UpdateMailbox(u@d;x;UpdatePasswd)"}},
    {"vmaps.txt", {"VMaps(u;d;AddUser)", "VMaps(u@d;d;RmvUser)", "UpdateCatchAllAddress(d;u)",
                   "RemoveCatchAllAddress(d)", "RetreiveCatchAllAddress(d)"}},
    {"valias.txt", {"VAlias(u@d;a@b;AddAlias)", "VAlias(u@d;a@b;UpdateAlias)",
                    "VAlias(u@d;;DeleteAlias)", "VList(l@d;a@b;AddList)",
                    "VList(l@d;a@b;UpdateList)", "VList(l@d;;DeleteList)",
                    "DeleteDomAliases(d)", "GetAliasList(u@d)", "GetLists(d)",
                    "GetListSettings(l@d)", "RetrieveAlias(u@d)"}},
    {"vquota.txt", {"VQuota(u@d;5;AddQuota)", "VQuota(u@d;5;UpdateQuota)", "RetrieveQuota(u@d)",
                    "VQuota(u@d;;DeleteQuota)", "RetrieveDomainQuota(d)"}}};
// clang-format on

// The real postmap would wait for a fifo's content too.
struct OddFiles : WithPostmap {
    void SetUp() override
    {
        mkfifo("/run/fifo", 0600);
        signal(SIGALRM, reportHang);
    }
    void TearDown() override
    {
        alarm(0);
        fs::remove("/run/fifo");
    }

    static void begin(const std::string& what, const std::string& map, const Maker& make)
    {
        underWay = what + " at " + map + "\n";
        alarm(10);
        putEmptyMaps();
        fs::remove(pathOf(map));
        make(pathOf(map));
    }
};

TEST_F(OddFiles, NoCallWaitsForThemOrTakesThemForMaps)
{
    for (const auto& [map, calls] : Calls)
        for (const std::string& call : calls) {
            begin(call, map, [](const std::string&) {}); // no map
            const bool isWriter = call == "PasswdFile(u)" || call == "ShadowFile(u)";
            const std::string answer = isWriter ? "306" : run(Files, call);
            for (const auto& [kind, make] : Kinds) {
                SCOPED_TRACE(kind + " at " + map + ": " + call);
                begin(kind + ": " + call, map, make);
                EXPECT_EQ(run(Files, call), answer);
                EXPECT_FALSE(fs::is_regular_file(pathOf(map)));
            }
        }
    for (const auto& [kind, make] : Kinds) {
        SCOPED_TRACE(kind);
        begin(kind, QVCONFFILE, make);
        std::string value;
        EXPECT_FALSE(QVConfFileManager().isParamExistInQVConfFile(QVCONFFILE, "DovecotLDA"));
        EXPECT_EQ(QVConfFileManager().getParamFromQVConfFile(QVCONFFILE, value, "DovecotLDA"), 0);
        EXPECT_EQ(run(Files, "CreateMailDomain(d;u;secret;5)"), "303");
    }
}

// A hole of 5 GB is a line without an end.
TEST_F(OddFiles, ALineWithoutAnEndFillsNoMemory)
{
    std::system("ln -sf /bin/true /run/bin/postmap");
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    for (const auto& [map, calls] : Calls)
        for (const std::string& call : calls) {
            begin("hole: " + call, map, [](const std::string& path) {
                std::ofstream(path).close();
                fs::resize_file(path, 5LL << 30);
            });
            run(Files, call);
        }
    getrusage(RUSAGE_SELF, &after);
    // In KiB; sanitizers keep some of what is freed.
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 1 << 20);
}
