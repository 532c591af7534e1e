// alias add | set | delete | show | list
#include "Checks.h"
#include "Commands.h"
#include "Maps.h"
#include "Output.h"
#include "Results.h"
#include "maps/MapLines.h"

namespace
{

// With and without a mailbox of its own an address may forward; with several destinations and none,
// it is a list.
void refuseList(Host& host, const std::string& address, const VectorString& destinations)
{
    if (destinations.size() > 1 && mailboxState(host, address) == Mailbox::None)
        refuse(address + " is a mailing list; use \"qvmailctl list set\" or \"list delete\"");
}

void write(Host& host, const Given& given, bool mayReplace)
{
    const Address address = checkedAddress(given.name);
    const std::string target = checkedTarget(given.value);
    if (equalIgnoringCase(target, address.text))
        refuse(address.text + " cannot forward to itself");
    beginChange(host);

    requireHosted(host, address.domain);
    const VectorString destinations = destinationsOf(host, address.text);
    refuseList(host, address.text, destinations);
    if (!mayReplace && !destinations.empty())
        refuse(address.text + " forwards to " + destinations.front() +
               " already; replace that with \"qvmailctl alias set\"");

    const char* const task = hasAliasEntry(host, address.text) ? "UpdateAlias" : "AddAlias";
    conclude(host, host.library.Postfix_VAlias(address.text, target, task),
             {PostfixResult::AliasAdded, PostfixResult::Updated},
             "the forwarder " + address.text + " could not be written");
}

void add(Host& host, const Given& given)
{
    write(host, given, false);
}

void set(Host& host, const Given& given)
{
    write(host, given, true);
}

void remove(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    confirm(host, "the forwarder " + address.text);
    beginChange(host);

    const VectorString destinations = destinationsOf(host, address.text);
    refuseList(host, address.text, destinations);
    const bool hasMailbox = mailboxState(host, address.text) != Mailbox::None;
    if (hasMailbox ? destinations.empty() : !hasAliasEntry(host, address.text))
        notThere(address.text + " does not forward");

    // With tables, deleting an alias gives the address a row for itself, for its mailbox's sake.
    // Without a mailbox the server would then take its mail and bounce it: deleted as a list,
    // nothing is left.
    VectorString none;
    const int code = host.settings.onTables && !hasMailbox
                         ? host.library.Postfix_VList(address.text, &none, "DeleteList")
                         : host.library.Postfix_VAlias(address.text, "", "DeleteAlias");
    conclude(host, code, {PostfixResult::ListDeleted, PostfixResult::AliasDeleted},
             "the forwarder " + address.text + " could not be deleted");
}

void show(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    beginQuery(host);
    const VectorString destinations = destinationsOf(host, address.text);
    if (destinations.empty())
        notThere(address.text + " does not forward");
    for (const std::string& destination : destinations)
        answer(destination);
}

// The library's own answer lacks the domains and takes jim.bob's forwarders for bob's.
void list(Host& host, const Given& given)
{
    const std::string target = checkedTarget(given.name);
    beginQuery(host);
    if (host.settings.onTables)
        refuse("who forwards to an address can be asked of map files alone, not of the database");
    for (const std::string& forwarder : forwardersTo(target))
        answer(forwarder);
}

} // namespace

Object aliasCommands()
{
    return {"alias",
            "Forwarders",
            {{"add", "Forward an address", {"ADDRESS", "TARGET"}, add},
             {"set", "Forward it, whether or not it does already", {"ADDRESS", "TARGET"}, set},
             {"delete", "Stop forwarding it", {"ADDRESS"}, remove},
             {"show", "Show where it forwards to", {"ADDRESS"}, show},
             {"list", "List who forwards to TARGET (map files only)", {"TARGET"}, list}}};
}
