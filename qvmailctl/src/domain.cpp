// domain add | delete | list | show | quota
#include "Accounts.h"
#include "Checks.h"
#include "Commands.h"
#include "Passwords.h"
#include "Results.h"

#include <algorithm>
#include <filesystem>

namespace
{

// Whether the domain may be made with that first mailbox; see mayAddMailbox.
bool mayAdd(Session& session, const Address& first)
{
    const Hosting hosting = session.read(domainAlone(first.domain), Domains | Accounts);
    // A listed domain without a mailbox was left by an interrupted creation, which goes on here.
    if (!hosting.mailboxes.empty()) {
        if (session.options.ifMissing && hosting.hosts(first.domain))
            return false;
        stop(Status::Exists, "the domain " + first.domain +
                                 " has mailboxes already; add another with \"qvmailctl mailbox "
                                 "add " +
                                 first.text + "\"");
    }
    return mayAddMailbox(session, session.read(inAnyLetters(first), Accounts | Quotas | Aliases),
                         first);
}

Answer add(Session& session, const Given& given)
{
    const Address first = checkedAddress(given.value, checkedDomain(given.name));
    const Quota quota = given.quota ? checkedQuota(*given.quota) : std::nullopt;
    if (isTyped()) {
        beginAsking(session);
        if (!mayAdd(session, first))
            return {};
    }
    Password password(first.text);
    change(session, [&] {
        if (!mayAdd(session, first))
            return;
        warnOfOwnNames({first.domain});

        // Taken off first: a database would list a half-made domain twice.
        if (session.read(domainAlone(first.domain), Domains).hosts(first.domain))
            conclude(session, session.library.Postfix_VHostFile(first.domain, "RmvDomain"),
                     {PostfixResult::Done},
                     "the domain " + first.domain + " could not be listed anew");
        // The library would leave copies of a clear password in memory: it gets a random one, and
        // the hash is stored afterwards.
        conclude(session,
                 session.library.Postfix_CreateMailDomain(first.domain, first.user,
                                                          randomPassword(), libraryText(quota)),
                 {PostfixResult::DomainCreated},
                 "the domain " + first.domain + " could not be created");
        writeHashes(session, {{first.text, password.hash()}});
        session.changes.added(Kind::Domain, first.domain);
        session.changes.added(Kind::Mailbox, first.text);
        if (quota)
            session.changes.added(Kind::Quota, first.text, textOf(quota));
        session.changes.tellScripts("quota", jsonOf(quota));
    });
    return {};
}

// False when nothing of the domain is there and that is all right (--if-there).
bool mayRemove(const Session& session, const Hosting& hosting, const std::string& domain)
{
    // An interrupted deletion may have left any part of it, even its mail alone.
    const std::filesystem::path tree = VSPOOLDIR "/" + domain;
    if (hosting.hosts(domain) || !hosting.mailboxes.empty() || !hosting.aliases.empty() ||
        !hosting.quotas.empty() || !hosting.catchAllOf(domain).empty() ||
        std::filesystem::exists(std::filesystem::symlink_status(tree)))
        return true;
    missing(session, "the domain " + domain + " is not hosted here");
    return false;
}

Answer remove(Session& session, const Given& given)
{
    const std::string domain = checkedDomain(given.name);
    if (isTyped()) {
        beginAsking(session);
        if (!mayRemove(session, session.read(domainAlone(domain)), domain))
            return {};
    }
    confirm(session, "the domain " + domain + " with all its mailboxes and their mail");
    change(session, [&] {
        const Hosting hosting = session.read(domainAlone(domain));
        if (!mayRemove(session, hosting, domain))
            return;

        conclude(session, session.library.Postfix_DeleteMailDomain(domain),
                 {PostfixResult::DomainDeleted}, "the domain " + domain + " could not be deleted");
        session.changes.removed(Kind::Domain, domain);
        for (const auto& [address, mailbox] : hosting.mailboxes)
            session.changes.removed(Kind::Mailbox, address);
        for (const std::string& address : hosting.quotas)
            session.changes.removed(Kind::Quota, address);
        for (const auto& [address, targets] : hosting.aliases)
            session.changes.removed(kindOf(hosting, address), address);
        if (!hosting.catchAllOf(domain).empty())
            session.changes.removed(Kind::CatchAll, domain);
    });
    return {};
}

Answer list(Session& session, const Given& /*given*/)
{
    beginQuery(session);
    Answer answer{Json::array(), {}};
    for (const std::string& domain : session.read(everything(), Domains).domains) {
        answer.result.push_back({{"domain", domain}});
        answer.lines.push_back(domain);
    }
    return answer;
}

// The sum of its quotas; no limit when one mailbox has none.
Quota totalOf(const Hosting& hosting)
{
    long long sum = 0;
    for (const auto& [address, mailbox] : hosting.mailboxes) {
        if (!mailbox.quota)
            return std::nullopt;
        sum += *mailbox.quota;
    }
    return sum;
}

Answer show(Session& session, const Given& given)
{
    const std::string domain = checkedDomain(given.name);
    beginQuery(session);
    const Hosting hosting = session.read(domainAlone(domain));
    requireHosted(hosting, domain);

    const std::string catchAll = hosting.catchAllOf(domain);
    const auto lists = std::count_if(hosting.aliases.begin(), hosting.aliases.end(),
                                     [&](auto& alias) { return hosting.isList(alias.first); });
    const auto aliases = static_cast<long>(hosting.aliases.size()) - lists;
    return {{{"domain", domain},
             {"mailboxes", hosting.mailboxes.size()},
             {"aliases", aliases},
             {"lists", lists},
             {"catch_all", catchAll.empty() ? Json(nullptr) : Json(catchAll)},
             {"quota", jsonOf(totalOf(hosting))}},
            {"domain: " + domain, "mailboxes: " + std::to_string(hosting.mailboxes.size()),
             "aliases: " + std::to_string(aliases), "lists: " + std::to_string(lists),
             "catch-all: " + (catchAll.empty() ? "none" : catchAll),
             "quota: " + textOf(totalOf(hosting))}};
}

Answer quota(Session& session, const Given& given)
{
    const std::string domain = checkedDomain(given.name);
    beginQuery(session);
    const Hosting hosting = session.read(domainAlone(domain), Domains | Accounts | Quotas);
    requireHosted(hosting, domain);
    constexpr long long Kibibyte = 1024;
    const Quota total = totalOf(hosting);
    return {{{"domain", domain}, {"quota", jsonOf(total)}},
            {total ? std::to_string(*total / Kibibyte) + " KiB" : textOf(total)}};
}

} // namespace

Object domainCommands()
{
    return {
        "domain",
        "Hosted domains",
        {{"add",
          "Host a domain, with its first mailbox, whose user is an administrator",
          {"DOMAIN", "USER"},
          Creation | QuotaOption | TakeOver,
          "  qvmailctl domain add example.com postmaster\n"
          "  echo 'secret' | qvmailctl domain add example.com postmaster --quota 1.5G --if-missing",
          add},
         {"delete",
          "Delete a domain, its mailboxes and all their mail",
          {"DOMAIN"},
          Deletion,
          "  qvmailctl domain delete example.com --dry-run\n"
          "  qvmailctl domain delete example.com --yes",
          remove},
         {"list", "List the hosted domains", {}, Nothing, "  qvmailctl domain list", list},
         {"show",
          "Show what a domain has",
          {"DOMAIN"},
          Nothing,
          "  qvmailctl domain show example.com",
          show},
         {"quota",
          "Show the sum of the quotas of a domain's mailboxes, in KiB",
          {"DOMAIN"},
          Nothing,
          "  qvmailctl domain quota example.com",
          quota}}};
}
