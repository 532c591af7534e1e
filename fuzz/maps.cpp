// The lines of a map, whatever they hold: a change is about its own entries alone. In an input, the
// first byte picks the call, the second says whether it is made in a transaction, the rest is the map.
#include "world.h"

#include "DovecotManager.h"
#include "maps/LineFaults.h"

#include <algorithm>
#include <cctype>

namespace
{

const std::string Domain = "b.test";
const std::string Bob = "bob@b.test";

// A mailbox's record, as a host fills it.
struct Record {
    std::string address = Bob;
    char password[600] = "secret", locked[2] = "x", comment[2] = "c", home[3] = "/h";
    struct passwd passwd = {address.data(), locked, 1, 2, comment, home, home};
    struct spwd shadow = {address.data(), password, 0, 0, 0, 0, 0, -1, 1};
    SvpopUser user{&passwd, &shadow, ""};
};

enum Ends { NoLine, ALine };
using M = PostfixManager;

struct Call {
    std::string map;
    void (*make)(M& manager);
    std::string name;  // of its entries: an address, a domain, or "@" and a domain for all in it
    Ends ends = ALine; // what a transaction leaves of that name
    std::string part = {}; // of that line
};

VectorString members = {"x@e.test,y@e.test"};

const Call Calls[] = {
    // clang-format off
    {VDOMAINFILE, [](M& m) { m.Postfix_VHostFile(Domain, "AddDomain"); }, Domain, ALine, Domain},
    {VDOMAINFILE, [](M& m) { m.Postfix_VHostFile(Domain, "RmvDomain"); }, Domain, NoLine},
    {VMAPSFILE, [](M& m) { m.Postfix_VMaps("bob", Domain, "AddUser"); }, Bob, ALine, "inbox"},
    {VMAPSFILE, [](M& m) { m.Postfix_VMaps(Bob, Domain, "RmvUser"); }, Bob, NoLine},
    {VMAPSFILE, [](M& m) { m.Postfix_UpdateCatchAllAddress(Domain, "bob"); }, "@" + Domain, ALine, "/bob@b.test"},
    {VMAPSFILE, [](M& m) { m.Postfix_RemoveCatchAllAddress(Domain); }, "@" + Domain, NoLine},
    {VMAPSFILE, [](M& m) { m.Postfix_DeleteDomMailboxes(Domain, VMAPSFILE); }, Domain, NoLine},
    {VALIASFILE, [](M& m) { m.Postfix_VAlias(Bob, "x@e.test", "AddAlias"); }, Bob, ALine, " "},
    {VALIASFILE, [](M& m) { m.Postfix_VAlias(Bob, "x@e.test", "UpdateAlias"); }, Bob, ALine, " x@e.test"},
    {VALIASFILE, [](M& m) { m.Postfix_VAlias(Bob, "", "DeleteAlias"); }, Bob, NoLine},
    {VALIASFILE, [](M& m) { m.Postfix_VList(Bob, &members, "AddList"); }, Bob, ALine, " "},
    {VALIASFILE, [](M& m) { m.Postfix_VList(Bob, &members, "UpdateList"); }, Bob, ALine, " x@e.test,y@e.test"},
    {VALIASFILE, [](M& m) { m.Postfix_VList(Bob, nullptr, "DeleteList"); }, Bob, NoLine},
    {VALIASFILE, [](M& m) { m.Postfix_DeleteDomAliases(Domain); }, Domain, NoLine},
    {VQUOTAFILE, [](M& m) { m.Postfix_VQuota(Bob, "5", "AddQuota"); }, Bob, ALine, "\t"},
    {VQUOTAFILE, [](M& m) { m.Postfix_VQuota(Bob, "5", "UpdateQuota"); }, Bob, ALine, "\t5"},
    {VQUOTAFILE, [](M& m) { m.Postfix_VQuota(Bob, "", "DeleteQuota"); }, Bob, NoLine},
    {VPASSWDFILE, [](M& m) { Record record; m.Postfix_PasswdFile(&record.user); }, Bob, ALine, ":x:1:2:c:/h:/h"},
    {VPASSWDFILE, [](M& m) { m.Postfix_UpdateMailbox(Bob, "admin", "UpdateUserType"); }, Bob},
    {VPASSWDFILE, [](M& m) { m.Postfix_DeleteMailboxUser(Bob, VPASSWDFILE); }, Bob, NoLine},
    {VPASSWDFILE, [](M&) { DovecotManager().addDovecotQuota(Bob, "/h", "5"); }, Bob, ALine, "storage=5B"},
    {VPASSWDFILE, [](M&) { DovecotManager().editDovecotQuota(Bob, "5"); }, Bob},
    {VPASSWDFILE, [](M&) { DovecotManager().deleteDovecotQuota(Bob); }, Bob},
    {VSHADOWFILE, [](M& m) { Record record; m.Postfix_ShadowFile(&record.user); }, Bob, ALine, ":$1$"},
    {VSHADOWFILE, [](M& m) { m.Postfix_UpdateMailbox(Bob, "secret", "UpdatePasswd"); }, Bob, ALine, ":$1$"},
    {VSHADOWFILE, [](M& m) { m.Postfix_UpdateMailbox(Bob, "user", "UpdateUserType"); }, Bob, ALine, ":0"},
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

using Test = bool (*)(const Call& call, const std::string& line);

std::vector<std::string> linesOfCall(const Call& call, std::string_view text, Test test, bool own)
{
    std::vector<std::string> lines = linesOf(text);
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [&](const std::string& line) { return test(call, line) != own; }),
                lines.end());
    return lines;
}

// All lines of the others are there as they were. A plain call that edits an empty line behind its
// own, on purpose, makes one that is nobody's.
void requireOthersKept(const Call& call, const std::string& before, const std::string& after,
                       Test test)
{
    const std::vector<std::string> left = linesOfCall(call, after, test, false);
    auto next = left.begin();
    for (const std::string& line : linesOfCall(call, before, test, false)) {
        next = std::find(next, left.end(), line);
        require(next != left.end(), call.map + " lost the line \"" + line + "\"");
        ++next;
    }
}

void callPlainly(const Call& call, std::string before)
{
    if (!before.empty() && before.back() != '\n')
        before.push_back('\n'); // else the next entry runs into the last one, on purpose
    put(call.map, before);
    Manager manager;
    call.make(manager);
    requireOthersKept(call, before, get(call.map), mayConcern);
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
    require(linesOfCall(call, before, mayBeOf, false) == linesOfCall(call, after, mayBeOf, false),
            "other lines changed");
    const std::vector<std::string> mine = linesOfCall(call, after, isGoodOf, true);
    const bool isSame = mine == linesOfCall(call, before, isGoodOf, true);
    require(isSame || mine.empty() == (call.ends == NoLine), "not what was asked for");
    const bool isThere = std::any_of(mine.begin(), mine.end(), [&](const std::string& line) {
        return contains(line, call.part);
    });
    require(isSame || mine.empty() || isThere, "another entry");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2)
        return 0;
    const Call& call = Calls[data[0] % std::size(Calls)];
    const std::string map(reinterpret_cast<const char*>(data) + 2, size - 2);
    emptyWorld();
    if (data[1] % 2 == 0)
        callPlainly(call, map);
    else
        callInTransaction(call, map);
    return 0;
}
