// Load: many operations in an order that a seed gives, plain and in transactions, on both backends.
#include "PostfixTransaction.h"
#include "fixture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <set>
#include <sstream>

namespace fs = std::filesystem;

using Words = std::set<std::string>;
using Forwards = std::map<std::string, std::string>;

// What must be hosted; by whole addresses. A list's members are between commas.
struct Hosted {
    std::map<std::string, Words> users; // by domain
    std::map<std::string, long> quotas; // of the mailboxes
    Forwards aliases, lists;
};

struct Step {
    std::string call, answer;
};

static std::string userOf(const std::string& address)
{
    return address.substr(0, address.find('@'));
}

// Each choice is one that both backends answer alike. Without a transaction, no name may hold another.
struct Generator {
    std::mt19937 chance;
    Hosted hosted = {};

    unsigned below(std::size_t limit) { return chance() % limit; }
    template <class Many> auto oneOf(const Many& many)
    {
        return *std::next(many.begin(), below(many.size()));
    }

    Step hostDomain(const std::string& domain)
    {
        if (hosted.users.count(domain) == 0) {
            hosted.users[domain] = {"boss"};
            hosted.quotas["boss@" + domain] = 2048;
            return {"CreateMailDomain(" + domain + ";boss;secret;2048)", "303"};
        }
        if (below(30) != 0)
            return look(domain);
        hosted.users.erase(domain);
        for (Forwards* const forwards : {&hosted.aliases, &hosted.lists})
            drop(*forwards, domain);
        drop(hosted.quotas, domain);
        return {"DeleteMailDomain(" + domain + ")", "317"};
    }

    template <class Map> static void drop(Map& map, const std::string& domain)
    {
        for (auto i = map.begin(); i != map.end();)
            i = i->first.substr(i->first.find('@') + 1) == domain ? map.erase(i) : std::next(i);
    }

    Step look(const std::string& domain)
    {
        const Words& users = hosted.users[domain];
        const std::string address = oneOf(users) + "@" + domain;
        std::string names, lists;
        long sum = 0;
        for (const std::string& user : users) {
            names += " " + user;
            sum += hosted.quotas[user + "@" + domain];
        }
        for (const auto& [list, members] : hosted.lists)
            if (list.substr(list.find('@') + 1) == domain)
                lists += " " + userOf(list);
        const auto alias = hosted.aliases.find(address);
        const std::vector<Step> questions = {
            {"GetMailboxList(" + domain + ")", "0" + names},
            {"GetMailboxCount(" + domain + ")", std::to_string(users.size())},
            {"RetrieveDomainQuota(" + domain + ")", "1 " + std::to_string(sum / 1024)},
            {"GetLists(" + domain + ")", "0" + lists},
            {"IsMailboxExists(" + address + ")", "true"},
            {"IsMailboxExists(no-one@" + domain + ")", "false"},
            {"RetrieveAlias(" + address + ")", alias == hosted.aliases.end() ? "" : alias->second}};
        return oneOf(questions);
    }

    Step changeMailbox(const std::string& domain, const std::string& user)
    {
        const std::string address = user + "@" + domain;
        Words& users = hosted.users[domain];
        const long quota = 1024L * (1 + below(9));
        if (users.count(user) == 0) {
            users.insert(user);
            hosted.quotas[address] = quota;
            return {"CreateMailbox(" + domain + ";" + user + ";" + std::to_string(quota) + ")",
                    "305"};
        }
        if (below(2) == 0) {
            hosted.quotas[address] = quota;
            return {"VQuota(" + address + ";" + std::to_string(quota) + ";UpdateQuota)", "325"};
        }
        if (hosted.aliases.count(address) != 0) {
            hosted.aliases.erase(address);
            return {"VAlias(" + address + ";;DeleteAlias)", "329"};
        }
        if (below(2) == 0) {
            hosted.aliases[address] = "to" + std::to_string(quota) + "@x.org";
            return {"VAlias(" + address + ";" + hosted.aliases[address] + ";AddAlias)", "327"};
        }
        users.erase(user);
        hosted.quotas.erase(address);
        return {"DeleteMailbox(" + user + ";" + domain + ")", "307"};
    }

