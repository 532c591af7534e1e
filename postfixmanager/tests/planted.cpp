// What others put in the place of maps and settings: no call waits for ever.
#include "system/LargeFilesAndDates.h"

#include "PostfixTransaction.h"
#include "QVConfFileManager.h"
#include "fixture.h"

#include <csignal>
#include <filesystem>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

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
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 256 * 1024);
}
