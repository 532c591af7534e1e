// The checks that a name or value passes before it reaches a shell command, a map line or a
// statement: the library takes them all as they are.
#ifndef QVMAILCTL_NAMES_H
#define QVMAILCTL_NAMES_H

#include <string>

struct Address {
    std::string user;
    std::string domain;
    std::string text;
};

// Each ends the command, naming the fault, when the text is not what it should be.
std::string checkedDomain(const std::string& text);
Address checkedAddress(const std::string& text);
Address checkedAddress(const std::string& user, const std::string& domain);

// Where mail is forwarded to: an address anywhere, capital letters allowed.
std::string checkedTarget(const std::string& text);

// Bytes as decimal text, from a number with or without K, M or G; Unlimited for "unlimited" and for
// no text at all.
constexpr const char* Unlimited = "-1";
std::string checkedQuota(const std::string& size);

#endif
