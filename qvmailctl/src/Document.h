// The document of export and import: everything that is hosted, as JSON.
#ifndef QVMAILCTL_DOCUMENT_H
#define QVMAILCTL_DOCUMENT_H

#include "Hosting.h"
#include "Output.h"

#include <optional>
#include <string>
#include <vector>

// What a document says of a mailbox. What it does not say is nothing here, or empty.
struct Account {
    Address address;
    std::string hash;           // without the mark of a disabled mailbox
    std::string password;       // clear, to be wiped
    std::optional<Quota> quota; // no limit is something said
    Mailbox::Type type = Mailbox::Unknown;
    std::optional<bool> isEnabled;
    std::optional<Addresses> forwardsTo;
};

// A forwarder without a mailbox, or a list.
struct Forwarding {
    Address address;
    Addresses targets;
};

struct DomainPart {
    std::string domain;
    std::optional<std::string> catchAll; // empty: it has none, which is something said
    std::vector<Account> mailboxes;
    std::vector<Forwarding> forwardings;
};

using Document = std::vector<DomainPart>;

// Checks all that can be told from the document alone. Ends the command (65) with the place in it
// and what is wrong there. The text, which may hold passwords and holds no NUL, is wiped.
Document readDocument(std::string& text);

// Where a mailbox stands in its document, for what is wrong with it on this host.
std::string placeOf(std::size_t domain, std::size_t mailbox);
std::string placeOf(std::size_t domain);

// Ends the command: what is wrong at the place.
[[noreturn]] void refuseAt(const std::string& place, const std::string& fault);

// The document of everything. What belongs to no hosted domain, or is only a half, is left out, with
// a warning of each.
Json documentOf(const Hosting& hosting);

// With a line for each mailbox, forwarder and list, so that two documents can be compared.
std::vector<std::string> linesOfDocument(const Json& document);

// Where the address forwards to; nowhere when that is itself alone. Beside others, itself means that
// its mailbox keeps a copy.
Addresses forwardsOf(const Hosting& hosting, const std::string& address);

// Whether they are the same, in any order and letter case.
bool areSame(const Addresses& some, const Addresses& others);

#endif
