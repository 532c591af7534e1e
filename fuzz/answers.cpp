// What queries answer of a map, whatever it holds. In an input, the first byte picks the question; the
// rest is the map.
#include "world.h"

namespace
{

const std::string Domain = "b.test";
const std::string Bob = "bob@b.test";

// ---- A domain's quotas ----

long long totalOf(const std::string& map, int& answer)
{
    put(VQUOTAFILE, map);
    long long total = 4711;
    answer = Manager().Postfix_RetrieveDomainQuota(Domain, total);
    return total;
}

// A sum that no number holds wraps around, on purpose.
bool holdsHugeNumber(const std::string& text)
{
    constexpr int Digits = 15;
    int digits = 0;
    for (const char c : text)
        if ((digits = c >= '0' && c <= '9' ? digits + 1 : 0) > Digits)
            return true;
    return false;
}

// Neither the order of the lines counts nor those of other domains, and 1 KiB more is 1 KiB more.
void askForTotal(const std::string& map)
{
    constexpr int IsSum = 1;
    int answer = 0;
    const long long total = totalOf(map, answer);
    std::string reversed;
    for (const std::string& line : linesOf(map))
        reversed.insert(0, line + "\n");
    int again = 0;
    require(totalOf(reversed + "bob@ab.test\t1024\nbob@b.test.au\t1024\n", again) == total &&
                again == answer,
            "order or others");
    if (contains(map, "-") || answer != IsSum || holdsHugeNumber(map))
        return; // no limit, or what is cut to whole KiB is less than nothing
    require(totalOf(reversed + "x@b.test\t1024\n", again) == total + 1 && again == IsSum,
            "1 KiB more");
}

// ---- Lists, forwarders, accounts ----

void requireParts(const VectorString& parts, const std::string& map, const std::string& what)
{
    for (const std::string& part : parts)
        require(contains(map, part) && !contains(part, "\n"), what + ": " + part);
}

void askForForwarders(const std::string& map)
{
    put(VALIASFILE, map);
    Manager manager;
    VectorString found;
    manager.Postfix_GetLists(Domain, &found);
    manager.Postfix_GetAliasList(Bob, &found);
    requireParts(found, map, "no line's name");
    VectorString members;
    manager.Postfix_GetListSettings(Bob, &members);
    requireParts(members, map, "no line's member");
    const std::string target = manager.Postfix_RetrieveAlias(Bob);
    requireParts({target}, map, "no line's target");
}

void askForAccounts(const std::string& map)
{
    put(VPASSWDFILE, map);
    put(VSHADOWFILE, map);
    Manager manager;
    VectorString users;
    manager.Postfix_GetMailboxList(Domain, &users);
    require(manager.Postfix_GetMailboxCount(Domain) == static_cast<int>(users.size()), "count");
    for (const std::string& user : users)
        if (!contains(user, ":") && user != Domain)
            require(manager.Postfix_IsMailboxExists(user + "@" + Domain),
                    "no such mailbox: " + user);
    put(VMAPSFILE, map);
    std::string target;
    manager.Postfix_RetreiveCatchAllAddress(Domain, target);
    requireParts({target}, map, "no line's catch-all");
    require(get(VMAPSFILE) == map, "a question changed the map");
}

constexpr void (*Questions[])(const std::string& map) = {askForTotal, askForForwarders,
                                                         askForAccounts};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > 0)
        Questions[data[0] % std::size(Questions)](
            std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    return 0;
}
