// What is hosted, read from the map files or from the database by whole names: a plain query of the
// library would also answer for longer names that contain the name.
#ifndef QVMAILCTL_HOSTING_H
#define QVMAILCTL_HOSTING_H

#include "Names.h"
#include "Results.h"
#include "Settings.h"

#include <map>
#include <set>
#include <string>
#include <vector>

// A stored hash with this mark before it lets nobody in. Without the mark it is the former hash.
constexpr char DisabledMark = '!';

struct Mailbox {
    std::string hash; // as stored, with the mark
    Quota quota;
    enum Type { Unknown, User, Admin } type = Unknown; // the database keeps none

    // With files, an account has a line in each of two files. When there is only one, a plain
    // program was interrupted while it made or deleted the mailbox.
    bool isInPasswd = true;
    bool isInShadow = true;

    bool isWhole() const { return isInPasswd && isInShadow; }
    bool isEnabled() const { return hash.empty() || hash.front() != DisabledMark; }
};

using Addresses = std::vector<std::string>;

struct Hosting {
    std::set<std::string> domains;
    std::map<std::string, Mailbox> mailboxes;
    std::map<std::string, Addresses> aliases;     // forwarders and lists, without self rows
    std::map<std::string, std::string> catchAlls; // the target's address, by domain
    std::set<std::string> quotas;                 // the addresses that have a quota entry
    std::set<std::string> selfRows;               // addresses with a row for themselves

    // Whether the list or table of domains has it. A directory of that name does not count.
    bool hosts(const std::string& domain) const { return domains.count(domain) > 0; }
    const Mailbox* mailbox(const std::string& address) const;
    Addresses targetsOf(const std::string& address) const; // none when it does not forward

    // Whether the alias map or table has an entry of it, a mailbox's row for itself included.
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

// Whose entries: everybody's, a domain's, or those of an address, its domain and its catch-all.
struct Wanted {
    std::string domain = {};
    std::string address = {};
    bool forwarders = false; // with an address: also the entries that lead to it
    bool anyLetters = false; // with an address: also its mailbox in another letter case
};
Wanted everything();
Wanted domainAlone(const std::string& domain);
Wanted addressAlone(const Address& address);
Wanted inAnyLetters(const Address& address); // one mailbox, to the library

// Ends the command when the map is a link that leads nowhere: it is lost, and not merely missing.
void requireNoEmptyLink(const std::string& map);

// Ends the command when something cannot be read. A missing map counts as empty.
Hosting readHosting(const Settings& settings, const Wanted& wanted, unsigned parts);

// The connection over which this command asks. It is made anew where it has not been used for a
// second: an idle one may be closed on its way without a word.
SqlConnection& connectionToAsk(const SqlSettings& settings);
void dropConnectionToAsk();

// Asks the database, and asks again when it refuses for a passing reason. Ends the command, saying
// why, when it does not answer.
template <class Question> auto asked(const Settings& settings, const Question& question)
{
    try {
        return askPatiently([&] {
            try {
                return question(connectionToAsk(settings.database));
            } catch (const Refusal&) {
                dropConnectionToAsk();
                throw;
            }
        });
    } catch (const Refusal& refusal) {
        stop(Status::Unreachable, refusal.reason);
    }
}

// Ends the command, saying why, when the database cannot be used.
void reachDatabase(const Settings& settings);

// The words of a text, which commas or blanks separate.
Addresses wordsOf(std::string_view text);

#endif
