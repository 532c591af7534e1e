// domain add | delete | quota
#include "Checks.h"
#include "Commands.h"
#include "Maps.h"
#include "Output.h"
#include "Passwords.h"
#include "Results.h"

#include <algorithm>
#include <cstdlib>

namespace
{

void add(Host& host, const Given& given)
{
    const Address first = checkedAddress(given.value, checkedDomain(given.name));
    const std::string quota = checkedQuota(given.quota);
    const Password password(first.text);
    beginChange(host);

    // One that is listed without a mailbox is what an interrupted creation leaves: it goes on.
    if (!mailboxesOf(host, first.domain).empty())
        refuse("the domain " + first.domain +
               " has mailboxes already; add another with "
               "\"qvmailctl mailbox add " +
               first.text + "\"");
    requireFree(host, first.text);

    conclude(
        host,
        host.library.Postfix_CreateMailDomain(first.domain, first.user, password.text(), quota),
        {PostfixResult::DomainCreated}, "the domain " + first.domain + " could not be created");
}

void remove(Host& host, const Given& given)
{
    const std::string domain = checkedDomain(given.name);
    confirm(host, "the domain " + domain + " with all its mailboxes and their mail");
    beginChange(host);

    // What an interrupted deletion left may have neither list entry nor spool tree.
    if (!isHosted(host, domain) && mailboxesOf(host, domain).empty())
        notThere("the domain " + domain + " is not hosted here");

    conclude(host, host.library.Postfix_DeleteMailDomain(domain), {PostfixResult::DomainDeleted},
             "the domain " + domain + " could not be deleted");
}

// With files, the library's total leaves out mailboxes without a quota line and is 0 from a "-1"
// on. True when one mailbox of the domain has no limit.
bool hasUnlimitedInFiles(Host& host, const std::string& domain)
{
    bool isUnlimited = false;
    const std::vector<std::string> limited =
        namesOf(VQUOTAFILE, "@" + domain, [&](std::string_view name, std::string_view line) {
            if (domainOf(name) != domain)
                return false;
            const std::string_view quota = line.substr(std::min(line.size(), name.size() + 1));
            isUnlimited = isUnlimited || quota == Unlimited || quota == "0";
            return true;
        });
    return isUnlimited || limited.size() < mailboxesOf(host, domain).size();
}

// With tables, the library's answer "unlimited" may be about another domain's mailbox: these are
// asked one by one.
void sumOneByOne(Host& host, const std::string& domain)
{
    constexpr long long Kibibyte = 1024;
    long long sum = 0;
    for (const std::string& mailbox : mailboxesOf(host, domain)) {
        const std::string quota = quotaOf(host, mailbox);
        if (quota == Unlimited)
            return answer("unlimited");
        sum += std::atoll(quota.c_str());
    }
    answer(std::to_string(sum / Kibibyte) + " KiB");
}

void quota(Host& host, const Given& given)
{
    const std::string domain = checkedDomain(given.name);
    beginQuery(host);
    requireHosted(host, domain);

    long long total = 0;
    const int code = host.library.Postfix_RetrieveDomainQuota(domain, total);
    if (host.settings.onTables) // files: without a map there are no quotas
        conclude(host, code, {PostfixResult::TotalRead, PostfixResult::TotalUnlimited},
                 "the quotas of " + domain + " could not be read");
    if (host.settings.onTables && code == PostfixResult::TotalUnlimited)
        sumOneByOne(host, domain);
    else if (!host.settings.onTables && hasUnlimitedInFiles(host, domain))
        answer("unlimited");
    else
        answer(std::to_string(std::max(total, 0LL)) + " KiB");
}

} // namespace

Object domainCommands()
{
    return {"domain",
            "Hosted domains",
            {{"add", "Host a domain, with its first mailbox", {"DOMAIN", "USER"}, add, true},
             {"delete", "Delete a domain, its mailboxes and all their mail", {"DOMAIN"}, remove},
             {"quota", "Show the sum of its mailboxes' quotas, in KiB", {"DOMAIN"}, quota}}};
}
