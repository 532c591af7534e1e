// The calls by which commands have the library write mailboxes, quotas, forwarders, lists and
// catch-alls. The import of many accounts uses them too.
#ifndef QVMAILCTL_ACCOUNTS_H
#define QVMAILCTL_ACCOUNTS_H

#include "Session.h"

// hash  the password's hash, as it is to be stored.
void createMailbox(Session& session, const Address& address, const std::string& hash,
                   const Quota& quota, Mailbox::Type type);

// For a mailbox that has only one of its two lines in the account files: writes the other. The user
// line gets the quota in Dovecot's fields; the password line gets a password that nobody knows.
void writeUserLine(Session& session, const Address& address, const Quota& quota,
                   Mailbox::Type type);
void writePasswordLine(Session& session, const Address& address);

// Of a mailbox that exists.
void writeQuota(Session& session, const std::string& address, const Quota& quota);
void writeType(Session& session, const std::string& address, Mailbox::Type type);
void writeHashes(Session& session, const std::vector<std::pair<std::string, std::string>>& hashes);

// hasEntry  whether the alias map or table has an entry of the address, a mailbox's row for itself
//           included.
void writeForwards(Session& session, const std::string& address, const Addresses& targets,
                   bool hasEntry);
void removeForwards(Session& session, const std::string& address, bool hasMailbox);

// user  the mailbox's local part.
void writeCatchAll(Session& session, const std::string& domain, const std::string& user);
void removeCatchAll(Session& session, const std::string& domain);

// The quota as the library takes it: bytes as text, "-1" for no limit.
std::string libraryText(const Quota& quota);

#endif
