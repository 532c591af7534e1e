// How a mailbox is made by the library, from the command and from a document.
#ifndef QVMAILCTL_ACCOUNTS_H
#define QVMAILCTL_ACCOUNTS_H

#include "Host.h"

// password  clear; a buffer of at least 9 bytes, which hashing writes to.
void createMailbox(Host& host, const Address& address, char* password, const Quota& quota,
                   Mailbox::Type type);

// One of its two lines in the account files alone, where only the other is there: with the quota in
// Dovecot's fields, or with a password that nobody knows.
void writeUserLine(Host& host, const Address& address, const Quota& quota, Mailbox::Type type);
void writePasswordLine(Host& host, const Address& address);

// As the library takes a quota: bytes as text, "-1" for no limit.
std::string libraryText(const Quota& quota);

#endif
