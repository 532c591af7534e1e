// The checks that a name or value passes before it reaches a shell command, a map line or a
// statement. The library itself takes every text.
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

// Each ends the command when the text is not what it should be, and says why. Domains and addresses
// are folded to lower case, with a note.
std::string checkedDomain(const std::string& text);
Address checkedAddress(const std::string& text);
Address checkedAddress(const std::string& user, const std::string& domain);

// What is wrong with a name in lower case, or with a target of a forwarder; null when nothing is.
const char* faultOfDomain(std::string_view domain);
const char* faultOfAddress(std::string_view address);
const char* faultOfTarget(const std::string& target);

// Whether an SQL statement can hold the text. A name that is read back may be anybody's.
bool isWritable(const std::string& text);

// The target of a forwarder: an address anywhere. Capital letters before the "@" stay, because only
// the server of that address knows what they mean.
std::string checkedTarget(const std::string& text);

// A number of bytes; nothing means no limit.
using Quota = std::optional<long long>;

// From a number with or without a fraction and a unit (500M, 1.5g, 5GB, 5T), or "unlimited".
Quota checkedQuota(const std::string& size);

std::string lowerCase(std::string text);

// The part of an address behind its first "@"; empty when it has none.
std::string_view domainOf(std::string_view address);

#endif
