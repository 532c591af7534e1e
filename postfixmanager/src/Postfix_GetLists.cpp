#include "CallConvention.h"
#include "MapLines.h"
#include "MapReader.h"
#include "ShadowNames.h"

#include <cctype>
#include <functional>
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

struct HashIgnoringCase {
    std::size_t operator()(const std::string& text) const
    {
        std::string folded = text;
        for (char& c : folded)
            c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
        return std::hash<std::string>()(folded);
    }
};

struct EqualIgnoringCase {
    bool operator()(const std::string& a, const std::string& b) const
    {
        return equalIgnoringCase(a, b);
    }
};

using Names = std::unordered_set<std::string, HashIgnoringCase, EqualIgnoringCase>;

// Which of the keys Postfix_IsMailboxExists would call a mailbox; asked in one pass over the
// accounts, however many keys there are.
Names mailboxesAmong(const VectorString& keys)
{
    const Names candidates(keys.begin(), keys.end());
    Names mailboxes;
    std::string current;
    visitShadowNames([&](std::string_view name) {
        current = name;
        if (candidates.count(current) != 0)
            mailboxes.insert(current);
        return true;
    });
    return mailboxes;
}

int listFromMap(const std::string& domain, VectorString& lists)
{
    MapReader map(VALIASFILE);
    if (!map.isOpen())
        return PostfixResult::NotRead;

    // The domain anywhere in the line, members included, on purpose.
    VectorString keys;
    std::string_view line;
    while (map.nextLineWith(domain, line))
        if (!line.empty())
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
