// What a person takes for granted and the library does not look at: asked before an operation, on
// either backend.
#ifndef QVMAILCTL_CHECKS_H
#define QVMAILCTL_CHECKS_H

#include "Host.h"

// Each ends the command when it is not so, and says what to do.
void requireHosted(const Hosting& hosting, const std::string& domain);
const Mailbox& requireMailbox(const Hosting& hosting, const std::string& address);

// Ends the command when mailboxes of the domain could not get their homes.
void requireHomes(const std::string& domain);

// Whether the mailbox may be made. False when it is there and that is all right (--if-missing). Ends
// the command when the address is taken, or when something left over or similar would keep the new
// mailbox from being written, from getting its mail, or would give it another's.
// hosting: what is there of the address in any letters.
bool mayAddMailbox(Host& host, const Hosting& hosting, const Address& address);

// The same of an address that has no mailbox, but for one in capital letters: ends the command.
void requireFree(const Host& host, const Hosting& hosting, const Address& address);

// What a deletion that failed half-way leaves, and a new mailbox of that address would inherit.
bool hasFormerMail(const Address& address);

// Ends the command, unless what is to be deleted may be missing (--if-there).
void missing(const Host& host, const std::string& sentence);

// Of an address that forwards: with several targets and no mailbox it is a list.
Kind kindOf(const Hosting& hosting, const std::string& address);

// ---- Warnings: what the mail server will not do well ----

void warnOfOwnNames(const std::set<std::string>& domains);
void warnOfTargets(const Host& host, const std::string& address, const Addresses& targets);

#endif
