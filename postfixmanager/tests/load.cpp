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

using Entries = std::map<std::string, std::string>; // by whole address
using Names = std::multiset<std::string>;

// What must be hosted. A list's members are between commas.
struct Hosted {
    Entries domains, quotas, aliases, lists; // domains: without values; quotas: of the mailboxes
};

static Entries entriesIn(const std::string& domain, const Entries& all)
{
    Entries found;
    for (const auto& [address, value] : all)
        if (address.substr(address.find('@') + 1) == domain)
            found[address] = value;
    return found;
}

// As a list of them is answered.
static std::string usersOf(const Entries& entries)
{
    std::string answer = "0";
    for (const auto& [address, value] : entries)
        answer += " " + address.substr(0, address.find('@'));
    return answer;
}

struct Step {
    std::string call, answer;
};

// Each choice is one that both backends answer alike.
struct Generator {
    std::mt19937 chance;
    Hosted hosted = {};

    unsigned below(std::size_t limit) { return chance() % limit; }

    // In a transaction, one name may be a part of another.
    Step step(bool inTransaction)
    {
        const unsigned number = below(4);
        const std::string longer = std::string("dcba").substr(number);
        const std::string user = inTransaction ? longer : "u" + std::to_string(number);
        const std::string list = inTransaction ? "list" + longer : "l" + std::to_string(number);
        const std::string other = inTransaction ? "ab.test" : "two.test";
        const std::string domain = below(2) == 0 ? other : inTransaction ? "b.test" : "one.test";
        if (hosted.domains.count(domain) == 0)
            return createDomain(domain);
        switch (below(8)) {
        case 0:
            return below(30) == 0 ? deleteDomain(domain) : ask(domain, user + "@" + domain);
        case 1:
            return {"UpdateCatchAllAddress(" + domain + ";boss)", "332"};
        case 2:
        case 3:
            return changeList(list + "@" + domain);
        case 4:
            return ask(domain, user + "@" + domain);
        default:
            return changeMailbox(domain, user);
        }
    }

    Step createDomain(const std::string& domain)
    {
        hosted.domains[domain];
        hosted.quotas["boss@" + domain] = "2048";
        return {"CreateMailDomain(" + domain + ";boss;secret;2048)", "303"};
    }

    Step deleteDomain(const std::string& domain)
    {
        hosted.domains.erase(domain);
        for (Entries* const entries : {&hosted.quotas, &hosted.aliases, &hosted.lists})
            for (const auto& [address, value] : entriesIn(domain, *entries))
                entries->erase(address);
        return {"DeleteMailDomain(" + domain + ")", "317"};
    }

    Step ask(const std::string& domain, const std::string& address)
    {
        const Entries mailboxes = entriesIn(domain, hosted.quotas);
        const auto alias = hosted.aliases.find(address);
        long total = 0;
        for (const auto& [each, quota] : mailboxes)
            total += std::stol(quota);
        const std::vector<Step> questions = {
            {"GetMailboxList(" + domain + ")", usersOf(mailboxes)},
            {"GetMailboxCount(" + domain + ")", std::to_string(mailboxes.size())},
            {"RetrieveDomainQuota(" + domain + ")", "1 " + std::to_string(total / 1024)},
            {"GetLists(" + domain + ")", usersOf(entriesIn(domain, hosted.lists))},
            {"IsMailboxExists(" + address + ")", mailboxes.count(address) > 0 ? "true" : "false"},
            {"IsMailboxExists(BOSS@" + domain + ")", "true"},
            {"RetrieveAlias(" + address + ")", alias == hosted.aliases.end() ? "" : alias->second}};
        return questions[below(questions.size())];
    }

    Step changeMailbox(const std::string& domain, const std::string& user)
    {
        const std::string address = user + "@" + domain;
        const std::string quota = std::to_string(1024 * (1 + below(9)));
        if (hosted.quotas.count(address) == 0) {
            hosted.quotas[address] = quota;
            return {"CreateMailbox(" + domain + ";" + user + ";" + quota + ")", "305"};
        }
        if (below(2) == 0) {
            hosted.quotas[address] = quota;
            return {"VQuota(" + address + ";" + quota + ";UpdateQuota)", "325"};
        }
        if (hosted.aliases.erase(address) > 0)
            return {"VAlias(" + address + ";;DeleteAlias)", "329"};
        if (below(2) == 0) {
            hosted.aliases[address] = "to" + quota + "@x.org";
            return {"VAlias(" + address + ";to" + quota + "@x.org;AddAlias)", "327"};
        }
        hosted.quotas.erase(address);
        return {"DeleteMailbox(" + user + ";" + domain + ")", "307"};
    }

