// The pieces of a map line, keys among them, and what the text of a call means to a line.
#ifndef QV_MAPLINES_H
#define QV_MAPLINES_H

#include <cstddef>
#include <cstring>
#include <string_view>

#include <strings.h>

inline bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

// The mark by which a text is looked for, and its place in the text, npos when it has none. An
// address or a part of one is looked for by its "@", a domain by its first dot: lines hold few, so
// that this takes a fraction of the time that memmem takes.
struct Mark {
    char letter;
    std::size_t inText;
};

inline Mark markOf(std::string_view text)
{
    const char letter = contains(text, "@") ? '@' : '.';
    return {letter, text.find(letter)};
}

// Where the text begins for the first time; npos when nowhere. mark: that of the text.
inline std::size_t placeOf(std::string_view text, Mark mark, std::string_view searched)
{
    constexpr std::size_t Nowhere = std::string_view::npos;
    if (mark.inText == Nowhere) {
        if (searched.empty()) // may have no data at all, which memmem must not get
            return text.empty() ? 0 : Nowhere;
        const void* const hit = memmem(searched.data(), searched.size(), text.data(), text.size());
        return hit == nullptr ? Nowhere : static_cast<const char*>(hit) - searched.data();
    }
    for (std::size_t at = searched.find(mark.letter, mark.inText); at != Nowhere;
         at = searched.find(mark.letter, at + 1))
        if (searched.substr(at - mark.inText, text.size()) == text)
            return at - mark.inText;
    return Nowhere;
}

// The text before the first mark; the whole line when it has none.
inline std::string_view textBefore(std::string_view line, char mark)
{
    return line.substr(0, line.find(mark));
}

// The text after the first mark; the whole text when it has none.
inline std::string_view textAfter(std::string_view text, char mark)
{
    return text.substr(text.find(mark) + 1);
}

// The key of a line of the mailbox, quota and alias maps. It is cut at a blank only: in a quota
// line, whose separator is a tab, the key takes in the quota.
inline std::string_view mapKey(std::string_view line)
{
    return textBefore(line, ' ');
}

// The name of an account line.
inline std::string_view accountName(std::string_view line)
{
    return textBefore(line, ':');
}

// The domain of an account line: what follows the first "@" of its name; the whole name when it has
// none.
inline std::string_view accountDomain(std::string_view line)
{
    return textAfter(accountName(line), '@');
}

// The whole name of a line of any map, up to its first blank, tab or colon: an address, a domain,
// or "@" and a domain. A transaction asks for it several times a line, and find_first_of would take
// seven times as long.
inline std::string_view wholeName(std::string_view line)
{
    std::size_t end = 0;
    while (end < line.size() && line[end] != ' ' && line[end] != '\t' && line[end] != ':')
        ++end;
    return line.substr(0, end);
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

// ---- What a call's text means to a line ----
//
// In a plain call it means every line that contains it in the part that the map's writers and
// readers search. Hosts rely on that: bob@example.com also means jim.bob@example.com, and b.com
// also means ab.com. In a transaction it means the whole name alone.

// searched  the part of the line that a plain call searches.
bool standsFor(std::string_view line, std::string_view searched, std::string_view text);

// The same for a text that is a domain. In a transaction it means the addresses in exactly that
// domain.
bool liesIn(std::string_view line, std::string_view searched, std::string_view domain);

// The same where all of the line is searched and the domain is known to be in it, because a reader
// that passes over other lines has found it there.
bool liesIn(std::string_view lineWithDomain, std::string_view domain);

// Whether the line belongs to exactly this domain. found: the domain that a plain call reads from
// the line; a transaction takes it from the line's whole name.
bool isOfDomain(std::string_view line, std::string_view found, std::string_view domain);

// The same for an address among destinations, which commas or blanks separate.
bool leadsTo(std::string_view searched, std::string_view address);

#endif