    Step changeList(const std::string& domain, const std::string& user)
    {
        const std::string list =
            (user[0] == 'u' ? "l" + user.substr(1) : "list" + user) + "@" + domain;
        const bool isThere = hosted.lists.count(list) != 0;
        if (isThere && below(3) == 0) {
            hosted.lists.erase(list);
            return {"VList(" + list + ";;DeleteList)", "319"};
        }
        if (isThere && below(3) == 0)
            return {"GetListSettings(" + list + ")", "0 " + hosted.lists[list]};
        const std::string members = "a" + std::to_string(below(9)) + "@x.org,b@y.org";
        hosted.lists[list] = members;
        return {"VList(" + list + ";" + members + (isThere ? ";UpdateList)" : ";AddList)"),
                isThere ? "323" : "310"};
    }

    Step changeCatchAll(const std::string& domain)
    {
        return {"UpdateCatchAllAddress(" + domain + ";boss)", "332"};
    }

    Step step(bool inTransaction)
    {
        const std::vector<std::string> domains =
            inTransaction ? std::vector<std::string>{"b.test", "ab.test"}
                          : std::vector<std::string>{"one.test", "two.test"};
        const std::vector<std::string> users = {"a", "ba", "cba", "dcba"};
        const std::string domain = oneOf(domains);
        const std::string user = inTransaction ? oneOf(users) : "u" + std::to_string(below(9));
        if (hosted.users.count(domain) == 0)
            return hostDomain(domain);
        switch (below(8)) {
        case 0:
            return hostDomain(domain);
        case 1:
            return changeCatchAll(domain);
        case 2:
        case 3:
            return changeList(domain, user);
        case 4:
            return look(domain);
        default:
            return changeMailbox(domain, user);
        }
    }
};

// Files answer a list's members as one text with commas, tables each by itself.
static std::string sorted(std::string answer)
{
    std::replace(answer.begin(), answer.end(), ',', ' ');
    std::istringstream stream(answer);
    std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    std::sort(words.begin() + (words.empty() ? 0 : 1), words.end());
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

// The names that begin the lines; catch-alls aside. Sorted, and as often as they are there.
static std::vector<std::string> namesIn(const std::string& text, const std::string& ends = " \t:|")
{
    std::istringstream stream(text);
    std::vector<std::string> names;
    for (std::string line; std::getline(stream, line);)
        if (!line.empty() && line[0] != '@')
            names.push_back(line.substr(0, line.find_first_of(ends)));
    std::sort(names.begin(), names.end());
    return names;
}

template <class Map> static std::vector<std::string> keysOf(const Map& map)
{
    std::vector<std::string> keys;
    keys.reserve(map.size());
    for (const auto& [key, value] : map)
        keys.push_back(key);
    return keys;
}

static void checkInvariants(Backend backend, const Hosted& hosted)
{
    const std::vector<std::string> mailboxes = keysOf(hosted.quotas);
    Forwards forwards = hosted.lists;
    forwards.insert(hosted.aliases.begin(), hosted.aliases.end());
    if (backend == Files) {
        for (const char* const map : {"vpasswd", "vshadow", "vmaps.txt", "vquota.txt"})
            EXPECT_EQ(namesIn(get(map)), mailboxes) << map;
        EXPECT_EQ(namesIn(get("valias.txt")), keysOf(forwards));
        EXPECT_EQ(namesIn(get("/etc/VirtualHosts")), keysOf(hosted.users));
    } else {
        EXPECT_EQ(namesIn(sql("select email from virtual_users")), mailboxes);
        EXPECT_EQ(
            namesIn(sql("select distinct source from virtual_aliases where source <> destination")),
            keysOf(forwards));
        EXPECT_EQ(namesIn(sql("select name from virtual_domains")), keysOf(hosted.users));
        EXPECT_EQ(sql("select source from virtual_aliases group by source, destination having "
                      "count(*) > 1"),
                  "");
    }
    for (const auto& [domain, users] : hosted.users)
        for (const char* const directory : {"inbox", "home"})
            EXPECT_TRUE(fs::is_directory("/var/spool/vmail/" + domain + "/mail/" + directory));
}

// What a process may hold on to, and a disk.
struct Held {
    std::size_t descriptors = 0, memory = 0, bytes = 0; // memory in KiB
};

static Held held()
{
    Held now;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator("/proc/self/fd"))
        ++now.descriptors;
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmRSS:")
            status >> now.memory;
    for (const char* const top : {"/etc", "/var/spool/vmail", "/run/tmp"})
        for (const auto& entry : fs::recursive_directory_iterator(top))
            if (fs::is_regular_file(entry.symlink_status()) && entry.path().extension() != ".db")
                now.bytes += fs::file_size(entry.path());
    return now;
}