    Step changeList(const std::string& list)
    {
        const bool isThere = hosted.lists.count(list) > 0;
        const unsigned choice = isThere ? below(3) : 2;
        if (choice == 0) {
            hosted.lists.erase(list);
            return {"VList(" + list + ";;DeleteList)", "319"};
        }
        if (choice == 1)
            return {"GetListSettings(" + list + ")", "0 " + hosted.lists[list]};
        const std::string members = "a" + std::to_string(below(9)) + "@x.org,b@y.org";
        hosted.lists[list] = members;
        return {"VList(" + list + ";" + members + (isThere ? ";UpdateList)" : ";AddList)"),
                isThere ? "323" : "310"};
    }
};

// Files answer a list's members as one text with commas, tables each by itself and in any order.
static Names wordsOf(std::string answer)
{
    std::replace(answer.begin(), answer.end(), ',', ' ');
    std::istringstream stream(answer);
    return {std::istream_iterator<std::string>(stream), {}};
}

// The names that begin the lines; catch-alls aside.
static Names namesIn(const std::string& text)
{
    std::istringstream stream(text);
    Names names;
    for (std::string line; std::getline(stream, line);)
        if (!line.empty() && line[0] != '@')
            names.insert(line.substr(0, line.find_first_of(" \t:")));
    return names;
}

static Names namesOf(const Entries& entries)
{
    Names names;
    for (const auto& [name, value] : entries)
        names.insert(name);
    return names;
}

static void checkInvariants(Backend backend, const Hosted& hosted)
{
    Entries forwards = hosted.lists;
    forwards.insert(hosted.aliases.begin(), hosted.aliases.end());
    if (backend == Files) {
        for (const char* const map : {"vpasswd", "vshadow", "vmaps.txt", "vquota.txt"})
            EXPECT_EQ(namesIn(get(map)), namesOf(hosted.quotas)) << map;
        EXPECT_EQ(namesIn(get("valias.txt")), namesOf(forwards));
        EXPECT_EQ(namesIn(get("/etc/VirtualHosts")), namesOf(hosted.domains));
    } else {
        const std::string aliases = " from virtual_aliases where source <> destination";
        EXPECT_EQ(namesIn(sql("select email from virtual_users")), namesOf(hosted.quotas));
        EXPECT_EQ(namesIn(sql("select distinct source" + aliases)), namesOf(forwards));
        EXPECT_EQ(namesIn(sql("select name from virtual_domains")), namesOf(hosted.domains));
        EXPECT_EQ(sql("select source from virtual_aliases group by source, destination having "
                      "count(*) > 1"),
                  "");
    }
    for (const auto& [domain, value] : hosted.domains)
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
    std::system("du -sb --exclude='*.db' /etc /var/spool/vmail /run/tmp > /run/held");
    std::istringstream sizes(get("/run/held"));
    for (std::size_t size; sizes >> size; sizes.ignore(100, '\n'))
        now.bytes += size;
    return now;
}

struct Load : WithPostmap {
    void perform(PostfixManager& manager, const Step& step)
    {
        EXPECT_EQ(wordsOf(run(manager, step.call)), wordsOf(step.answer)) << step.call;
        ++performed;
    }

    // A sixth of the rounds is a transaction of up to five steps, a quarter of which is dropped.
    void play(Backend backend, unsigned seed, std::size_t count)
    {
        SCOPED_TRACE("backend " + std::to_string(backend) + ", seed " + std::to_string(seed));
        Generator generator{std::mt19937(seed)};
        TestManager manager(backend);
        for (const std::size_t end = performed + count; performed < end && !HasFailure();) {
            if (generator.below(6) != 0) {
                perform(manager, generator.step(false));
            } else {
                PostfixTransaction transaction(manager);
                ASSERT_EQ(transaction.open(0), PostfixTransaction::Done) << transaction.reason();
                const Hosted before = generator.hosted;
                for (unsigned i = 1 + generator.below(5); i > 0; --i)
                    perform(manager, generator.step(true));
                if (generator.below(4) == 0) {
                    transaction.drop();
                    generator.hosted = before;
                } else {
                    EXPECT_EQ(transaction.commit(), PostfixTransaction::Done)
                        << transaction.reason();
                }
            }
            checkInvariants(backend, generator.hosted);
        }
        for (const auto& [domain, value] : Entries(generator.hosted.domains))
            perform(manager, generator.deleteDomain(domain));
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
        putEmptyMaps();
        Held early;
        for (unsigned round = 1; round <= Rounds && !HasFailure(); ++round) {
            play(backend, round, all / 2 / Rounds);
            const Held now = held();
            std::cout << "round " << round << ": " << now.descriptors << " descriptors, "
                      << now.memory << " KiB of memory, " << now.bytes << " bytes on disk\n";
            if (round <= 2) {
                early = now;
                continue;
            }
            EXPECT_EQ(now.descriptors, early.descriptors);
            EXPECT_LE(now.memory, early.memory + MayGrow);
            EXPECT_LE(now.bytes, early.bytes + 4096); // the copies FILE.qvbackup differ
        }
    }
    std::cout << "reliability: {\"operations on both backends\": " << performed << "}" << std::endl;
}
