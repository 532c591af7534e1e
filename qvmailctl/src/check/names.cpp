// Domains and addresses that lead nowhere, in files and in the database
#include "Areas.h"

#include "MapFiles.h"
#include "Output.h"

namespace
{

// Where each kind of entry is kept: a map file or a table of the database.
struct Places {
    const char* domains;
    const char* mailboxes;
    const char* aliases;
    const char* catchAlls;
};
constexpr Places InFiles = {VDOMAINFILE, VPASSWDFILE, VALIASFILE, VMAPSFILE};
constexpr Places InTables = {"virtual_domains", "virtual_users", "virtual_aliases",
                             "virtual_aliases"};

bool takesMail(const Hosting& hosting, const std::string& address)
{
    return hosting.mailbox(address) != nullptr || !hosting.targetsOf(address).empty();
}

Finding halfMade(const std::string& domain, const Places& places)
{
    return {"domain-half-made", places.domains, domain, domain + " is hosted and has no mailbox",
            "finish it with \"qvmailctl domain add " + domain +
                " USER\", or take it away with \"qvmailctl domain delete " + domain + "\""};
}

// What lists a domain whose mailboxes are there: "domain add" makes one.
std::string listing(const std::string& domain, const Places& places)
{
    const bool isMap = places.domains == std::string(VDOMAINFILE);
    return isMap ? "\"echo " + domain + " >> " VDOMAINFILE "\""
                 : "\"insert into virtual_domains values ('" + domain + "')\"";
}

void checkDomains(const Hosting& hosting, const Places& places, Findings& findings)
{
    std::map<std::string, std::size_t> mailboxes;
    for (const auto& [address, mailbox] : hosting.mailboxes)
        if (faultOfDomain(domainOf(address)) == nullptr) // else its line is reported already
            ++mailboxes[std::string(domainOf(address))];
    for (const std::string& domain : hosting.domains)
        if (mailboxes.count(domain) == 0 &&
            faultOfDomain(domain) == nullptr) // no shell command may name it
            findings.push_back(halfMade(domain, places));
    for (const auto& [domain, count] : mailboxes)
        if (!hosting.hosts(domain))
            findings.push_back({"domain-not-hosted", places.domains, domain,
                                domain + " is not in it and has " + std::to_string(count) +
                                    " mailboxes, whose mail is refused",
                                "host it again with " + listing(domain, places) +
                                    ", or finish its deletion with \"qvmailctl domain delete " +
                                    domain + "\""});
}

void checkForwarder(const std::string& address, const Addresses& targets, const Hosting& hosting,
                    const Places& places, Findings& findings)
{
    const std::string command = hosting.isList(address) ? "list" : "alias";
    if (!hosting.hosts(std::string(domainOf(address))))
        findings.push_back({"alias-not-hosted", places.aliases, address,
                            address + " forwards, and its domain is not hosted",
                            "delete it with \"qvmailctl " + command + " delete " + address + "\""});
    for (const std::string& text : targets) {
        const std::string target = lowerCase(text);
        const std::string domain(domainOf(target));
        if (hosting.hosts(domain) && hosting.catchAllOf(domain).empty() &&
            !takesMail(hosting, target))
            findings.push_back(
                {"alias-astray", places.aliases, address,
                 address + " forwards to " + shown(target) +
                     ", which does not exist: what is forwarded is returned",
                 "make the mailbox, or change it with \"qvmailctl " + command + " set\""});
    }
}

void checkCatchAll(const std::string& domain, const std::string& target, const Hosting& hosting,
                   const Places& places, Findings& findings)
{
    const std::string removal = "\"qvmailctl catchall remove " + domain + "\"";
    if (!hosting.hosts(domain))
        findings.push_back({"catch-all-not-hosted", places.catchAlls, domain,
                            domain + " has a catch-all and is not hosted",
                            "take it away with " + removal});
    else if (hosting.hosts(std::string(domainOf(target))) && !takesMail(hosting, target))
        findings.push_back({"catch-all-astray", places.catchAlls, domain,
                            "the catch-all of " + domain + " is " + target +
                                ", which is no mailbox: mail is taken, then returned",
                            "set another with \"qvmailctl catchall set " + domain +
                                " USER\", or take it away with " + removal});
}

} // namespace

void checkNames(const Settings& settings, const Hosting& hosting, Findings& findings)
{
    const Places& places = settings.usesSql ? InTables : InFiles;
    checkDomains(hosting, places, findings);
    for (const auto& [address, targets] : hosting.aliases)
        if (faultOfDomain(domainOf(address)) == nullptr) // else its line is reported already
            checkForwarder(address, targets, hosting, places, findings);
    for (const auto& [domain, target] : hosting.catchAlls)
        checkCatchAll(domain, target, hosting, places, findings);
}
