// The directories of domains and mailboxes, and the mail in them
#include "system/LargeFilesAndDates.h"

#include "Areas.h"

#include "Checks.h"
#include "Output.h"
#include "Paths.h"
#include "system/DomainTree.h"
#include "system/Refusal.h"
#include "system/SpoolTree.h"
#include "system/SystemAccounts.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <set>
#include <unordered_set>

namespace
{

constexpr mode_t OwnerBits = 0700;
constexpr mode_t GroupStays = 02000;
constexpr mode_t WritableByOthers = 02;

const std::string Removed = ".removed-"; // begins the name of mail that is to be removed

struct Spool {
    const Hosting& hosting;
    std::optional<Ownership> owner; // of all mail; nothing when the accounts are missing
    Findings& findings;
};

using Addresses = std::vector<std::string>;

std::string below(const std::string& directory, const std::string& name)
{
    return directory + "/" + name;
}

bool beginsWith(const std::string& text, const std::string& beginning)
{
    return text.compare(0, beginning.size(), beginning) == 0;
}

void checkRemoved(const std::string& directory, const std::string& name, Findings& findings)
{
    if (beginsWith(name, Removed))
        findings.push_back({"mail-not-removed", below(directory, name), "",
                            "is deleted mail that could not be removed",
                            "remove it with \"rm -r\", unless the next change does by itself"});
}

void addMaking(const char* kind, const OwnedDirectory& directory, const std::string& name,
               const std::string& fault, const std::string& remedy, Findings& findings)
{
    findings.push_back({kind, directory.path, name, fault, remedy, Mend::Beside,
                        [directory](Mending& mending) { mending.makeDirectory(directory); }});
}

// The first that is not empty stays, with those that it lies in.
void addRemoval(Finding finding, const std::vector<std::string>& directories, Findings& findings)
{
    if (!directories.empty()) {
        finding.wayOut = "it is removed, as it holds nothing";
        finding.how = Mend::Beside;
        finding.mend = [directories](Mending&) {
            for (const std::string& directory : directories)
                if (const int failure = removeEmptyFromSpool(directory))
                    refuse(directory + " cannot be removed: " + strerror(failure));
        };
    }
    findings.push_back(std::move(finding));
}

// A mode tighter than the library's is no fault, as long as mail can be delivered.
bool areGoodRights(const PathFacts& facts, const OwnedDirectory& wanted)
{
    const mode_t needed = OwnerBits | (wanted.mode & GroupStays);
    return facts.user == wanted.owner.user && facts.group == wanted.owner.group &&
           (facts.mode & needed) == needed && (facts.mode & WritableByOthers & ~wanted.mode) == 0;
}

// True when it is a directory. Only a domain's own directory may be a link to one.
bool checkDirectory(const Spool& spool, const OwnedDirectory& wanted, bool mayBeLink,
                    const std::string& domain)
{
    const std::string& path = wanted.path;
    const std::optional<PathFacts> facts = mayBeLink ? factsBehind(path) : factsOf(path);
    if (!facts && !isThere(path)) {
        if (spool.owner)
            addMaking("directory-missing", wanted, domain,
                      "is missing, so mail of " + domain + " cannot be delivered", "it is made",
                      spool.findings);
        return false;
    }
    if (!facts || facts->type != PathType::Directory) {
        spool.findings.push_back({"not-a-directory", path, domain,
                                  facts && facts->type != PathType::Link
                                      ? "is no directory"
                                      : "is a link where a directory belongs",
                                  "look where it leads, and put the directory itself there"});
        return false;
    }
    if (spool.owner && !areGoodRights(*facts, wanted))
        addMaking("directory-rights", wanted, domain,
                  "has the owner " + std::to_string(facts->user) + ":" +
                      std::to_string(facts->group) + " and the mode " + octal(facts->mode),
                  "it has those of the library, " + std::to_string(wanted.owner.user) + ":" +
                      std::to_string(wanted.owner.group) + " and " + octal(wanted.mode),
                  spool.findings);
    return true;
}

// ---- Homes and inboxes ----

bool isEmptyDirectory(const std::string& path)
{
    const std::optional<PathFacts> facts = factsOf(path);
    return facts && facts->type == PathType::Directory && namesIn(path).empty();
}

// True when the mail belongs to a mailbox; otherwise the name is added to the orphans.
bool checkOwned(const Spool& spool, const std::string& path, const std::string& name,
                std::set<std::string>& orphans)
{
    if (spool.hosting.mailbox(name) != nullptr)
        return true;
    if (faultOfAddress(name) == nullptr && orphans.insert(name).second)
        addRemoval(
            {"mail-without-mailbox", path, name, "is mail of " + name + ", which is no mailbox",
             "give it to a new one with \"qvmailctl mailbox add " + name +
                 " --take-over\", or delete it with \"qvmailctl mailbox delete " + name + "\""},
            isEmptyDirectory(path) ? std::vector<std::string>{path} : std::vector<std::string>(),
            spool.findings);
    return false;
}

void checkHome(const Spool& spool, const OwnedDirectory& home, const std::string& name)
{
    const std::optional<PathFacts> facts = factsOf(home.path);
    if (!facts)
        return; // gone meanwhile
    if (facts->type != PathType::Directory)
        spool.findings.push_back({"not-a-directory", home.path, name,
                                  facts->type == PathType::Link
                                      ? "is a link where the home of " + name + " belongs"
                                      : "is no directory",
                                  "look where it leads, and put the directory itself there"});
    else if (spool.owner &&
             (facts->user != spool.owner->user || (facts->mode & OwnerBits) != OwnerBits))
        addMaking("directory-rights", home, name,
                  "has the owner " + std::to_string(facts->user) + " and the mode " +
                      octal(facts->mode) + ", so mail of " + name + " cannot be delivered",
                  "it belongs to qvadmin, with mode " + octal(home.mode), spool.findings);
}

void checkHomes(const Spool& spool, const std::string& directory, const Addresses& mailboxes,
                std::set<std::string>& orphans)
{
    std::unordered_set<std::string> found;
    const auto homeOf = [&](const std::string& name) {
        return OwnedDirectory{below(directory, name), HomeMode,
                              spool.owner.value_or(Ownership{0, 0})};
    };
    for (const std::string& name : namesIn(directory)) {
        checkRemoved(directory, name, spool.findings);
        if (checkOwned(spool, below(directory, name), name, orphans))
            checkHome(spool, homeOf(name), name);
        found.insert(name);
    }
    for (const std::string& name : mailboxes)
        if (found.count(name) == 0 && spool.owner)
            addMaking("home-missing", homeOf(name), name, "is missing: " + name + " has no home",
                      "it is made", spool.findings);
}

void checkInboxes(const Spool& spool, const std::string& directory, std::set<std::string>& orphans)
{
    for (const std::string& name : namesIn(directory)) {
        const std::string path = below(directory, name);
        checkRemoved(directory, name, spool.findings);
        if (name.find(".lock") != std::string::npos) // made by a delivery at work
            continue;
        if (!checkOwned(spool, path, name, orphans))
            continue;
        const std::optional<PathFacts> facts = factsOf(path);
        if (facts && facts->type == PathType::Link)
            spool.findings.push_back({"inbox-is-link", path, name,
                                      "is a link where the inbox of " + name + " belongs",
                                      "look where it leads, and put the file itself there"});
        else if (facts && spool.owner && facts->user != spool.owner->user)
            spool.findings.push_back({"inbox-rights", path, name,
                                      "belongs to the user " + std::to_string(facts->user) +
                                          ", so mail of " + name + " cannot be delivered",
                                      "\"chown qvadmin " + path + "\""});
    }
}

// ---- Trees ----

void checkTree(const Spool& spool, const std::string& domain, const Addresses& mailboxes)
{
    const std::string tree = below(VSPOOLDIR, domain);
    std::set<std::string> orphans;
    std::set<std::string> unfit;
    for (const TreeDirectory& directory : DomainTree) {
        const std::string part = directory.path;
        const std::string path = tree + part;
        const std::string holder = part.substr(0, part.rfind('/'));
        const OwnedDirectory wanted = {path, directory.mode, spool.owner.value_or(Ownership{0, 0})};
        const bool isReached = part.empty() || unfit.count(holder) == 0;
        if (!isReached || !checkDirectory(spool, wanted, part.empty(), domain))
            unfit.insert(part);
        else if (part == InboxDirectory)
            checkInboxes(spool, path, orphans);
        else if (part == HomeDirectory)
            checkHomes(spool, path, mailboxes, orphans);
    }
}

// The directories of a domain, the deepest first, where they are what the library makes and hold
// nothing else; else none.
std::vector<std::string> emptyTreeOf(const std::string& domain)
{
    const std::string tree = below(VSPOOLDIR, domain);
    std::set<std::string, std::greater<>> directories; // what lies in another comes before it
    for (const TreeDirectory& directory : DomainTree)
        directories.insert(tree + directory.path);
    for (const std::string& name : namesIn(tree + "/mail/home"))
        directories.insert(below(tree + "/mail/home", name));
    for (const std::string& path : directories) {
        const std::optional<PathFacts> facts = factsOf(path);
        if (facts && facts->type != PathType::Directory)
            return {};
        for (const std::string& name : namesIn(path))
            if (directories.count(below(path, name)) == 0)
                return {};
    }
    return {directories.begin(), directories.end()};
}

void addLeftTree(const std::string& domain, Findings& findings)
{
    addRemoval({"tree-without-domain", below(VSPOOLDIR, domain), domain,
                "is of " + domain + ", which is not hosted",
                "host it with \"qvmailctl domain add " + domain +
                    " USER --take-over\", import its accounts if they are still elsewhere "
                    "(docs/moving.md), or remove it with \"qvmailctl domain delete " +
                    domain + "\""},
               emptyTreeOf(domain), findings);
}

std::map<std::string, Addresses> mailboxesByDomain(const Hosting& hosting)
{
    std::map<std::string, Addresses> byDomain;
    for (const auto& [address, mailbox] : hosting.mailboxes)
        if (mailbox.isWhole() && faultOfAddress(address) == nullptr)
            byDomain[std::string(domainOf(address))].push_back(address);
    return byDomain;
}

bool areAllTreesGone(const Hosting& hosting)
{
    return !hosting.domains.empty() &&
           std::none_of(hosting.domains.begin(), hosting.domains.end(),
                        [](const auto& domain) { return isThere(VSPOOLDIR "/" + domain); });
}

} // namespace

void checkSpool(const Hosting& hosting, Findings& findings)
{
    const Spool spool = {hosting, ownershipApart(MailOwner, MailReaders), findings};
    std::map<std::string, Addresses> mailboxes = mailboxesByDomain(hosting);
    const bool isMissing = !isThere(VSPOOLDIR);
    if (isMissing || (!mailboxes.empty() && areAllTreesGone(hosting))) {
        findings.push_back({"spool-missing", VSPOOLDIR, "",
                            isMissing ? "is missing" : "holds nothing of any hosted domain",
                            std::string("mount it, if it is a disk; else \"mkdir ") +
                                (isMissing ? VSPOOLDIR : VSPOOLDIR "/" + *hosting.domains.begin()) +
                                "\", and \"qvmailctl check --repair\" makes the rest"});
        return;
    }
    for (const std::string& name : namesIn(VSPOOLDIR)) {
        checkRemoved(VSPOOLDIR, name, findings);
        if (faultOfDomain(name) == nullptr && !hosting.hosts(name) && mailboxes.count(name) == 0)
            addLeftTree(name, findings);
    }
    for (const std::string& domain : hosting.domains)
        if (faultOfDomain(domain) == nullptr)
            checkTree(spool, domain, mailboxes[domain]);
}
