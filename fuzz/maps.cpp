// The lines of a map, whatever they hold: a change is about its own entries alone, and a question
// changes nothing. In an input, the first byte picks the call, the second says whether it is made in a
// transaction, the rest is the map.
#include "world.h"

#include "DovecotManager.h"
#include "maps/LineFaults.h"

#include <algorithm>
#include <cctype>

namespace
{

const std::string Domain = "b.test";
const std::string Bob = "bob@b.test";

enum Ends { NoLine, ALine };
using M = PostfixManager;

struct Call {
    std::string map;
    void (*make)(M& manager);
    std::string name; // of its entries: an address, a domain, or "@" and a domain for all in it
    Ends ends;        // what a transaction leaves of that name
};

VectorString members = {"x@e.test,y@e.test"};

const Call Calls[] = {
    // clang-format off
    {VDOMAINFILE, [](M& m) { m.Postfix_VHostFile(Domain, "AddDomain"); }, Domain, ALine},
    {VDOMAINFILE, [](M& m) { m.Postfix_VHostFile(Domain, "RmvDomain"); }, Domain, NoLine},
    {VMAPSFILE, [](M& m) { m.Postfix_VMaps("bob", Domain, "AddUser"); }, Bob, ALine},
    {VMAPSFILE, [](M& m) { m.Postfix_VMaps(Bob, Domain, "RmvUser"); }, Bob, NoLine},
    {VMAPSFILE, [](M& m) { m.Postfix_UpdateCatchAllAddress(Domain, "bob"); }, "@" + Domain, ALine},
    {VMAPSFILE, [](M& m) { m.Postfix_RemoveCatchAllAddress(Domain); }, "@" + Domain, NoLine},
    {VMAPSFILE, [](M& m) { m.Postfix_DeleteDomMailboxes(Domain, VMAPSFILE); }, Domain, NoLine},
    {VALIASFILE, [](M& m) { m.Postfix_VAlias(Bob, "x@e.test", "AddAlias"); }, Bob, ALine},
    {VALIASFILE, [](M& m) { m.Postfix_VAlias(Bob, "x@e.test", "UpdateAlias"); }, Bob, ALine},
    {VALIASFILE, [](M& m) { m.Postfix_VAlias(Bob, "", "DeleteAlias"); }, Bob, NoLine},
    {VALIASFILE, [](M& m) { m.Postfix_VList(Bob, &members, "AddList"); }, Bob, ALine},
    {VALIASFILE, [](M& m) { m.Postfix_VList(Bob, &members, "UpdateList"); }, Bob, ALine},
    {VALIASFILE, [](M& m) { m.Postfix_VList(Bob, nullptr, "DeleteList"); }, Bob, NoLine},
    {VALIASFILE, [](M& m) { m.Postfix_DeleteDomAliases(Domain); }, Domain, NoLine},
    {VQUOTAFILE, [](M& m) { m.Postfix_VQuota(Bob, "5", "AddQuota"); }, Bob, ALine},
    {VQUOTAFILE, [](M& m) { m.Postfix_VQuota(Bob, "5", "UpdateQuota"); }, Bob, ALine},
    {VQUOTAFILE, [](M& m) { m.Postfix_VQuota(Bob, "", "DeleteQuota"); }, Bob, NoLine},
    {VPASSWDFILE, [](M& m) { m.Postfix_UpdateMailbox(Bob, "admin", "UpdateUserType"); }, Bob, ALine},
    {VPASSWDFILE, [](M& m) { m.Postfix_DeleteMailboxUser(Bob, VPASSWDFILE); }, Bob, NoLine},
    {VPASSWDFILE, [](M&) { DovecotManager().addDovecotQuota(Bob, "/h", "5"); }, Bob, ALine},
    {VPASSWDFILE, [](M&) { DovecotManager().editDovecotQuota(Bob, "5"); }, Bob, ALine},
    {VPASSWDFILE, [](M&) { DovecotManager().deleteDovecotQuota(Bob); }, Bob, ALine},
    {VSHADOWFILE, [](M& m) { m.Postfix_UpdateMailbox(Bob, "secret", "UpdatePasswd"); }, Bob, ALine},
    {VSHADOWFILE, [](M& m) { m.Postfix_UpdateMailbox(Bob, "user", "UpdateUserType"); }, Bob, ALine},
    {VSHADOWFILE, [](M& m) { m.Postfix_DeleteDomMailboxes(Domain, VSHADOWFILE); }, Domain, NoLine},
    {VSHADOWFILE, [](M& m) { m.Postfix_DeleteMailboxUser(Bob, VSHADOWFILE); }, Bob, NoLine},
    // clang-format on
};

std::string folded(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return text;
}

// What a plain call may take for one of its own.
bool mayConcern(const Call& call, const std::string& line)
{
    return contains(folded(line), call.name == Bob ? Bob : Domain);
}

// What a transaction means: the whole name.
bool isOf(const Call& call, const std::string& line)
{
    const std::string name(wholeName(line));
    const bool isOfAll = call.name == Domain && call.map != VDOMAINFILE;
    return name == call.name || (isOfAll && contains(name, "@") && textAfter(name, '@') == Domain);
}

// Of what no reader understands, nothing is asked.
bool isGoodOf(const Call& call, const std::string& line)
{
    return isOf(call, line) && faultOfLine(call.map, line) == nullptr;
}

// Passwords and quotas of Dovecot are found in any letter case.
bool mayBeOf(const Call& call, const std::string& line)
{
    return isOf(call, folded(line));
}

template <class Test> std::vector<std::string> linesThat(Test test, std::string_view text)
{
    std::vector<std::string> lines;
    for (const std::string& line : linesOf(text))
        if (test(line))
            lines.push_back(line);
    return lines;
}

// All lines of the others are there as they were. A plain call that edits an empty line behind its
// own, on purpose, makes one that is nobody's.
void callPlainly(const Call& call, std::string before)
{
    if (!before.empty() && before.back() != '\n')
        before.push_back('\n'); // else the next entry runs into the last one, on purpose
    put(call.map, before);
    Manager manager;
    call.make(manager);
    const auto isOthers = [&](const std::string& line) { return !mayConcern(call, line); };
    const std::vector<std::string> left = linesThat(isOthers, get(call.map));
    auto next = left.begin();
    for (const std::string& line : linesThat(isOthers, before)) {
        next = std::find(next, left.end(), line);
        require(next != left.end(), call.map + " lost the line \"" + line + "\"");
        ++next;
    }
}

void callInTransaction(const Call& call, const std::string& before)
{
    put(call.map, before);
    Manager manager;
    PostfixTransaction transaction(manager);
    require(transaction.open(0) == PostfixTransaction::Done, transaction.reason());
    call.make(manager);
    for (const PostfixTransaction::Change& change : transaction.changes())
        require(mayBeOf(call, change.name), "another name is changed: " + change.name);
    const PostfixTransaction::Outcome outcome = transaction.commit();
    const std::string after = get(call.map);
    if (outcome != PostfixTransaction::Done) {
        require(after == before, "refused, and changed");
        return;
    }
    const auto isOthers = [&](const std::string& line) { return !mayBeOf(call, line); };
    const auto isOwn = [&](const std::string& line) { return isGoodOf(call, line); };
    require(linesThat(isOthers, before) == linesThat(isOthers, after), "other lines changed");
    const std::vector<std::string> mine = linesThat(isOwn, after);
    require(mine == linesThat(isOwn, before) || mine.empty() == (call.ends == NoLine),
            "not what was asked for");
}

// What is answered stands in the map, which stays as it is.
void ask(const std::string& map, const std::string& content)
{
    put(map, content);
    Manager manager;
    VectorString found;
    long long total = 0;
    manager.Postfix_GetMailboxList(Domain, &found);
    require(manager.Postfix_GetMailboxCount(Domain) == static_cast<int>(found.size()), "count");
    manager.Postfix_GetLists(Domain, &found);
    manager.Postfix_GetAliasList(Bob, &found);
    manager.Postfix_GetListSettings(Bob, &found);
    found.push_back(manager.Postfix_RetrieveAlias(Bob));
    manager.Postfix_RetreiveCatchAllAddress(Domain, found.emplace_back());
    for (const std::string& part : found)
        require(contains(content, part) && !contains(part, "\n"), "no part of a line: " + part);
    manager.Postfix_RetrieveDomainQuota(Domain, total);
    require(get(map) == content, "a question changed the map");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2)
        return 0;
    const Call& call = Calls[data[0] % std::size(Calls)];
    const std::string map(reinterpret_cast<const char*>(data) + 2, size - 2);
    emptyWorld();
    ask(call.map, map);
    if (data[1] % 2 == 0)
        callPlainly(call, map);
    else
        callInTransaction(call, map);
    return 0;
}
