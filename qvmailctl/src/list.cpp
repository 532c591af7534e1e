// list add | set | delete | show | list
#include "Checks.h"
#include "Commands.h"
#include "Maps.h"
#include "Output.h"
#include "Results.h"
#include "maps/MapLines.h"

#include <set>

#include <unistd.h>

namespace
{

// A list is an address that forwards and has no mailbox: as a mailbox it would lose its mail.
void refuseMailbox(Host& host, const std::string& address)
{
    if (mailboxState(host, address) != Mailbox::None)
        refuse(address + " is a mailbox, so it cannot be a list; see \"qvmailctl alias\"");
}

// One text with commas: the form that both backends read.
std::string membersOf(const Given& given, const std::string& address)
{
    std::string members;
    for (const std::string& member : given.members) {
        if (equalIgnoringCase(member, address))
            refuse("the list " + address + " cannot be its own member");
        members += (members.empty() ? "" : ",") + checkedTarget(member);
    }
    return members;
}

void write(Host& host, const Given& given, bool mayReplace)
{
    const Address address = checkedAddress(given.name);
    VectorString members = {membersOf(given, address.text)};
    beginChange(host);

    requireHosted(host, address.domain);
    refuseMailbox(host, address.text);
    if (!mayReplace && !destinationsOf(host, address.text).empty())
        refuse("the list or forwarder " + address.text +
               " exists already; replace its members with \"qvmailctl list set\"");

    const char* const task = hasAliasEntry(host, address.text) ? "UpdateList" : "AddList";
    conclude(host, host.library.Postfix_VList(address.text, &members, task),
             {PostfixResult::ListAdded, PostfixResult::ListUpdated},
             "the list " + address.text + " could not be written");
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
    confirm(host, "the list " + address.text);
    beginChange(host);
    refuseMailbox(host, address.text);
    if (!hasAliasEntry(host, address.text))
        notThere("there is no list " + address.text);
    VectorString none;
    conclude(host, host.library.Postfix_VList(address.text, &none, "DeleteList"),
             {PostfixResult::ListDeleted}, "the list " + address.text + " could not be deleted");
}

void show(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    beginQuery(host);
    refuseMailbox(host, address.text);
    const VectorString members = destinationsOf(host, address.text);
    if (members.empty())
        notThere("there is no list " + address.text);
    for (const std::string& member : members)
        answer(member);
}

void list(Host& host, const Given& given)
{
    const std::string domain = checkedDomain(given.name);
    beginQuery(host);
    requireHosted(host, domain);
    VectorString names;
    if (host.settings.onTables || access(VALIASFILE, F_OK) == 0)
        conclude(host, host.library.Postfix_GetLists(domain, &names), {PostfixResult::Done},
                 "the lists of " + domain + " could not be read");
    const std::string tail = "@" + domain;
    std::set<std::string> lists;
    for (const std::string& name : names)
        lists.insert(name + tail);

    // With files, the library also names other domains' lists that have a member here.
    if (!host.settings.onTables) {
        const VectorString mailboxes = mailboxesOf(host, domain);
        const std::vector<std::string> keys =
            namesOf(VALIASFILE, tail, [&](std::string_view name, std::string_view) {
                return lists.count(std::string(name)) > 0;
            });
        lists = std::set<std::string>(keys.begin(), keys.end());
        for (const std::string& mailbox : mailboxes)
            lists.erase(mailbox);
    }
    for (const std::string& address : lists)
        answer(address);
}

} // namespace

Object listCommands()
{
    return {"list",
            "Mailing lists",
            {{"add", "Create a list", {"ADDRESS", "MEMBER..."}, add},
             {"set",
              "Give a list these members, whether or not it exists",
              {"ADDRESS", "MEMBER..."},
              set},
             {"delete", "Delete a list", {"ADDRESS"}, remove},
             {"show", "Show its members", {"ADDRESS"}, show},
             {"list", "List a domain's lists", {"DOMAIN"}, list}}};
}