struct Load : testing::Test {
    static void emptyMaps() // and the real postmap, which would wait while main.cf is new
    {
        emptyWorld();
        std::system("ln -sf /usr/sbin/postmap /run/bin/postmap; : > /etc/postfix/main.cf; touch -d "
                    "@1 /etc/postfix/main.cf");
        put({{"/etc/VirtualHosts", ""},
             {"vpasswd", ""},
             {"vshadow", ""},
             {"vmaps.txt", ""},
             {"valias.txt", ""},
             {"vquota.txt", ""}});
        std::system("chown root: /etc/VirtualHosts /etc/vmail/v*; chmod 644 /etc/VirtualHosts "
                    "/etc/vmail/v*");
    }
    void TearDown() override { std::system("ln -sf /bin/true /run/bin/postmap"); }

    void perform(Backend backend, PostfixManager& manager, const Step& step)
    {
        const std::string answer = run(manager, step.call);
        EXPECT_EQ(sorted(answer), sorted(step.answer)) << step.call << " " << backend;
        ++performed;
    }

    // A third of the steps is in transactions of up to five, a quarter of which is dropped.
    void play(Backend backend, unsigned seed, std::size_t count)
    {
        Generator generator{std::mt19937(seed)};
        TestManager manager(backend);
        for (const std::size_t end = performed + count; performed < end && !HasFailure();) {
            if (generator.below(6) != 0) {
                perform(backend, manager, generator.step(false));
            } else {
                PostfixTransaction transaction(manager);
                ASSERT_EQ(transaction.open(0), PostfixTransaction::Done) << transaction.reason();
                const Hosted before = generator.hosted;
                for (unsigned i = 1 + generator.below(5); i > 0; --i)
                    perform(backend, manager, generator.step(true));
                if (generator.below(4) == 0) {
                    transaction.drop();
                    generator.hosted = before;
                } else {
                    ASSERT_EQ(transaction.commit(), PostfixTransaction::Done)
                        << transaction.reason();
                }
            }
            checkInvariants(backend, generator.hosted);
        }
        std::vector<std::string> domains = keysOf(generator.hosted.users);
        for (const std::string& domain : domains)
            perform(backend, manager, {"DeleteMailDomain(" + domain + ")", "317"});
        EXPECT_EQ(backend == Files ? 0U : openConnections(), 0U);
    }

    std::size_t performed = 0;
};

#if defined(__SANITIZE_ADDRESS__) // which gives no memory back
constexpr std::size_t MayGrow = std::size_t{1} << 30U;
#else
constexpr std::size_t MayGrow = 512; // KiB
#endif

// LOAD is how many operations; the seed of each round is its number. No world is emptied in between.
TEST_F(Load, ManyOperationsAnswerAlikeAndKeepNothing)
{
    const char* const wanted = getenv("LOAD");
    const std::size_t all = wanted == nullptr ? 800 : std::stoul(wanted);
    constexpr unsigned Rounds = 8;
    for (const Backend backend : {Files, Sql}) {
        emptyMaps();
        Held early;
        for (unsigned round = 1; round <= Rounds && !HasFailure(); ++round) {
            SCOPED_TRACE("seed " + std::to_string(round));
            play(backend, round, all / 2 / Rounds);
            const Held now = held();
            std::cout << "round " << round << ": " << now.descriptors << " descriptors, "
                      << now.memory << " KiB of memory, " << now.bytes << " bytes on disk\n";
            if (round == 2)
                early = now;
            if (round <= 2)
                continue;
            EXPECT_EQ(now.descriptors, early.descriptors);
            EXPECT_LE(now.memory, early.memory + MayGrow);
            EXPECT_LE(now.bytes, early.bytes + 4096); // the copies FILE.qvbackup differ
        }
    }
    std::cout << "reliability: {\"operations on both backends\": " << performed << "}" << std::endl;
}
