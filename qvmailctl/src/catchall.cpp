// catchall set | remove | show
#include "Accounts.h"
#include "Checks.h"
#include "Commands.h"
#include "Results.h"

namespace
{

// The target: the name of a user of the domain, or the user's address.
Address checkedCatchAll(const std::string& name, const std::string& user)
{
    const std::string domain = checkedDomain(name);
    if (user.find('@') == std::string::npos)
        return checkedAddress(user, domain);
    Address address = checkedAddress(user);
    if (address.domain != domain)
        stop(Status::Refused,
             "the catch-all of " + domain + " is one of its own mailboxes, not " + address.text);
    return address;
}

Answer set(Session& session, const Given& given)
{
    const Address target = checkedCatchAll(given.name, given.value);
    change(session, [&] {
        const Hosting hosting = session.read(addressAlone(target), Domains | Accounts | CatchAlls);
        requireHosted(hosting, target.domain);
        requireMailbox(hosting, target.text);
        const std::string former = hosting.catchAllOf(target.domain);
        if (former == target.text)
            return;
        writeCatchAll(session, target.domain, target.user);
        if (former.empty())
            session.changes.added(Kind::CatchAll, target.domain, target.text);
        else
            session.changes.changed(Kind::CatchAll, target.domain, target.text);
    });
    return {};
}

Answer remove(Session& session, const Given& given)
{
    const std::string domain = checkedDomain(given.name);
    confirm(session, "the catch-all of " + domain);
    change(session, [&] {
        const Hosting hosting = session.read(domainAlone(domain), Domains | CatchAlls);
        if (hosting.catchAllOf(domain).empty()) {
            if (!session.options.ifThere)
                requireHosted(hosting, domain);
            missing(session, "the domain " + domain + " has no catch-all");
            return;
        }
        removeCatchAll(session, domain);
        session.changes.removed(Kind::CatchAll, domain);
    });
    return {};
}

Answer show(Session& session, const Given& given)
{
    const std::string domain = checkedDomain(given.name);
    beginQuery(session);
    const Hosting hosting = session.read(domainAlone(domain), Domains | CatchAlls);
    requireHosted(hosting, domain);
    const std::string target = hosting.catchAllOf(domain);
    if (target.empty())
        stop(Status::NotThere, "the domain " + domain + " has no catch-all");
    return {{{"domain", domain}, {"address", target}}, {target}};
}

} // namespace

Object catchAllCommands()
{
    return {"catchall",
            "The mailbox that takes a domain's mail for unknown users",
            {{"set",
              "Set the catch-all of a domain to the mailbox of USER",
              {"DOMAIN", "USER"},
              ChangeOptions,
              "  qvmailctl catchall set example.com postmaster",
              set},
             {"remove",
              "Remove it: mail for unknown users is refused again",
              {"DOMAIN"},
              Deletion,
              "  qvmailctl catchall remove example.com",
              remove},
             {"show",
              "Show the mailbox that is the catch-all",
              {"DOMAIN"},
              Nothing,
              "  qvmailctl catchall show example.com",
              show}}};
}
