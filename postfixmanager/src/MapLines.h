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

// Whether a line of these maps stands for a text: its key contains it anywhere, on purpose, so that
// jimbob@example.com also stands for bob@example.com.
inline bool standsFor(std::string_view line, std::string_view text)
{
    return contains(mapKey(line), text);
}

// The name of an account line.
inline std::string_view accountName(std::string_view line)
{
    return textBefore(line, ':');
}

// The text after the first mark; the whole text when it has none.
inline std::string_view textAfter(std::string_view text, char mark)
{
    return text.substr(text.find(mark) + 1);
}

// The domain of an account line: of its name, what follows the first "@"; the whole name without.
inline std::string_view accountDomain(std::string_view line)
{
    return textAfter(accountName(line), '@');
}

// Whether the line's key, cut at its first blank or else at its first tab, is exactly this.
inline bool isKeyedBy(std::string_view line, std::string_view key)
{
    std::string_view::size_type end = line.find(' ');
    if (end == std::string_view::npos)
        end = line.find('\t');
    return end != std::string_view::npos && line.substr(0, end) == key;
}

inline bool equalIgnoringCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

#endif
