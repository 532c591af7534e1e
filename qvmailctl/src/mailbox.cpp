// mailbox add | passwd | enable | disable | type | delete | list | count | show
#include "Accounts.h"
#include "Checks.h"
#include "Commands.h"
#include "Passwords.h"
#include "Programs.h"
#include "Results.h"

#include <cstdlib>

namespace
{

bool mayAdd(Session& session, const Address& address)
{
    const Hosting hosting =
        session.read(inAnyLetters(address), Domains | Accounts | Quotas | Aliases);
    requireHosted(hosting, address.domain);
    requireHomes(address.domain);
    return mayAddMailbox(session, hosting, address);
}

Answer add(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    const Quota quota = given.quota ? checkedQuota(*given.quota) : std::nullopt;
    if (isTyped()) {
        beginAsking(session);
        if (!mayAdd(session, address))
            return {};
    }
    Password password(address.text);
    change(session, [&] {
        if (!mayAdd(session, address))
            return;

        createMailbox(session, address, password.hash(), quota, Mailbox::User);
        session.changes.added(Kind::Mailbox, address.text);
        if (quota)
            session.changes.added(Kind::Quota, address.text, textOf(quota));
        session.changes.tellScripts("quota", jsonOf(quota));
    });
    return {};
}

Answer setPassword(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    if (isTyped()) {
        beginAsking(session);
        requireMailbox(session.read(addressAlone(address), Accounts), address.text);
    }
    Password password(address.text);
    change(session, [&] {
        const Hosting hosting = session.read(addressAlone(address), Accounts);
        const bool isEnabled = requireMailbox(hosting, address.text).isEnabled();
        writeHashes(session, {{address.text,
                               (isEnabled ? "" : std::string(1, DisabledMark)) + password.hash()}});
        session.changes.changed(Kind::Mailbox, address.text, "password");
    });
    return {};
}

Answer setEnabled(Session& session, const Given& given, bool enabled)
{
    const Address address = checkedAddress(given.name);
    change(session, [&] {
        const Hosting hosting = session.read(addressAlone(address), Accounts);
        const Mailbox& mailbox = requireMailbox(hosting, address.text);
        if (mailbox.isEnabled() == enabled)
            return;
        writeHashes(session, {{address.text,
                               enabled ? mailbox.hash.substr(1) : DisabledMark + mailbox.hash}});
        session.changes.changed(Kind::Mailbox, address.text, enabled ? "enabled" : "disabled");
    });
    return {};
}

Answer enable(Session& session, const Given& given)
{
    return setEnabled(session, given, true);
}

Answer disable(Session& session, const Given& given)
{
    return setEnabled(session, given, false);
}

Answer setType(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    const std::string type = lowerCase(given.value);
    if (type != "admin" && type != "user")
        stop(Status::Refused,
             "the type " + inQuotes(given.value) + " is unknown: it is admin or user");
    if (session.settings.usesSql)
        stop(Status::NotFit, "the database keeps no user type; it exists with map files alone");
    change(session, [&] {
        const Hosting hosting = session.read(addressAlone(address), Accounts);
        const Mailbox::Type wanted = type == "admin" ? Mailbox::Admin : Mailbox::User;
        const bool isNews = requireMailbox(hosting, address.text).type != wanted;
        writeType(session, address.text, wanted);
        if (isNews)
            session.changes.changed(Kind::Mailbox, address.text, type);
    });
    return {};
}

// Reads the mailbox and the addresses that forward to it.
Hosting readWithForwarders(const Session& session, const Address& address)
{
    Wanted wanted = addressAlone(address);
    wanted.forwarders = true;
    return session.read(wanted, Accounts | Quotas | Aliases | CatchAlls);
}

// False when nothing of the mailbox is there and that is all right (--if-there).
bool mayRemove(const Session& session, const Hosting& hosting, const Address& address)
{
    if (hosting.mailbox(address.text) == nullptr && !hasFormerMail(address)) {
        missing(session, "there is no mailbox " + address.text);
        return false;
    }
    if (hosting.catchAllOf(address.domain) == address.text)
        stop(Status::Refused, address.text +
                                  " is the catch-all of its domain; set another with \"qvmailctl "
                                  "catchall set\" or take it away with \"catchall remove\" first");
    return true;
}

void tellForwarders(const Hosting& hosting, const Address& address)
{
    for (const auto& [forwarder, targets] : hosting.aliases)
        if (forwarder != address.text)
            tell("note: " + forwarder + " still forwards to " + address.text);
}

Answer remove(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    const bool isAsked = isTyped() && !session.options.yes;
    if (isAsked) { // the answer depends on who still forwards to it
        beginAsking(session);
        const Hosting hosting = readWithForwarders(session, address);
        if (!mayRemove(session, hosting, address))
            return {};
        tellForwarders(hosting, address);
    }
    confirm(session, "the mailbox " + address.text + " with all its mail");
    change(session, [&] {
        const Hosting hosting = readWithForwarders(session, address);
        if (!mayRemove(session, hosting, address))
            return;

        conclude(session, session.library.Postfix_DeleteMailbox(address.user, address.domain),
                 {PostfixResult::MailboxDeleted},
                 "the mailbox " + address.text + " could not be deleted");
        session.changes.removed(Kind::Mailbox, address.text);
        if (hosting.quotas.count(address.text) > 0)
            session.changes.removed(Kind::Quota, address.text);
        if (!hosting.targetsOf(address.text).empty())
            session.changes.removed(kindOf(hosting, address.text), address.text);
        if (!isAsked)
            tellForwarders(hosting, address);
    });
    return {};
}

Json entryOf(const std::string& address, const Mailbox& mailbox)
{
    return {{"address", address},
            {"quota", jsonOf(mailbox.quota)},
            {"type", jsonOf(mailbox.type)},
            {"enabled", mailbox.isEnabled()}};
}

// Reads the mailboxes of one domain, or of all.
Hosting readMailboxes(Session& session, const Given& given)
{
    const std::string domain = given.name.empty() ? "" : checkedDomain(given.name);
    beginQuery(session);
    Hosting hosting = session.read(domainAlone(domain), Domains | Accounts | Quotas);
    if (!domain.empty())
        requireHosted(hosting, domain);
    return hosting;
}

Answer list(Session& session, const Given& given)
{
    Answer answer{Json::array(), {}};
    const Hosting hosting = readMailboxes(session, given);
    for (const auto& [address, mailbox] : hosting.mailboxes) {
        if (session.options.json)
            answer.result.push_back(entryOf(address, mailbox));
        else
            answer.lines.push_back(address);
    }
    return answer;
}

Answer count(Session& session, const Given& given)
{
    const std::size_t number = readMailboxes(session, given).mailboxes.size();
    return {{{"count", number}}, {std::to_string(number)}};
}

// The bytes that Dovecot counts; nothing when Dovecot does not answer.
std::optional<long long> usedBy(const std::string& address)
{
    constexpr int Seconds = 5;
    constexpr long long Kibibyte = 1024;
    const std::optional<std::string> quotas =
        outputOf({"doveadm", "-f", "tab", "quota", "get", "-u", address}, Seconds);
    for (const std::string& line : linesOf(quotas.value_or(""))) {
        const std::size_t type = line.find("\tSTORAGE\t");
        if (type != std::string::npos)
            return std::atoll(line.c_str() + type + 9) * Kibibyte;
    }
    return std::nullopt;
}

Answer show(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    beginQuery(session);
    const Hosting hosting =
        session.read(addressAlone(address), Accounts | Quotas | Aliases | CatchAlls);
    const Mailbox& mailbox = requireMailbox(hosting, address.text);
    const std::optional<long long> used = usedBy(address.text);
    const bool isCatchAll = hosting.catchAllOf(address.domain) == address.text;

    Json result = entryOf(address.text, mailbox);
    result["domain"] = address.domain;
    result["used"] = jsonOf(used);
    result["forwards_to"] = hosting.targetsOf(address.text);
    result["catch_all_of"] = isCatchAll ? Json(address.domain) : Json(nullptr);

    std::vector<std::string> lines = {"address: " + address.text};
    if (mailbox.type != Mailbox::Unknown)
        lines.push_back("type: " + jsonOf(mailbox.type).get<std::string>());
    lines.emplace_back(mailbox.isEnabled() ? "state: enabled" : "state: disabled");
    lines.push_back("quota: " + textOf(mailbox.quota));
    if (used)
        lines.push_back("used: " + std::to_string(*used));
    for (const std::string& target : hosting.targetsOf(address.text))
        lines.push_back("forwards to: " + target);
    if (isCatchAll)
        lines.push_back("catch-all of: " + address.domain);
    return {result, lines};
}

} // namespace

