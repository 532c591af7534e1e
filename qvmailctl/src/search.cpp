// search TEXT
#include "Commands.h"

#include <algorithm>

namespace
{

// A hit is told with its kind, its name and, for a forwarder or list, its targets.
void addHit(Answer& answer, const char* kind, const char* key, const std::string& name,
            const Addresses& targets = {})
{
    Json hit = {{"kind", kind}, {key, name}};
    std::string line = std::string(kind) + " " + name;
    if (!targets.empty())
        hit["targets"] = targets;
    for (const std::string& target : targets)
        line += " " + target;
    answer.result.push_back(hit);
    answer.lines.push_back(line);
}

Answer search(Session& session, const Given& given)
{
    const std::string text = lowerCase(given.name);
    const auto holdsIt = [&](const std::string& name) {
        return lowerCase(name).find(text) != std::string::npos;
    };
    beginQuery(session);
    const Hosting hosting = session.read(everything());

    Answer answer{Json::array(), {}};
    for (const std::string& domain : hosting.domains)
        if (holdsIt(domain))
            addHit(answer, "domain", "domain", domain);
    for (const auto& [address, mailbox] : hosting.mailboxes)
        if (holdsIt(address))
            addHit(answer, "mailbox", "address", address);
    for (const auto& [address, targets] : hosting.aliases)
        if (holdsIt(address) || std::any_of(targets.begin(), targets.end(), holdsIt))
            addHit(answer, hosting.isList(address) ? "list" : "alias", "address", address, targets);
    for (const auto& [domain, target] : hosting.catchAlls)
        if (holdsIt(domain) || holdsIt(target))
            addHit(answer, "catch-all", "domain", domain, {target});
    return answer;
}

} // namespace

Object searchCommand()
{
    return {"search",
            "Find addresses, targets and domains that hold a text",
            {{"",
              "Find addresses, targets and domains that hold a text",
              {"TEXT"},
              Nothing,
              "  qvmailctl search bob\n"
              "  qvmailctl search @example.org --json",
              search}}};
}
