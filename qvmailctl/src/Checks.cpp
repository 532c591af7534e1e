#include "system/LargeFilesAndDates.h"

#include "Checks.h"

#include "Maps.h"
#include "Results.h"
#include "maps/MapLines.h"

#include <algorithm>

#include <unistd.h>

namespace
{

bool isThere(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

// A list of members is written as one word with commas; hands write blanks too.
void appendWords(VectorString& words, const std::string& text)
{
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find_first_of(", \t", begin), text.size());
        if (end > begin)
            words.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
}

} // namespace

bool isHosted(Host& host, const std::string& domain)
{
    if (host.settings.onTables)
        return isThere(VSPOOLDIR "/" + domain) || !mailboxesOf(host, domain).empty();
    return hasEntry(VDOMAINFILE, domain);
}

void requireHosted(Host& host, const std::string& domain)
{
    if (!isHosted(host, domain))
        notThere("the domain " + domain +
                 " is not hosted here; create it with \"qvmailctl domain add " + domain +
                 " USER\"" + (host.settings.onTables ? ", or mount " VSPOOLDIR : ""));
}

Mailbox mailboxState(Host& host, const std::string& address)
{
    if (host.settings.onTables)
        return host.library.Postfix_IsMailboxExists(address) ? Mailbox::Whole : Mailbox::None;
    const bool hasAccount = hasEntry(VPASSWDFILE, address);
    const bool hasPassword = hasEntry(VSHADOWFILE, address);
    if (hasAccount != hasPassword)
        return Mailbox::Half;
    return hasAccount ? Mailbox::Whole : Mailbox::None;
}

void requireMailbox(Host& host, const std::string& address)
{
    const Mailbox state = mailboxState(host, address);
    if (state == Mailbox::None)
        notThere("there is no mailbox " + address);
    if (state == Mailbox::Half)
        refuse("the mailbox " + address +
               " is in only one of " VPASSWDFILE " and " VSHADOWFILE
               "; remove the rest with \"qvmailctl mailbox delete " +
               address + "\" and add it anew");
}

void requireFree(Host& host, const std::string& address)
{
    if (mailboxState(host, address) == Mailbox::Half)
        requireMailbox(host, address);
    if (host.library.Postfix_IsMailboxExists(address))
        refuse("the mailbox " + address + " exists already, maybe with capital letters");
    if (!destinationsOf(host, address).empty())
        refuse(address + " is a forwarder or a list, which would take the new mailbox's mail; "
                         "delete it first with \"qvmailctl alias delete\" or \"list delete\"");
    if (host.settings.onTables)
        return;
    if (hasEntry(VQUOTAFILE, address))
        refuse("a quota of an earlier " + address +
               " is left in " VQUOTAFILE "; remove it with \"qvmailctl quota delete " + address +
               "\"");
}

VectorString mailboxesOf(Host& host, const std::string& domain)
{
    VectorString names;
    if (!host.settings.onTables && !isThere(VPASSWDFILE))
        return names;
    conclude(host, host.library.Postfix_GetMailboxList(domain, &names), {PostfixResult::Done},
             "the mailboxes of " + domain + " could not be read");
    for (std::string& name : names)
        name += "@" + domain;
    return names;
}

VectorString destinationsOf(Host& host, const std::string& address)
{
    VectorString values;
    VectorString words;
    if (!host.settings.onTables && !isThere(VALIASFILE))
        return words;
    conclude(host, host.library.Postfix_GetListSettings(address, &values), {PostfixResult::Done},
             "the destinations of " + address + " could not be read");
    for (const std::string& value : values)
        if (!host.settings.onTables || !equalIgnoringCase(value, address))
            appendWords(words, value);
    return words;
}

bool hasAliasEntry(Host& host, const std::string& address)
{
    return host.settings.onTables ? host.library.Postfix_IsVListExists(address)
                                  : hasEntry(VALIASFILE, address);
}

std::string catchAllOf(Host& host, const std::string& domain)
{
    std::string target;
    host.library.Postfix_RetreiveCatchAllAddress(domain, target);
    return target.empty() || contains(target, "@") ? target : target + "@" + domain;
}

std::string quotaOf(Host& host, const std::string& address)
{
    // The library would answer with the first line that holds the text, be it another mailbox's.
    std::string quota = host.settings.onTables ? host.library.Postfix_RetrieveQuota(address)
                                               : valueOf(VQUOTAFILE, address).value_or(Unlimited);
    trimRightSpaces(quota);
    return quota == "0" ? Unlimited : quota;
}

VectorString forwardersTo(const std::string& target)
{
    return namesOf(VALIASFILE, target, [&](std::string_view name, std::string_view line) {
        VectorString words;
        appendWords(words, std::string(line.substr(name.size())));
        return std::any_of(words.begin(), words.end(), [&](const std::string& word) {
            return equalIgnoringCase(word, target);
        });
    });
}
