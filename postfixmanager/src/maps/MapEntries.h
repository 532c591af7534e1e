#ifndef QV_MAPENTRIES_H
#define QV_MAPENTRIES_H

#include "maps/MapRewrite.h"

// How operations change the entries of a map. Their test says which lines stand for the address or
// domain of the call. Rewriting also drops empty lines. Publishing is left to the operation.
using LineTest = std::function<bool(std::string_view line)>;

// Appends the entry unless some line stands for the same, and makes the map, with its owner and
// mode, when there is none. text: what every such line contains, so that the others are not looked
// at.
enum class Added { No, ToMap, ToNewMap };
Added addEntry(const MapVariant& variant, const std::string& text, const LineTest& isMatch,
               const std::string& entry);

// Rewrites the map without the lines. False when it cannot be opened.
bool dropEntries(const MapVariant& variant, const LineTest& isMatch);
bool dropEntries(const MapVariant& variant, const std::string& map, const LineTest& isMatch);

// Rewrites the map with the entry in place of each of the lines. When there is none, the entry
// becomes the last line if whenAbsent is Add.
enum class WhenAbsent { Skip, Add };
enum class Replaced { NotOpened, None, Some };
Replaced replaceEntries(const MapVariant& variant, const LineTest& isMatch,
                        const std::string& entry, WhenAbsent whenAbsent);

#endif
