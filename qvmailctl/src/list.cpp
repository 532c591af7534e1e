// list add | set | join | leave | delete | show | list
#include "Accounts.h"
#include "Checks.h"
#include "Commands.h"
#include "Results.h"
#include "maps/MapLines.h"

#include <algorithm>

namespace
{

// A list is an address without a mailbox: a mailbox with this name would get no mail any more.
void refuseMailbox(const Hosting& hosting, const std::string& address)
{
    if (hosting.mailbox(address) != nullptr)
        stop(Status::Exists,
             address + " is a mailbox, so it cannot be a list; see \"qvmailctl alias\"");
}

bool isMember(const Addresses& members, const std::string& address)
{
    return std::any_of(members.begin(), members.end(), [&](const std::string& member) {
        return equalIgnoringCase(member, address);
    });
}

Addresses checkedMembers(const Given& given, const std::string& address)
{
    Addresses members;
    for (const std::string& word : given.members) {
        const std::string member = checkedTarget(word);
        if (equalIgnoringCase(member, address))
            stop(Status::Refused, "the list " + address + " cannot be its own member");
        if (!isMember(members, member))
            members.push_back(member);
    }
    return members;
}

Hosting readList(Session& session, const Address& address)
{
    Hosting hosting = session.read(addressAlone(address), Domains | Accounts | Aliases);
    refuseMailbox(hosting, address.text);
    return hosting;
}

// Former members are written again when others join or leave: each must fit into a statement.
Addresses requireWritable(const Session& session, const Hosting& hosting,
                          const std::string& address)
{
    Addresses members = hosting.targetsOf(address);
    for (const std::string& member : members)
        if (session.settings.usesSql && !isWritable(member))
            stop(Status::Refused,
                 "the list " + address + " has the member " + inQuotes(member) +
                     ", which no statement can hold; give it others with \"qvmailctl list set\"");
    return members;
}

// As readList. Ends the command when there is no such list.
Hosting requireList(Session& session, const Address& address)
{
    Hosting hosting = readList(session, address);
    if (hosting.targetsOf(address.text).empty())
        stop(Status::NotThere, "there is no list " + address.text);
    return hosting;
}

void write(Session& session, const Hosting& hosting, const std::string& address,
           const Addresses& members)
{
    warnOfTargets(session, address, members);
    writeForwards(session, address, members, hosting.hasEntry(address));
    if (hosting.targetsOf(address).empty())
        session.changes.added(Kind::List, address);
    else
        session.changes.changed(Kind::List, address);
}

Answer add(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    const Addresses members = checkedMembers(given, address.text);
    change(session, [&] {
        const Hosting hosting = readList(session, address);
        requireHosted(hosting, address.domain);
        const Addresses former = hosting.targetsOf(address.text);
        if (session.options.ifMissing && former == members)
            return;
        if (!former.empty())
            stop(Status::Exists, "the list or forwarder " + address.text +
                                     " exists already; replace its members with \"qvmailctl list "
                                     "set\", or add some with \"list join\"");
        write(session, hosting, address.text, members);
    });
    return {};
}

Answer set(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    const Addresses members = checkedMembers(given, address.text);
    change(session, [&] {
        const Hosting hosting = readList(session, address);
        requireHosted(hosting, address.domain);
        if (hosting.targetsOf(address.text) != members)
            write(session, hosting, address.text, members);
    });
    return {};
}

Answer join(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    const Addresses joining = checkedMembers(given, address.text);
    change(session, [&] {
        const Hosting hosting = requireList(session, address);
        Addresses members = requireWritable(session, hosting, address.text);
        const std::size_t before = members.size();
        for (const std::string& member : joining)
            if (!isMember(members, member))
                members.push_back(member);
        if (members.size() > before)
            write(session, hosting, address.text, members);
    });
    return {};
}

Answer leave(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    const Addresses leaving = checkedMembers(given, address.text);
    change(session, [&] {
        const Hosting hosting = requireList(session, address);
        Addresses members = requireWritable(session, hosting, address.text);
        const std::size_t before = members.size();
        for (const std::string& member : leaving)
            if (!isMember(members, member))
                missing(session, member + " is no member of " + address.text);
        members.erase(std::remove_if(members.begin(), members.end(),
                                     [&](const auto& member) { return isMember(leaving, member); }),
                      members.end());
        if (members.empty())
            stop(Status::Refused, "the list " + address.text +
                                      " would have no member left; delete it with \"qvmailctl list "
                                      "delete\"");
        if (members.size() < before)
            write(session, hosting, address.text, members);
    });
    return {};
}

Answer remove(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    confirm(session, "the list " + address.text);
    change(session, [&] {
        const Hosting hosting = readList(session, address);
        if (!hosting.hasEntry(address.text)) {
            missing(session, "there is no list " + address.text);
            return;
        }
        VectorString none;
        conclude(session, session.library.Postfix_VList(address.text, &none, "DeleteList"),
                 {PostfixResult::ListDeleted},
                 "the list " + address.text + " could not be deleted");
        session.changes.removed(Kind::List, address.text);
    });
    return {};
}

Answer show(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    beginQuery(session);
    const Addresses members = requireList(session, address).targetsOf(address.text);
    return {{{"address", address.text}, {"members", members}}, members};
}

Answer list(Session& session, const Given& given)
{
    const std::string domain = given.name.empty() ? "" : checkedDomain(given.name);
    beginQuery(session);
    const Hosting hosting = session.read(domainAlone(domain), Domains | Accounts | Aliases);
    if (!domain.empty())
        requireHosted(hosting, domain);
    Answer answer{Json::array(), {}};
    for (const auto& [address, members] : hosting.aliases) {
        if (hosting.mailbox(address) != nullptr)
            continue;
        if (session.options.json)
            answer.result.push_back({{"address", address}, {"members", members}});
        else
            answer.lines.push_back(address);
    }
    return answer;
}

} // namespace

Object listCommands()
{
    return {"list",
            "Mailing lists",
            {{"add",
              "Create a list",
              {"ADDRESS", "MEMBER..."},
              Creation,
              "  qvmailctl list add staff@example.com bob@example.com ann@example.org",
              add},
             {"set",
              "Give a list these members, whether or not it exists",
              {"ADDRESS", "MEMBER..."},
              ChangeOptions,
              "  qvmailctl list set staff@example.com bob@example.com",
              set},
             {"join",
              "Add members to a list",
              {"ADDRESS", "MEMBER..."},
              ChangeOptions,
              "  qvmailctl list join staff@example.com joe@example.com",
              join},
             {"leave",
              "Take members out of a list",
              {"ADDRESS", "MEMBER..."},
              ChangeOptions | IfThere,
              "  qvmailctl list leave staff@example.com joe@example.com",
              leave},
             {"delete",
              "Delete a list",
              {"ADDRESS"},
              Deletion,
              "  qvmailctl list delete staff@example.com --yes",
              remove},
             {"show",
              "Show the members of a list",
              {"ADDRESS"},
              Nothing,
              "  qvmailctl list show staff@example.com",
              show},
             {"list",
              "List a domain's lists, or all, and forwarders without a mailbox",
              {"[DOMAIN]"},
              Nothing,
              "  qvmailctl list list example.com",
              list}}};
}
