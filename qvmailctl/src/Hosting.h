// What is hosted, read from the map files or from the database, by whole names: what a plain query
// of the library answers also holds what contains a name.
#ifndef QVMAILCTL_HOSTING_H
#define QVMAILCTL_HOSTING_H

#include "Names.h"
#include "Results.h"
#include "Settings.h"

#include <map>
#include <set>
#include <string>
#include <vector>

// Behind this mark, a stored hash lets nobody in, and is the old one again without it.
constexpr char DisabledMark = '!';

struct Mailbox {
    std::string hash; // as stored, with the mark
    Quota quota;
    enum Type { Unknown, User, Admin } type = Unknown; // the database keeps none

    // With files, an account has a line in each of two files; one alone is what an interrupted
    // creation of a plain program leaves.
    bool isInPasswd = true;
    bool isInShadow = true;

    bool isWhole() const { return isInPasswd && isInShadow; }
    bool isEnabled() const { return hash.empty() || hash.front() != DisabledMark; }
};

using Addresses = std::vector<std::string>;

struct Hosting {
    std::set<std::string> domains;
    std::map<std::string, Mailbox> mailboxes;
    std::map<std::string, Addresses> aliases;     // forwarders and lists, without a mailbox's row
                                                  // for itself
    std::map<std::string, std::string> catchAlls; // the address, by domain
    std::set<std::string> quotas;                 // the addresses that have an entry
    std::set<std::string> selfRows;               // of the database's aliases

    // In the list or the table of domains: a directory of that name does not count.
    bool hosts(const std::string& domain) const { return domains.count(domain) > 0; }
    const Mailbox* mailbox(const std::string& address) const;
    Addresses targetsOf(const std::string& address) const; // none when it does not forward

    // Whether the alias map or table has anything of it, a mailbox's row for itself included.
    bool hasEntry(const std::string& address) const;

    // An address that forwards and has no mailbox is a list when it has several targets.
    bool isList(const std::string& address) const;

    std::string catchAllOf(const std::string& domain) const; // empty: none
};

// Which maps or columns are to be read: each costs a pass over a file.
enum Parts : unsigned {
    Domains = 1,
    Accounts = 2,
    Quotas = 4,
    Aliases = 8,
    CatchAlls = 16,
    AllParts = 31
};

// Of whom: of everybody, of a domain, or of an address and its domain's name and catch-all.
struct Wanted {
    std::string domain = {};
    std::string address = {};
    bool forwarders = false; // of an address: also the entries that lead to it
    bool anyLetters = false; // of an address: also a mailbox of it with other capital letters
};
Wanted everything();
Wanted domainAlone(const std::string& domain);
Wanted addressAlone(const Address& address);
Wanted inAnyLetters(const Address& address); // the library takes such mailboxes for one

// Ends the command when the map is a link that leads nowhere.
void requireNoEmptyLink(const std::string& map);

// Ends the command when something cannot be read. A map that is missing is an empty one.
Hosting readHosting(const Settings& settings, const Wanted& wanted, unsigned parts);

// Asks the database, afresh where it has refused for what may pass. Ends the command, saying why, when it does not answer.
template <class Question> auto asked(const Settings& settings, const Question& question)
{
    try {
        return askPatiently([&] {
            SqlConnection database(settings.database);
            return question(database);
        });
    } catch (const Refusal& refusal) {
        stop(Status::Unreachable, refusal.reason);
    }
}

// Ends the command, saying why, when the database cannot be used.
void reachDatabase(const Settings& settings);

// The words of a list of targets, between commas or blanks.
Addresses wordsOf(std::string_view text);

#endif
