// What the maps' lines are matched by: keys and other pieces of a line.
#ifndef QV_MAPLINES_H
#define QV_MAPLINES_H

#include <string_view>

#include <strings.h>

inline bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

// The text before the first mark; the whole line when it has none.
inline std::string_view textBefore(std::string_view line, char mark)
{
    return line.substr(0, line.find(mark));
}

// The key of a line of the mailbox, quota and alias maps. Cut at a blank only: in a quota line,
// whose separator is a tab, the key takes in the quota.
inline std::string_view mapKey(std::string_view line)
{
    return textBefore(line, ' ');
}

// The name of an account line.
inline std::string_view accountName(std::string_view line)
{
    return textBefore(line, ':');
}

inline bool equalIgnoringCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

#endif
