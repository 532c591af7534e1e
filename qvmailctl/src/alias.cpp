// alias add | set | delete | show | list
#include "Accounts.h"
#include "Checks.h"
#include "Commands.h"
#include "Results.h"
#include "maps/MapLines.h"

#include <algorithm>

namespace
{

// An address may forward with or without a mailbox. Without one and with several targets it is a
// list, which has commands of its own.
void refuseList(const Hosting& hosting, const std::string& address)
{
    if (hosting.isList(address))
        stop(Status::Exists,
             address + " is a mailing list; use \"qvmailctl list set\" or \"list delete\"");
}

// Whether it has a mailbox is asked only where it may be a list: the account files are the longest
// maps.
Hosting readForwarder(const Session& session, const Address& address)
{
    Hosting hosting = session.read(addressAlone(address), Domains | Aliases);
    if (hosting.targetsOf(address.text).size() > 1)
        hosting = session.read(addressAlone(address), Domains | Accounts | Aliases);
    return hosting;
}

Answer write(Session& session, const Given& given, bool mayReplace)
{
    const Address address = checkedAddress(given.name);
    const std::string target = checkedTarget(given.value);
    if (equalIgnoringCase(target, address.text))
        stop(Status::Refused, address.text + " cannot forward to itself");
    change(session, [&] {
        const Hosting hosting = readForwarder(session, address);
        requireHosted(hosting, address.domain);
        refuseList(hosting, address.text);
        const Addresses former = hosting.targetsOf(address.text);
        const bool isSame = former.size() == 1 && equalIgnoringCase(former[0], target);
        if (isSame && (mayReplace || session.options.ifMissing))
            return;
        if (!mayReplace && !former.empty())
            stop(Status::Exists, address.text + " forwards to " + shown(former[0]) +
                                     " already; replace that with \"qvmailctl alias set\"");
        warnOfTargets(session, address.text, {target});

        writeForwards(session, address.text, {target}, hosting.hasEntry(address.text));
        if (former.empty())
            session.changes.added(Kind::Alias, address.text, target);
        else
            session.changes.changed(Kind::Alias, address.text, target);
    });
    return {};
}

Answer add(Session& session, const Given& given)
{
    return write(session, given, false);
}

Answer set(Session& session, const Given& given)
{
    return write(session, given, true);
}

Answer remove(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    confirm(session, "the forwarder " + address.text);
    change(session, [&] {
        const Hosting hosting = session.read(addressAlone(address), Domains | Accounts | Aliases);
        refuseList(hosting, address.text);
        const bool hasMailbox = hosting.mailbox(address.text) != nullptr;
        const bool forwards = !hosting.targetsOf(address.text).empty();
        if (hasMailbox ? !forwards : !hosting.hasEntry(address.text)) {
            missing(session, address.text + " does not forward");
            return;
        }

        removeForwards(session, address.text, hasMailbox);
        session.changes.removed(Kind::Alias, address.text);
    });
    return {};
}

Answer show(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    beginQuery(session);
    const Addresses targets = session.read(addressAlone(address), Aliases).targetsOf(address.text);
    if (targets.empty())
        stop(Status::NotThere, address.text + " does not forward");
    return {{{"address", address.text}, {"targets", targets}}, targets};
}

void addTo(Answer& answer, const std::string& address, const Addresses& targets)
{
    answer.result.push_back({{"address", address}, {"targets", targets}});
    answer.lines.push_back(address);
}

// The forwarders of a domain, or of all domains. Lists are left out.
Answer listForwarders(Session& session, const std::string& domain)
{
    beginQuery(session);
    const Hosting hosting = session.read(domainAlone(domain), Domains | Accounts | Aliases);
    if (!domain.empty())
        requireHosted(hosting, domain);
    Answer answer{Json::array(), {}};
    for (const auto& [address, targets] : hosting.aliases)
        if (!hosting.isList(address))
            addTo(answer, address, targets);
    return answer;
}

// Everything that forwards to the target, lists included.
Answer listForwardersTo(Session& session, const std::string& target)
{
    beginQuery(session);
    const Wanted wanted = {std::string(domainOf(target)), target, true};
    const Hosting hosting = session.read(wanted, Aliases);
    Answer answer{Json::array(), {}};
    for (const auto& [address, targets] : hosting.aliases)
        if (std::any_of(targets.begin(), targets.end(),
                        [&](const auto& text) { return equalIgnoringCase(text, target); }))
            addTo(answer, address, targets);
    return answer;
}

Answer list(Session& session, const Given& given)
{
    const std::string& name = given.name;
    if (name.find('@') != std::string::npos)
        return listForwardersTo(session, checkedTarget(name));
    return listForwarders(session, name.empty() ? name : checkedDomain(name));
}

} // namespace

Object aliasCommands()
{
    return {"alias",
            "Forwarders",
            {{"add",
              "Forward an address, with or without a mailbox",
              {"ADDRESS", "TARGET"},
              Creation,
              "  qvmailctl alias add info@example.com bob@example.com",
              add},
             {"set",
              "Forward an address, in place of a former forwarder",
              {"ADDRESS", "TARGET"},
              ChangeOptions,
              "  qvmailctl alias set info@example.com ann@example.org",
              set},
             {"delete",
              "Delete a forwarder",
              {"ADDRESS"},
              Deletion,
              "  qvmailctl alias delete info@example.com --yes",
              remove},
             {"show",
              "Show where an address forwards to",
              {"ADDRESS"},
              Nothing,
              "  qvmailctl alias show info@example.com",
              show},
             {"list",
              "List a domain's forwarders, or all, or those that lead to an address",
              {"[DOMAIN_OR_ADDRESS]"},
              Nothing,
              "  qvmailctl alias list example.com\n"
              "  qvmailctl alias list bob@example.com",
              list}}};
}
