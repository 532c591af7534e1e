#include "system/LargeFilesAndDates.h"

#include "fixture.h"

#include "DovecotManager.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <regex>
#include <sstream>

#include <dlfcn.h>
#include <glob.h>
#include <mysql/mysql.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace fs = std::filesystem;

std::string happened;

static bool watching = false;
static timeval clockSetTo{};
static MYSQL* const Administrator = mysql_init(nullptr);

// The tables and the number of "|" in their rows.
static const std::pair<std::string, int> Tables[] = {
    {"virtual_domains", 0}, {"virtual_users", 2}, {"virtual_aliases", 1}};

std::string pathOf(const std::string& name)
{
    return name[0] == '/' ? name : "/etc/vmail/" + name;
}

std::string get(const std::string& name)
{
    std::ifstream file(pathOf(name));
    return {std::istreambuf_iterator<char>(file), {}};
}

static VectorString split(const std::string& text, char mark)
{
    VectorString parts;
    std::istringstream stream(text + mark);
    for (std::string part; std::getline(stream, part, mark);)
        parts.push_back(part);
    return parts;
}

// ---- The record of what happens: it goes to standard output, between what the library prints ----

static void note(const std::string& line)
{
    if (watching)
        std::cout << line << std::flush;
}

static struct : CQVTrackManager {
    void CQVModuleName(std::string name) override { note("> module " + name + "\n"); }
    void CQVMethodName(std::string name) override { note("> " + name); }
    void CQVMethodArguments(VectorString values, VectorString names) override
    {
        std::string line;
        for (std::size_t i = 0; i < std::max(values.size(), names.size()); ++i)
            line += (i ? ", " : "") + names.at(i) + "=" + values.at(i);
        note("(" + line + ")\n");
    }
} recorder;

// These stand before the C library's: commands are noted before the shell gets them, and the clock
// stands where a test sets it.
#define VISIBLE extern "C" __attribute__((visibility("default")))

VISIBLE int system(const char* command)
{
    note(std::string("$ ") + command + "\n");
    static const auto real = reinterpret_cast<int (*)(const char*)>(dlsym(RTLD_NEXT, "system"));
    return real((std::string(command) + " 2>/dev/null").c_str());
}

VISIBLE int gettimeofday(timeval* now, void*) noexcept
{
    *now = clockSetTo;
    return 0;
}

VISIBLE time_t time(time_t* result) noexcept
{
    return result != nullptr ? *result = clockSetTo.tv_sec : clockSetTo.tv_sec;
}

void setClock(long long seconds, long microseconds)
{
    clockSetTo = {static_cast<time_t>(seconds), microseconds};
}

// ---- The world ----

World world()
{
    World all;
    glob_t paths{};
    glob("/etc/{vmail/*,VirtualHosts*}", GLOB_BRACE | GLOB_MARK, nullptr, &paths);
    for (std::size_t i = 0; i < paths.gl_pathc; ++i) {
        const std::string path = paths.gl_pathv[i];
        all[path.substr(path.find("vmail/") == 5 ? 11 : 0)] = path.back() == '/' ? "" : get(path);
    }
    globfree(&paths);
    for (const auto& [table, bars] : Tables)
        all["tables"] += sql("select * from " + table + " order by id");
    if (all["tables"].empty())
        all.erase("tables");
    return all;
}

void put(const World& world)
{
    for (const auto& [name, content] : world) {
        for (const std::string& row : split(name == "tables" ? content : "", '\n'))
            for (const auto& [table, bars] : Tables)
                if (!row.empty() && std::count(row.begin(), row.end(), '|') == bars)
                    sql("insert into " + table + " values ('" +
                        std::regex_replace(row, std::regex("\\|"), "','") + "')");
        if (name == "tables")
            continue;
        const std::string path = pathOf(name);
        fs::create_directories(path.substr(0, path.rfind('/')));
        if (path.back() != '/')
            std::ofstream(path) << content;
        if (chown(path.c_str(), 12, 34) != 0 || chmod(path.c_str(), 0600) != 0)
            throw std::runtime_error("cannot prepare " + path);
    }
}

