// catchall set | remove | show
#include "Checks.h"
#include "Commands.h"
#include "Output.h"
#include "Results.h"

namespace
{

void refuseNone(Host& host, const std::string& domain)
{
    requireHosted(host, domain);
    if (catchAllOf(host, domain).empty())
        notThere("the domain " + domain + " has no catch-all");
}

void set(Host& host, const Given& given)
{
    const Address target = checkedAddress(given.value, checkedDomain(given.name));
    beginChange(host);
    requireHosted(host, target.domain);
    requireMailbox(host, target.text);
    conclude(host, host.library.Postfix_UpdateCatchAllAddress(target.domain, target.user),
             {PostfixResult::CatchAllSet},
             "the catch-all of " + target.domain + " could not be set");
}

void remove(Host& host, const Given& given)
{
    const std::string domain = checkedDomain(given.name);
    confirm(host, "the catch-all of " + domain);
    beginChange(host);
    refuseNone(host, domain);
    conclude(host, host.library.Postfix_RemoveCatchAllAddress(domain),
             {PostfixResult::CatchAllRemoved},
             "the catch-all of " + domain + " could not be removed");
}

void show(Host& host, const Given& given)
{
    const std::string domain = checkedDomain(given.name);
    beginQuery(host);
    refuseNone(host, domain);
    answer(catchAllOf(host, domain));
}

} // namespace

Object catchAllCommands()
{
    return {"catchall",
            "The mailbox that takes a domain's mail for unknown users",
            {{"set", "Let USER's mailbox take it", {"DOMAIN", "USER"}, set},
             {"remove", "Refuse it again", {"DOMAIN"}, remove},
             {"show", "Show that mailbox", {"DOMAIN"}, show}}};
}
