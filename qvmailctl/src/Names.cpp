#include "Names.h"

#include "Output.h"
#include "Results.h"
#include "maps/MapLines.h"

#include <algorithm>
#include <initializer_list>
#include <map>

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
constexpr long long LargestQuota = 1LL << 50; // the sum of a domain's quotas still fits

constexpr const char* NoAddress = "an address is USER@DOMAIN, at most 254 characters";

constexpr const char* Sizes =
    "a size is a number of bytes, or one with K, M, G or T (500M, 1.5G), at "
    "most 1024T, or \"unlimited\"";

// How many bits a number with the unit is shifted to be in bytes.
const std::map<std::string, int> Units = {
    {"", 0},     {"b", 0},  {"k", 10},  {"kb", 10},  {"kib", 10}, {"m", 20},  {"mb", 20},
    {"mib", 20}, {"g", 30}, {"gb", 30}, {"gib", 30}, {"t", 40},   {"tb", 40}, {"tib", 40},
};

bool isOf(std::string_view text, std::string_view characters)
{
    return text.find_first_not_of(characters) == std::string_view::npos;
}

bool isOf(char character, std::initializer_list<std::string_view> sets)
{
    for (const std::string_view set : sets)
        if (contains(set, std::string_view(&character, 1)))
            return true;
    return false;
}

[[noreturn]] void refuse(const std::string& text, const std::string& fault)
{
    stop(Status::Refused, inQuotes(text) + " is refused: " + fault);
}

// Logins are folded to lower case, so an account in capitals could never be used.
std::string folded(const std::string& text)
{
    std::string lower = lowerCase(text);
    if (lower != text)
        tell("note: " + inQuotes(text) + " is written " + inQuotes(lower));
    return lower;
}

const char* faultOfUser(std::string_view user, std::string_view marks, std::string_view more)
{
    if (user.empty() || user.size() > LongestUser)
        return "the part before the \"@\" has 1 to 64 characters";
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
        refuse(text, fault);
}

// A number, with or without a fraction, times the unit. Nothing when it is no number or too large.
// A fraction of a byte is cut off.
std::optional<long long> bytesOf(std::string_view number, int shift)
{
    constexpr std::size_t SafeDigits = 16;
    constexpr std::size_t SafeFraction = 4;
    const std::string whole(textBefore(number, '.'));
    const std::string fraction(whole.size() < number.size() ? textAfter(number, '.') : "0");
    if (whole.empty() || whole.size() > SafeDigits || !isOf(whole, Digits) || fraction.empty() ||
        fraction.size() > SafeFraction || !isOf(fraction, Digits))
        return std::nullopt;
    if (std::stoll(whole) > LargestQuota >> shift)
        return std::nullopt;
    long long tenths = std::stoll(fraction) << shift;
    for (std::size_t i = 0; i < fraction.size(); ++i)
        tenths /= 10;
    return (std::stoll(whole) << shift) + tenths;
}

} // namespace

std::string lowerCase(std::string text)
{
    for (char& c : text)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return text;
}

std::string_view domainOf(std::string_view address)
{
    const std::size_t at = address.find('@');
    return at == std::string_view::npos ? std::string_view() : address.substr(at + 1);
}

bool isWritable(const std::string& text)
{
    return std::none_of(text.begin(), text.end(), [](unsigned char c) {
        return c == '\'' || c == '\\' || c < ' ' || c == 0x7f;
    });
}

const char* faultOfDomain(std::string_view domain)
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
            if (!isOf(c, {Lower, Digits, "-"}))
                return "a domain holds letters, digits, hyphens and dots";
        if (label.size() == domain.size())
            return nullptr;
        domain.remove_prefix(label.size() + 1);
    }
}

const char* faultOfAddress(std::string_view address)
{
    const std::size_t at = address.find('@');
    if (at == std::string_view::npos || address.size() > LongestAddress)
        return NoAddress;
    const char* const fault = faultOfUser(address.substr(0, at), LocalMarks, "");
    return fault != nullptr ? fault : faultOfDomain(address.substr(at + 1));
}

const char* faultOfTarget(const std::string& target)
{
    const std::size_t at = target.find('@');
    if (at == std::string::npos || target.size() > LongestAddress)
        return NoAddress;
    const char* const fault = faultOfUser(target.substr(0, at), TargetMarks, Upper);
    return fault != nullptr ? fault : faultOfDomain(lowerCase(target.substr(at + 1)));
}

std::string checkedDomain(const std::string& text)
{
    refuseFault(text, faultOfDomain(lowerCase(text)));
    return folded(text);
}

Address checkedAddress(const std::string& text)
{
    refuseFault(text, faultOfAddress(lowerCase(text)));
    const std::string address = folded(text);
    return {address.substr(0, address.find('@')), std::string(domainOf(address)), address};
}

Address checkedAddress(const std::string& user, const std::string& domain)
{
    const std::string checked = checkedDomain(domain);
    if (contains(user, "@"))
        refuse(user, "only the part before the \"@\" belongs here");
    return checkedAddress(user + "@" + checked);
}

std::string checkedTarget(const std::string& text)
{
    refuseFault(text, faultOfTarget(text));
    const std::size_t at = text.find('@');
    return text.substr(0, at + 1) + folded(text.substr(at + 1));
}

Quota checkedQuota(const std::string& size)
{
    const std::string text = lowerCase(size);
    if (text == "unlimited")
        return std::nullopt;
    const std::size_t end = std::min(text.find_first_of(Lower), text.size());
    const std::string_view number = std::string_view(text).substr(0, end);
    const auto unit = Units.find(text.substr(end));
    if (unit == Units.end())
        refuse(size, Sizes);
    if (!number.empty() && number.find_first_not_of("0.") == std::string_view::npos)
        refuse(size, "it would mean no limit and not an empty mailbox; for no limit write "
                     "\"unlimited\", or take the quota away with \"qvmailctl quota delete "
                     "ADDRESS\"");
    const bool isPartOfByte = unit->second == 0 && contains(number, ".");
    const std::optional<long long> bytes = bytesOf(number, unit->second);
    if (isPartOfByte || !bytes || *bytes == 0 || *bytes > LargestQuota)
        refuse(size, Sizes);
    return bytes;
}