std::string rights(const std::string& name)
{
    struct stat entry;
    if (lstat(pathOf(name).c_str(), &entry) != 0)
        return "missing";
    std::ostringstream text;
    const passwd* owner = getpwuid(entry.st_uid);
    text << (owner ? owner->pw_name : std::to_string(entry.st_uid)) << std::oct << " "
         << (entry.st_mode & 07777U) << " ";
    for (const char* account : {"root", "mail", "qvadmin"})
        if ((owner = getpwnam(account)) != nullptr && owner->pw_gid == entry.st_gid)
            return text.str() + account + "'s";
    return text.str() + std::to_string(entry.st_gid);
}

void emptyWorld()
{
    setClock(1700000000, 123456);
    std::system("rm -rf /etc/vmail /etc/VirtualHosts* /etc/Quorvel.conf /var/spool/vmail;"
                "mkdir /etc/vmail /var/spool/vmail; cp /run/passwd /run/group /etc");
    for (const auto& [table, bars] : Tables)
        sql("delete from " + table);
}

WithPostmap::WithPostmap()
{
    std::system("ln -sf /usr/sbin/postmap /run/bin/postmap; : > /etc/postfix/main.cf;"
                "touch -d @1 /etc/postfix/main.cf");
}

WithPostmap::~WithPostmap()
{
    std::system("ln -sf /bin/true /run/bin/postmap");
}

void WithPostmap::putAsRoot(const World& files)
{
    put(files);
    std::system("chown root: /etc/VirtualHosts /etc/vmail/v*; chmod 644 /etc/VirtualHosts "
                "/etc/vmail/v*");
}

void WithPostmap::putEmptyMaps()
{
    emptyWorld();
    putAsRoot({{"/etc/VirtualHosts", ""},
               {"vpasswd", ""},
               {"vshadow", ""},
               {"vmaps.txt", ""},
               {"valias.txt", ""},
               {"vquota.txt", ""}});
}

void removeAccount(const std::string& name)
{
    std::system(("sed -i '/^" + name + ":/d' /etc/passwd /etc/group").c_str());
}

std::string sql(const std::string& statement)
{
    if (mysql_query(Administrator, statement.c_str()) != 0)
        throw std::runtime_error(statement + ": " + mysql_error(Administrator));
    std::string rows;
    MYSQL_RES* const result = mysql_store_result(Administrator);
    for (MYSQL_ROW row; result != nullptr && (row = mysql_fetch_row(result)) != nullptr;)
        for (unsigned i = 0, columns = mysql_num_fields(result); i < columns; ++i)
            rows += row[i] + std::string(i + 1 < columns ? "|" : "\n");
    mysql_free_result(result);
    return rows;
}

std::size_t openConnections()
{
    std::string count;
    int patience = 50; // a closed one may take a while
    do
        count = sql("select count(*) from information_schema.processlist where user like 'qv%'");
    while (count != "0\n" && --patience > 0 && usleep(10000) == 0);
    sql("kill user qvmail");
    return stoul(count);
}

// ---- Operations ----

TestManager::TestManager(Backend backend)
    : PostfixManager(&recorder, "yes", backend == Files ? "files" : "MySQL", "127.0.0.1",
                     backend == SqlNoServer ? "3399" : "3306",
                     backend == SqlReadOnly ? "qvmailread" : "qvmail",
                     backend == SqlWrongPassword ? "wrong" : "secret",
                     backend == SqlWrongDatabase ? "absent" : "qvmail")
{
    ErrNo = Untouched;
}

Account::Account(const std::string& user, const std::string& domain)
    : address(user + "@" + domain), home("/home/" + address)
{
    passwd = {address.data(), locked, 1, 2, comment, home.data(), shell};
    shadow.sp_namp = address.data();
    shadow.sp_pwdp = password;
    shadow.sp_expire = -1;
    shadow.sp_flag = 1;
}

template <class Answer> static std::string text(const Answer& answer)
{
    std::ostringstream stream;
    stream << std::boolalpha << answer;
    return stream.str();
}

struct Outputs { // what a call may fill, as it was before
    VectorString list = {"kept"}, members;
    std::string word = "kept";
    long long number = Untouched;
};

struct Operation {
    const char* traced; // "$0" is the first argument
    std::function<std::string(PostfixManager&, const VectorString&, Outputs&)> run;
};

// clang-format off
#define RUN(...) [](PostfixManager& m, const VectorString& a, Outputs& out) { \
        return (void)m, (void)out, text(__VA_ARGS__); }
