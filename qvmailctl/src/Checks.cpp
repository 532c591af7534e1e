#include "system/LargeFilesAndDates.h"

#include "Checks.h"

#include "MapFiles.h"
#include "Output.h"
#include "Programs.h"
#include "Results.h"
#include "maps/MapLines.h"
#include "system/DomainTree.h"

#include <algorithm>

#include <unistd.h>

namespace
{

bool isThere(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

// Of an address that does not forward.
bool takesMail(const Hosting& hosting, const std::string& address)
{
    return hosting.mailbox(address) != nullptr ||
           !hosting.catchAllOf(std::string(domainOf(address))).empty();
}

} // namespace

void requireHosted(const Hosting& hosting, const std::string& domain)
{
    if (!hosting.hosts(domain))
        stop(Status::NotThere, "the domain " + shown(domain) +
                                   " is not hosted here; create it with \"qvmailctl domain add " +
                                   shown(domain) + " USER\"");
}

const Mailbox& requireMailbox(const Hosting& hosting, const std::string& address)
{
    const Mailbox* const mailbox = hosting.mailbox(address);
    if (mailbox == nullptr)
        stop(Status::NotThere, "there is no mailbox " + address);
    if (!mailbox->isWhole())
        stop(Status::NotFit, "the mailbox " + address +
                                 " is in only one of " VPASSWDFILE " and " VSHADOWFILE
                                 "; \"qvmailctl check --repair\" completes it or takes it "
                                 "back, \"qvmailctl mailbox delete " +
                                 address + "\" removes the rest");
    return *mailbox;
}

void requireHomes(const std::string& domain)
{
    const std::string homes = VSPOOLDIR "/" + domain + HomeDirectory;
    if (!isThere(homes))
        stop(Status::NotFit, "the directory " + homes +
                                 " is missing, so the mailbox would get no home; is the spool "
                                 "mounted? If it is, \"qvmailctl check --repair\" makes it");
}

bool mayAddMailbox(Session& session, const Hosting& hosting, const Address& address)
{
    if (hosting.mailbox(address.text) != nullptr) {
        requireMailbox(hosting, address.text);
        if (!session.options.ifMissing)
            stop(Status::Exists, "the mailbox " + address.text + " exists already");
        return false;
    }
    if (!hosting.mailboxes.empty())
        stop(Status::Exists,
             "the mailbox " + address.text + " exists already, with capital letters");
    requireFree(session, hosting, address);
    return true;
}

void requireFree(const Session& session, const Hosting& hosting, const Address& address)
{
    if (!hosting.targetsOf(address.text).empty())
        stop(Status::Exists, address.text +
                                 " is a forwarder or a list, which would take the new mailbox's "
                                 "mail; delete it first with \"qvmailctl alias delete\" or \"list "
                                 "delete\"");
    if (hosting.quotas.count(address.text) > 0)
        stop(Status::Exists, "a quota of an earlier " + address.text +
                                 " is left in " VQUOTAFILE
                                 "; remove it with \"qvmailctl quota delete " +
                                 address.text + "\"");
    if (!session.options.takeOver && hasFormerMail(address))
        stop(Status::Exists, "mail of a former " + address.text +
                                 " still lies below " VSPOOLDIR "/" + address.domain +
                                 "/mail; let the new mailbox have it with --take-over (a host that "
                                 "moves between files and the database does), or delete it with "
                                 "\"qvmailctl mailbox delete " +
                                 address.text + "\"");
}

bool hasFormerMail(const Address& address)
{
    const std::string mail = VSPOOLDIR "/" + address.domain + "/mail";
    return isThere(mail + "/home/" + address.text) || isThere(mail + "/inbox/" + address.text);
}

void missing(const Session& session, const std::string& sentence)
{
    if (!session.options.ifThere)
        stop(Status::NotThere, sentence);
}

Kind kindOf(const Hosting& hosting, const std::string& address)
{
    return hosting.isList(address) ? Kind::List : Kind::Alias;
}

void warnOfOwnNames(const std::set<std::string>& domains)
{
    constexpr int Seconds = 5;
    const std::optional<std::string> names =
        outputOf({"postconf", "-xh", "myhostname", "mydestination"}, Seconds);
    std::set<std::string> own;
    for (const std::string& line : linesOf(names.value_or("")))
        for (const std::string& name : wordsOf(line))
            if (domains.count(lowerCase(name)) > 0)
                own.insert(lowerCase(name));
    for (const std::string& domain : own)
        tell("warning: " + domain +
             " is a name of this server itself (myhostname or mydestination of Postfix), which "
             "takes its mail for its own system accounts");
}

void warnOfTargets(const Session& session, const std::string& address, const Addresses& targets)
{
    constexpr std::size_t Many = 1000;
    if (targets.size() > Many)
        tell("warning: " + address + " has " + std::to_string(targets.size()) +
             " members; Postfix expands an address to no more than virtual_alias_expansion_limit "
             "(1000) and then puts its mail off");

    // The way of one target is read step by step, no further than is asked for; for a list,
    // everything is read once.
    constexpr unsigned Parts = Domains | Accounts | Aliases | CatchAlls;
    const bool isForwarder = targets.size() == 1;
    Hosting hosting;
    if (!isForwarder)
        hosting = session.read(everything(), Parts);
    std::set<std::string> seen;
    for (Addresses open = targets; !open.empty();) {
        const std::string target = lowerCase(open.back());
        open.pop_back();
        if (target == address) {
            tell("warning: the mail of " + address +
                 " comes back to it: a loop, which Postfix returns or puts off");
            return;
        }
        constexpr std::size_t LongestWay = 1000;
        if (!seen.insert(target).second || seen.size() > LongestWay)
            continue;
        const std::string domain(domainOf(target));
        if (isForwarder)
            hosting = session.read({domain, target}, Domains | Aliases);
        const bool isDirect = std::any_of(targets.begin(), targets.end(), [&](const auto& text) {
            return equalIgnoringCase(text, target);
        });
        const bool isOpen = isDirect && hosting.hosts(domain) && hosting.targetsOf(target).empty();
        if (isOpen &&
            !takesMail(isForwarder ? session.read({domain, target}, Accounts | CatchAlls) : hosting,
                       target))
            tell("warning: there is no " + target +
                 " here, so what is forwarded to it is returned to its sender");
        const Addresses next = hosting.targetsOf(target);
        open.insert(open.end(), next.begin(), next.end());
    }
}
