// All maps at once: a repair loses nothing and comes to an end, and where a check finds nothing, what is
// exported can be imported. In an input, the maps stand one after the other, with a line "--" between
// them.
#include "commands.h"

namespace
{

constexpr const char* Maps[] = {VDOMAINFILE, VPASSWDFILE, VSHADOWFILE,
                                VMAPSFILE,   VALIASFILE,  VQUOTAFILE};

void putMaps(std::string_view text)
{
    constexpr std::string_view Between = "--\n";
    for (const char* const map : Maps) {
        const std::size_t end = text.find(Between);
        put(map, text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + Between.size());
    }
}

Hosting hosting()
{
    return readHosting(readSettings(), everything(), AllParts);
}

Answer check(bool repair)
{
    Given given;
    given.repair = repair;
    return answerOf(checkCommand(), given);
}

// The findings in the maps, as text; this machine has no servers.
std::string findingsIn(const Json& findings)
{
    std::string text;
    for (const Json& finding : findings)
        if (finding["place"].get<std::string>().find("/etc/v") == 0 ||
            finding["place"] == VDOMAINFILE)
            text += finding["kind"].get<std::string>() + ": " +
                    finding["message"].get<std::string>() + "\n";
    return text;
}

// Whatever a login, a route or a forward needs.
void requireKept(const Hosting& before, const Hosting& after)
{
    require(before.domains == after.domains, "domains");
    require(before.aliases == after.aliases, "forwarders");
    require(before.catchAlls == after.catchAlls, "catch-alls");
    for (const auto& [address, mailbox] : before.mailboxes) {
        const auto kept = after.mailboxes.find(address);
        if (!mailbox.isInShadow)
            continue;
        require(kept != after.mailboxes.end(), address);
        require(kept->second.hash == mailbox.hash && kept->second.type == mailbox.type,
                "the password of " + address);
        require(kept->second.quota == mailbox.quota || !mailbox.quota, "the quota of " + address);
    }
}

void repair(bool hasTails)
{
    const Hosting before = hosting();
    const Answer first = check(true);
    const bool isDone = first.result.is_object();
    // A line that belongs to another map, and stands there, is removed.
    const bool hasStrays =
        isDone && contains(findingsIn(first.result["repaired"]), "line-malformed");
    if (!hasTails && !hasStrays)
        requireKept(before, hosting());
    if (!isDone)
        return; // refused
    const Answer second = check(true);
    require(second.result.is_object() && findingsIn(second.result["repaired"]).empty(),
            "repaired twice: " + textOf(second));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    emptyWorld();
    putMaps(text);
    repair(contains(text, "\r")); // which is cut off at a line's end
    if (!findingsIn(check(false).result["findings"]).empty())
        return 0;
    if (!contains(textOf(answerOf(exportCommand(), {})),
                  "\"hash\":null")) // which a new mailbox needs
        requireToMove();
    return 0;
}