#define OP(name, names, ...) \
    {#name, {"> Postfix_" #name "(" names ")\n", RUN(m.Postfix_##name(__VA_ARGS__))}}
#define SILENT(name, ...) {#name, {"", RUN(m.Postfix_##name(__VA_ARGS__))}}
#define AGENT(name, ...) {#name, {"", RUN(DovecotManager().name(__VA_ARGS__))}}

static const std::map<std::string, Operation> Operations = {
    OP(CreateMailDomain, "DomainName=$0, UserName=$1, Passwd=$2, Quota=$3",
       a[0], a[1], a[2], a[3]),
    OP(CreateDomDir, "$0=$0", a[0]),
    {"DeleteMailDomain", {"> Postfix_CreateMailDomain(DomainName=$0)\n",
        RUN(m.Postfix_DeleteMailDomain(a[0]))}},
    OP(DeleteDomMailboxes, "DomainName=$0, FPath=$1", a[0], a[1]),
    OP(DeleteDomAliases, "DomainName=$0", a[0]),
    OP(VHostFile, "DomainName=$0, Task=$1", a[0], a[1]),
    OP(CreateMailbox, "DomainName=$0, UserName=$1, Quota=$2",
       &Account(a[1], a[0]), a[0], a[1], a[2]),
    OP(DeleteMailbox, "UserName=$0, DomainName=$1", a[0], a[1]),
    OP(DeleteMailboxUser, "UserName=$0, FPath=$1", a[0], a[1].c_str()),
    {"UpdateMailbox", {"PostfixManager::Postfix_UpdateMailbox\n"
        "> Postfix_UpdateMailbox(Mailbox=$0, Value=$1, Action=$2)\n",
        RUN(m.Postfix_UpdateMailbox(a[0], a[1], a[2]))}},
    OP(VMaps, "UserName=$0, DomainName=$1, Task=$2", a[0], a[1], a[2]),
    OP(PasswdFile, "", &Account(a[0], "d")),
    OP(ShadowFile, "", &Account(a[0], "d")),
    OP(GetMailboxList, "DomainName=$0", a[0], &out.list),
    OP(VQuota, "Mailbox=$0, Quota=$1, Action=$2", a[0], a[1], a[2]),
    OP(RetrieveQuota, "UserName=$0", a[0]),
    OP(VAlias, "Mailbox=$0, Alias=$1, Action=$2", a[0], a[1], a[2]),
    OP(VList, "ListName=$0, Action=$2", // the elements between "&"
       a[0], &(out.members = a[1].empty() ? VectorString() : split(a[1], '&')), a[2]),
    OP(GetAliasList, "EmailAddress=$0", a[0], &out.list),
    OP(RetrieveAlias, "UserName=$0", a[0]),
    OP(GetLists, "DomainName=$0", a[0], &out.list),
    OP(GetListSettings, "EmailAddress=$0", a[0], &out.list),
    OP(UpdateCatchAllAddress, "Domain=$0, CatchAllAddress=$1", a[0], a[1]),
    SILENT(GetMailboxCount, a[0]), SILENT(IsMailboxExists, a[0]), SILENT(IsVAliasExists, a[0]),
    SILENT(IsVListExists, a[0]), SILENT(IsCatchAllExists, a[0]),
    SILENT(RemoveCatchAllAddress, a[0]), SILENT(IsDomainHasUnlimitedQuota, a[0]),
    SILENT(RetreiveCatchAllAddress, a[0], out.word), SILENT(RetrieveDomainQuota, a[0], out.number),
    AGENT(addDovecotQuota, a[0], a[1], a[2]), AGENT(editDovecotQuota, a[0], a[1]),
    AGENT(deleteDovecotQuota, a[0]),
};
// clang-format on

static std::pair<std::string, VectorString> parse(const std::string& call)
{
    const std::size_t open = call.find('(');
    return {call.substr(0, open), split(call.substr(open + 1, call.size() - open - 2), ';')};
}

std::string watched(const std::function<void()>& work)
{
    testing::internal::CaptureStdout();
    watching = true;
    work();
    watching = false;
    return testing::internal::GetCapturedStdout();
}

std::string run(PostfixManager& manager, const std::string& call)
{
    const auto [name, arguments] = parse(call);
    Outputs out;
    std::string answer;
    happened = watched([&, name = name, arguments = arguments] {
        answer = Operations.at(name).run(manager, arguments, out);
    });
    if (out.word != "kept")
        answer += " " + out.word;
    for (std::size_t i = 1; i < out.list.size(); ++i)
        answer += " " + out.list[i];
    return out.number == Untouched ? answer : answer + " " + std::to_string(out.number);
}

std::string run(Backend backend, const std::string& call)
{
    TestManager manager(backend);
    return run(manager, call);
}

std::string traced(const std::string& call)
{
    const auto [name, arguments] = parse(call);
    std::string line = Operations.at(name).traced;
    for (std::size_t mark; (mark = line.find('$')) != std::string::npos;)
        line.replace(mark, 2, arguments[line[mark + 1] - '0']);
    return line;
}

std::string copied(const std::string& file, const std::string& suffix)
{
    return "$ cp " + pathOf(file) + " " + pathOf(file) + suffix + "\n";
}

std::string published(const std::string& map)
{
    return "$ postmap " + pathOf(map) + "\n$ postfix reload\n";
}

// ---- Cases ----

static std::string ended(const std::string& lines)
{
    return lines.empty() || lines.back() == '\n' ? lines : lines + "\n";
}

void check(const std::vector<Case>& cases, Backend backend)
{
    for (const Case& c : cases) {
        SCOPED_TRACE("row: " + c.call + " on " + testing::PrintToString(c.before));
        TestManager manager(backend);
        emptyWorld();
        put(c.before);
        World expected = world();
        for (const auto& [name, content] : c.changes)
            expected[name] = content;
        for (auto entry = expected.begin(); entry != expected.end();)
            entry = entry->second == "gone" ? expected.erase(entry) : std::next(entry);
        EXPECT_EQ(run(manager, c.call), c.result);
        EXPECT_EQ(happened, traced(c.call) + ended(c.steps));
        EXPECT_EQ(world(), expected);
        EXPECT_EQ(manager.ErrNo, c.errNo);
        EXPECT_EQ(backend == Files ? 0U : openConnections(), 0U);
        for (const auto& [name, owner] : c.rights)
            EXPECT_EQ(rights(name), owner) << name;
    }
}

void check(const Variant& v, const std::vector<MapCase>& cases)
{
    for (const MapCase& m : cases) {
        const bool isThere = m.before != nullptr, copies = v.copiesAlways || isThere;
        Case c = {m.call, {}, m.result, {}, ended(m.printed) + (m.path != Kept ? v.commands : "")};
        if (isThere)
            c.before[v.map] = m.before;
        if (isThere && !v.suffix.empty())
            c.changes[v.map + v.suffix] = m.before;
        if (copies && !v.suffix.empty())
            c.steps = copied(v.map, v.suffix) + c.steps;
        if (m.after != nullptr)
            c.changes[v.map] = m.after;
        c.rights["."] = v.opensDirectory && copies ? "root 755 root's" : "root 760 root's";
        const bool isNew = m.path == Made || m.path == Rewritten;
        if (isNew || isThere)
            c.rights[v.map] = isNew ? v.newRights : "12 600 34";
        if (v.keepsErrNo && m.path != Kept)
            c.errNo = stoi(m.result);
        check({c});

        c.before[v.workFile] = "left\nover ";
        c.rights.erase(v.map);
        if (m.path == Rewritten) {
            c.changes[v.workFile] = "gone";
            c.changes[v.map] = std::string("left\nover ") + m.after;
        }
        if (!v.workFile.empty())
            check({c});
    }
}

void check(const std::vector<TableCase>& cases, Backend backend)
{
    for (const TableCase& c : cases) {
        const World after = {{"tables", c.after.empty() ? "gone" : c.after}};
        check({{c.call, {{"tables", c.before}}, c.result, after, c.steps}}, backend);
    }
}

int main(int count, char** arguments)
{
    if (std::system("(" SCRIPTS "/private-world --inside 2>&1)") != 0)
        return 1;
    // Accounts come from the files alone, so that "root" can be missing too, and the commands of a
    // mail server that is not running succeed at once.
    std::system("sed -i -E 's/^(passwd|group):.*/\\1: files/' /etc/nsswitch.conf; mkdir /run/bin;"
                "ln -s /bin/true /run/bin/postmap; ln -s /bin/true /run/bin/postfix;"
                "cp /etc/passwd /etc/group /run");
    setenv("PATH", (std::string("/run/bin:") + getenv("PATH")).c_str(), 1);
    std::system(SCRIPTS "/start-mariadb </dev/null >/run/start-mariadb.log");
    mysql_real_connect(Administrator, "localhost", "root", "", "qvmail", 0, nullptr, 0);
    umask(017); // so that a mode nobody sets shows: 0660

    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}
