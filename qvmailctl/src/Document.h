// The document of export and import: everything that is hosted, as JSON.
#ifndef QVMAILCTL_DOCUMENT_H
#define QVMAILCTL_DOCUMENT_H

#include "Hosting.h"
#include "Output.h"

#include <optional>
#include <string>
#include <vector>

// What a document says of a mailbox. What it leaves out is nothing here, or empty.
struct Account {
    Address address;
    std::string hash;           // without the mark of a disabled mailbox
    std::string password;       // clear, to be wiped
    std::optional<Quota> quota; // "no limit" is a value, too
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
    std::optional<std::string> catchAll; // empty: it is said to have none
    std::vector<Account> mailboxes;
    std::vector<Forwarding> forwardings;
};

using Document = std::vector<DomainPart>;

// Checks everything that can be checked in the document alone. Ends the command (65) with the place
// in it and what is wrong there. The text may hold passwords and is wiped; it must hold no NUL.
Document readDocument(std::string& text);

// The place of a mailbox or domain in its document, to name it when it does not fit this host.
std::string placeOf(std::size_t domain, std::size_t mailbox);
std::string placeOf(std::size_t domain);

// Ends the command and says what is wrong at the place.
[[noreturn]] void refuseAt(const std::string& place, const std::string& fault);

// The document of everything that is hosted. What belongs to no hosted domain, or is incomplete, is
// left out with a warning.
Json documentOf(const Hosting& hosting);

// The document as lines, one for each mailbox, forwarder and list, so that two documents can be
// compared.
std::vector<std::string> linesOfDocument(const Json& document);

// Where the address forwards to; nowhere when that is only the address itself. Beside other
// targets, the address itself means that its mailbox keeps a copy.
Addresses forwardsOf(const Hosting& hosting, const std::string& address);

// Whether they are the same, in any order and letter case.
bool areSame(const Addresses& some, const Addresses& others);

#endif