Object mailboxCommands()
{
    return {"mailbox",
            "Mailboxes",
            {{"add",
              "Add a mailbox",
              {"ADDRESS"},
              Creation | QuotaOption | TakeOver,
              "  qvmailctl mailbox add bob@example.com\n"
              "  echo 'secret' | qvmailctl mailbox add bob@example.com --quota 500M",
              add},
             {"passwd",
              "Change a mailbox's password",
              {"ADDRESS"},
              ChangeOptions,
              "  qvmailctl mailbox passwd bob@example.com\n"
              "  echo 'secret' | qvmailctl mailbox passwd bob@example.com",
              setPassword},
             {"disable",
              "Let nobody log in to a mailbox; its mail still arrives",
              {"ADDRESS"},
              ChangeOptions,
              "  qvmailctl mailbox disable bob@example.com",
              disable},
             {"enable",
              "Let the user of a disabled mailbox log in again, with the former password",
              {"ADDRESS"},
              ChangeOptions,
              "  qvmailctl mailbox enable bob@example.com",
              enable},
             {"type",
              "Make the user of a mailbox an administrator (admin) or an ordinary user (user)",
              {"ADDRESS", "TYPE"},
              ChangeOptions,
              "  qvmailctl mailbox type bob@example.com admin",
              setType},
             {"delete",
              "Delete a mailbox and its mail",
              {"ADDRESS"},
              Deletion,
              "  qvmailctl mailbox delete bob@example.com --dry-run\n"
              "  qvmailctl mailbox delete bob@example.com --yes",
              remove},
             {"list",
              "List a domain's mailboxes, or all",
              {"[DOMAIN]"},
              Nothing,
              "  qvmailctl mailbox list\n"
              "  qvmailctl mailbox list example.com --json",
              list},
             {"count",
              "Count a domain's mailboxes, or all",
              {"[DOMAIN]"},
              Nothing,
              "  qvmailctl mailbox count example.com",
              count},
             {"show",
              "Show a mailbox's state, its quota and where its mail goes",
              {"ADDRESS"},
              Nothing,
              "  qvmailctl mailbox show bob@example.com",
              show}}};
}
