// The checks that a name or value passes before it reaches a shell command, a map line or a
// statement: the library takes them all as they are.
#ifndef QVMAILCTL_NAMES_H
#define QVMAILCTL_NAMES_H

#include <optional>
#include <string>
#include <string_view>

struct Address {
    std::string user;
    std::string domain;
    std::string text;
};

// Each ends the command, naming the fault, when the text is not what it should be. Domains and
// addresses are folded to lower case, with a note.
std::string checkedDomain(const std::string& text);
Address checkedAddress(const std::string& text);
Address checkedAddress(const std::string& user, const std::string& domain);

// The fault of a name in lower case, or of where mail is forwarded to; null when it has none.
const char* faultOfDomain(std::string_view domain);
const char* faultOfAddress(std::string_view address);
const char* faultOfTarget(const std::string& target);

// Whether a statement can hold it. What is read back may be written by anybody.
bool isWritable(const std::string& text);

// Where mail is forwarded to: an address anywhere. Its capital letters stay, before the "@": what
// they mean is for the server there to say.
std::string checkedTarget(const std::string& text);

// Bytes; nothing: no limit.
using Quota = std::optional<long long>;

// From a number with or without a fraction and a unit (500M, 1.5g, 5GB, 5T), or "unlimited".
Quota checkedQuota(const std::string& size);

std::string lowerCase(std::string text);

// The part of an address behind its first "@"; empty when it has none.
std::string_view domainOf(std::string_view address);

#endif
