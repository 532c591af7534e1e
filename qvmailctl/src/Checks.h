// What a person takes for granted and the library does not check. Commands ask it before they call
// the library, for files and for the database.
#ifndef QVMAILCTL_CHECKS_H
#define QVMAILCTL_CHECKS_H

#include "Session.h"

// Each ends the command when this is not so, and says what to do.
void requireHosted(const Hosting& hosting, const std::string& domain);
const Mailbox& requireMailbox(const Hosting& hosting, const std::string& address);

// Ends the command when mailboxes of the domain could not get their homes.
void requireHomes(const std::string& domain);

// Whether the mailbox may be made. False when it exists and that is all right (--if-missing). Ends
// the command when the address is taken, or when something left over or similar would keep the new
// mailbox from being written or from getting its mail, or would give it another's mail.
// hosting: what exists of the address, in any letter case.
bool mayAddMailbox(Session& session, const Hosting& hosting, const Address& address);

// The same checks for an address without a mailbox, or with one in capital letters only: ends the
// command.
void requireFree(const Session& session, const Hosting& hosting, const Address& address);

// Whether a deletion that failed half-way has left mail, which a new mailbox would inherit.
bool hasFormerMail(const Address& address);

// Ends the command, unless what is to be deleted may be missing (--if-there).
void missing(const Session& session, const std::string& sentence);

// The kind of an address that forwards: with several targets and no mailbox it is a list.
Kind kindOf(const Hosting& hosting, const std::string& address);

// ---- Warnings of what the mail server will not handle well ----

void warnOfOwnNames(const std::set<std::string>& domains);
void warnOfTargets(const Session& session, const std::string& address, const Addresses& targets);

#endif
