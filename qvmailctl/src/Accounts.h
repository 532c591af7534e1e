// What the commands on one mailbox, forwarder or list and the import of many have the library write.
#ifndef QVMAILCTL_ACCOUNTS_H
#define QVMAILCTL_ACCOUNTS_H

#include "Host.h"

// hash  the password's, as it is to be stored.
void createMailbox(Host& host, const Address& address, const std::string& hash, const Quota& quota,
                   Mailbox::Type type);

// One of its two lines in the account files alone, where only the other is there: with the quota in
// Dovecot's fields, or with a password that nobody knows.
void writeUserLine(Host& host, const Address& address, const Quota& quota, Mailbox::Type type);
void writePasswordLine(Host& host, const Address& address);

// Of a mailbox that is there.
void writeQuota(Host& host, const std::string& address, const Quota& quota);
void writeType(Host& host, const std::string& address, Mailbox::Type type);
void writeHashes(Host& host, const std::vector<std::pair<std::string, std::string>>& hashes);

// hasEntry  whether the alias map or table has anything of the address, a mailbox's row for itself
//           included.
void writeForwards(Host& host, const std::string& address, const Addresses& targets, bool hasEntry);
void removeForwards(Host& host, const std::string& address, bool hasMailbox);

// target  the mailbox's local part.
void writeCatchAll(Host& host, const std::string& domain, const std::string& user);
void removeCatchAll(Host& host, const std::string& domain);

// As the library takes a quota: bytes as text, "-1" for no limit.
std::string libraryText(const Quota& quota);

#endif
