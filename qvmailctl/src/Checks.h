// What a person takes for granted and the library does not look at: asked here before an operation,
// on either backend.
#ifndef QVMAILCTL_CHECKS_H
#define QVMAILCTL_CHECKS_H

#include "Host.h"
#include "Names.h"

// In the list; with tables, whose list the library cannot be asked for: has a spool tree here or a
// mailbox.
bool isHosted(Host& host, const std::string& domain);
void requireHosted(Host& host, const std::string& domain);

// Half: an account line without its partner, as an interrupted creation leaves it.
enum class Mailbox { None, Half, Whole };
Mailbox mailboxState(Host& host, const std::string& address);
void requireMailbox(Host& host, const std::string& address);

// Ends the command when the address is taken, or when something left over or similar would keep the
// new mailbox from being written or from getting its mail.
void requireFree(Host& host, const std::string& address);

// Full addresses.
VectorString mailboxesOf(Host& host, const std::string& domain);

// Where mail for the address goes on to; a mailbox's row for itself is left out.
VectorString destinationsOf(Host& host, const std::string& address);

// Whether the alias map or table has anything under the address.
bool hasAliasEntry(Host& host, const std::string& address);

// The catch-all's full address; empty when there is none.
std::string catchAllOf(Host& host, const std::string& domain);

// The mailbox's quota in bytes; Unlimited when it has none.
std::string quotaOf(Host& host, const std::string& address);

// Every address that forwards to the target, lists included. Files only.
VectorString forwardersTo(const std::string& target);

#endif
