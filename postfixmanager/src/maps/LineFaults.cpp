#include "maps/LineFaults.h"

#include "MapFiles.h"
#include "maps/MapLines.h"

#include <algorithm>
#include <cctype>

namespace
{

bool isNumber(std::string_view text)
{
    if (!text.empty() && text.front() == '-')
        text.remove_prefix(1);
    return !text.empty() && std::all_of(text.begin(), text.end(),
                                        [](unsigned char c) { return std::isdigit(c) != 0; });
}

// The field of an account line, counted from 0.
std::string_view field(std::string_view line, int number)
{
    for (; number > 0; --number)
        line = contains(line, ":") ? textAfter(line, ':') : std::string_view();
    return textBefore(line, ':');
}

const char* faultOfAccount(std::string_view line, std::string_view name)
{
    const auto colons = std::count(line.begin(), line.end(), ':');
    if (accountName(line) != name || colons < 6)
        return "it lacks fields of an account: NAME:x:UID:GID:TEXT:HOME:SHELL";
    return isNumber(field(line, 2)) && isNumber(field(line, 3)) ? nullptr
                                                                : "its UID or GID is no number";
}

const char* faultOfShadowLine(std::string_view line, std::string_view name)
{
    if (accountName(line) != name || std::count(line.begin(), line.end(), ':') != 8)
        return "it has not the nine fields of a password line: NAME:HASH:DAY::99999::::TYPE";
    return field(line, 1).empty() ? "its password is empty" : nullptr;
}

} // namespace

const char* faultOfLine(std::string_view map, std::string_view line)
{
    const std::string_view name = wholeName(line);
    const auto isControl = [&](unsigned char c) {
        return std::iscntrl(c) != 0 && !(c == '\t' && map == VQUOTAFILE);
    };
    if (name.empty())
        return "it begins with no name";
    if (std::any_of(line.begin(), line.end(), isControl))
        return "it holds a control character";
    if (map == VDOMAINFILE)
        return line == name ? nullptr : "it holds more than a domain";
    if (map == VPASSWDFILE)
        return faultOfAccount(line, name);
    if (map == VSHADOWFILE)
        return faultOfShadowLine(line, name);

    const std::string_view value = line.substr(std::min(name.size() + 1, line.size()));
    if (map == VQUOTAFILE)
        return textBefore(line, '\t') == name && isNumber(value)
                   ? nullptr
                   : "it is not an address, a tab and a number";
    if (mapKey(line) != name || value.empty())
        return "it is not an address, a blank and where its mail goes";
    return contains(value, " ") && map != VALIASFILE ? "it leads to more than one inbox" : nullptr;
}

bool isNumberOfType(std::string_view map, std::string_view line)
{
    return (map == VPASSWDFILE || map == VSHADOWFILE) &&
           line.find_first_not_of("0123456789") == std::string_view::npos;
}
