#include "CallConvention.h"
#include "maps/MapLines.h"
#include "maps/MapReader.h"
#include "maps/ShadowNames.h"

#include <bitset>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <unordered_set>

namespace
{

int listFromDatabase(const PostfixManager& manager, const std::string& domain, VectorString& lists)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return PostfixResult::NotRead;

    const bool read = sql.readFirstFields(
        "select distinct(virtual_aliases.source) from virtual_aliases, virtual_users where "
        "virtual_aliases.source not in (select email from virtual_users where email like '%@" +
            domain + "') and virtual_aliases.source like '%@" + domain +
            "' and virtual_aliases.source!='@" + domain + "'",
        [&](const std::string& source) { lists.emplace_back(textBefore(source, '@')); });
    if (!read) {
        std::cout << "No list member found" << std::endl;
        return PostfixResult::NotRead;
    }
    return PostfixResult::Done;
}

// Eight characters at a time, and letters without their case: each account's name passes here once.
struct HashIgnoringCase {
    std::size_t operator()(std::string_view text) const
    {
        constexpr std::size_t Step = sizeof(std::uint64_t);
        std::uint64_t hash = text.size();
        if (text.size() < Step) {
            for (const char c : text)
                mix(hash, static_cast<unsigned char>(c));
            return static_cast<std::size_t>(hash);
        }
        for (std::size_t i = 0; i < text.size() - Step; i += Step)
            mix(hash, eightAt(text.data() + i));
        mix(hash, eightAt(text.data() + text.size() - Step));
        return static_cast<std::size_t>(hash);
    }

private:
    static std::uint64_t eightAt(const char* text)
    {
        std::uint64_t eight;
        memcpy(&eight, text, sizeof eight);
        return eight;
    }

    static void mix(std::uint64_t& hash, std::uint64_t characters)
    {
        constexpr std::uint64_t CaseBits = 0x2020202020202020;
        constexpr std::uint64_t Multiplier = 0x9E3779B97F4A7C15;
        hash = (hash ^ (characters | CaseBits)) * Multiplier;
        hash ^= hash >> 32;
    }
};

struct EqualIgnoringCase {
    bool operator()(std::string_view a, std::string_view b) const
    {
        return equalIgnoringCase(a, b);
    }
};

using Names = std::unordered_set<std::string_view, HashIgnoringCase, EqualIgnoringCase>;

// Which of the keys Postfix_IsMailboxExists would call a mailbox; asked in one pass over the
// accounts, however many keys there are.
Names mailboxesAmong(const VectorString& keys)
{
    const Names candidates(keys.begin(), keys.end());
    // Nearly all accounts are none of them, which one bit tells.
    std::bitset<1 << 16> hashes;
    for (const std::string_view key : candidates)
        hashes.set(HashIgnoringCase()(key) % hashes.size());

    Names mailboxes;
    visitShadowNames([&](std::string_view name) {
        if (hashes[HashIgnoringCase()(name) % hashes.size()] && candidates.count(name) != 0)
            mailboxes.insert(*candidates.find(name));
        return true;
    });
    return mailboxes;
}

int listFromMap(const std::string& domain, VectorString& lists)
{
    MapReader map(VALIASFILE, domain);
    if (!map.isOpen())
        return PostfixResult::NotRead;

    // The domain anywhere in the line, members included, on purpose.
    VectorString keys;
    std::string_view line;
    while (map.nextLine(line))
        if (!line.empty() && liesIn(line, line, domain))
            keys.emplace_back(mapKey(line));

    // What is a mailbox too is a forward, not a list.
    const Names mailboxes = mailboxesAmong(keys);
    for (const std::string& key : keys)
        if (mailboxes.count(key) == 0)
            lists.emplace_back(textBefore(key, '@'));
    return PostfixResult::Done;
}

} // namespace

int PostfixManager::Postfix_GetLists(std::string DomainName, VectorString* Lists)
{
    traceCall(*this, "Postfix_GetLists", {DomainName}, {"DomainName"});
    return usesSql(*this) ? listFromDatabase(*this, DomainName, *Lists)
                          : listFromMap(DomainName, *Lists);
}
