#include "Names.h"

#include "Results.h"
#include "maps/MapLines.h"

#include <string_view>

namespace
{

constexpr std::string_view Digits = "0123456789";
constexpr std::string_view Lower = "abcdefghijklmnopqrstuvwxyz";
constexpr std::string_view Upper = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view LocalMarks = "._+-";
constexpr std::string_view TargetMarks = "._+-=~";

constexpr std::size_t LongestLabel = 63;
constexpr std::size_t LongestDomain = 253;
constexpr std::size_t LongestUser = 64;
constexpr std::size_t LongestAddress = 254;
constexpr long long LargestQuota = 1LL << 50; // so that the quotas of a domain can be summed

bool isOf(char character, std::initializer_list<std::string_view> sets)
{
    for (const std::string_view set : sets)
        if (contains(set, std::string_view(&character, 1)))
            return true;
    return false;
}

std::string quoted(const std::string& text)
{
    return "\"" + text + "\"";
}

void refuseCapitals(const std::string& text)
{
    if (text.find_first_of(Upper) != std::string::npos)
        refuse(quoted(text) + " has capital letters; logins are folded to lower case, so it could "
                              "never be used: write it in lower case");
}

// The fault of a domain; null when it has none.
const char* faultOfDomain(std::string_view domain, bool capitals)
{
    if (domain.size() > LongestDomain)
        return "a domain has at most 253 characters";
    if (!contains(domain, "."))
        return "a domain has at least two parts, such as example.com";
    for (;;) {
        const std::string_view label = textBefore(domain, '.');
        if (label.empty() || label.size() > LongestLabel)
            return "each part of a domain has 1 to 63 characters";
        if (label.front() == '-' || label.back() == '-')
            return "no part of a domain begins or ends with a hyphen";
        for (const char c : label)
            if (!isOf(c, {Lower, Digits, "-", capitals ? Upper : ""}))
                return "a domain holds letters, digits, hyphens and dots";
        if (label.size() == domain.size())
            return nullptr;
        domain.remove_prefix(label.size() + 1);
    }
}

const char* faultOfUser(std::string_view user, std::string_view marks, bool capitals)
{
    if (user.empty() || user.size() > LongestUser)
        return "the part before the \"@\" has 1 to 64 characters";
    const std::string_view more = capitals ? Upper : "";
    if (!isOf(user.front(), {Lower, Digits, more}))
        return "the part before the \"@\" begins with a letter or a digit";
    for (const char c : user)
        if (!isOf(c, {Lower, Digits, marks, more}))
            return "the part before the \"@\" holds letters, digits and . _ + -";
    if (contains(user, "..") || user.back() == '.')
        return "the part before the \"@\" has no two dots in a row and none at its end";
    return nullptr;
}

void refuseFault(const std::string& text, const char* fault)
{
    if (fault != nullptr)
        refuse(quoted(text) + " is refused: " + fault);
}

struct Halves {
    std::string user;
    std::string domain;
};

Halves halvesOf(const std::string& text)
{
    const std::size_t at = text.find('@');
    if (at == std::string::npos || text.size() > LongestAddress)
        refuse(quoted(text) + " is refused: an address is USER@DOMAIN, at most 254 characters");
    return {text.substr(0, at), text.substr(at + 1)};
}

} // namespace

std::string checkedDomain(const std::string& text)
{
    refuseCapitals(text);
    refuseFault(text, faultOfDomain(text, false));
    return text;
}

Address checkedAddress(const std::string& text)
{
    refuseCapitals(text);
    const auto [user, domain] = halvesOf(text);
    refuseFault(text, faultOfUser(user, LocalMarks, false));
    refuseFault(text, faultOfDomain(domain, false));
    return {user, domain, text};
}

Address checkedAddress(const std::string& user, const std::string& domain)
{
    checkedDomain(domain);
    if (contains(user, "@"))
        refuse(quoted(user) + " is refused: only the part before the \"@\" belongs here");
    return checkedAddress(user + "@" + domain);
}

std::string checkedTarget(const std::string& text)
{
    const auto [user, domain] = halvesOf(text);
    refuseFault(text, faultOfUser(user, TargetMarks, true));
    refuseFault(text, faultOfDomain(domain, true));
    return text;
}

std::string checkedQuota(const std::string& size)
{
    if (size.empty() || size == "unlimited")
        return Unlimited;

    constexpr std::string_view Units = "KMG";
    const std::size_t unit = Units.find(size.back());
    const std::string number = size.substr(0, size.size() - (unit < Units.size() ? 1 : 0));
    if (number.find_first_not_of('0') == std::string::npos || size.front() == '-')
        refuse(quoted(size) + " is no quota; for no limit write \"unlimited\", or take the quota "
                              "away with \"qvmailctl quota delete ADDRESS\"");
    if (number.find_first_not_of(Digits) != std::string::npos)
        refuse(quoted(size) + " is no size: write a number of bytes, or one with K, M or G");

    const int shift = unit < Units.size() ? 10 * (static_cast<int>(unit) + 1) : 0;
    constexpr std::size_t SafeDigits = 16;
    if (number.size() > SafeDigits || std::stoll(number) > LargestQuota >> shift)
        refuse(quoted(size) + " is too large: at most 1048576G");
    return std::to_string(std::stoll(number) << shift);
}
