#ifndef QV_MAPENTRIES_H
#define QV_MAPENTRIES_H

#include "maps/MapRewrite.h"

// What the operations do to the entries of a map. Each says by a test which lines stand for what it
// is about; rewriting also drops empty lines. Publishing is left to the operation.
using LineTest = std::function<bool(std::string_view line)>;

// Appends the entry unless some line stands for it, and makes the map, with its owner and mode,
// when there is none. text: what all such lines contain, so that the others need no look.
enum class Added { No, ToMap, ToNewMap };
Added addEntry(const MapVariant& variant, const std::string& text, const LineTest& isMatch,
               const std::string& entry);

// Rewrites the map without the lines. False when it cannot be opened.
bool dropEntries(const MapVariant& variant, const LineTest& isMatch);
bool dropEntries(const MapVariant& variant, const std::string& map, const LineTest& isMatch);

// Rewrites the map with the entry in place of each of the lines; when there is none, with the entry
// as its last line if that is wanted.
enum class WhenAbsent { Skip, Add };
enum class Replaced { NotOpened, None, Some };
Replaced replaceEntries(const MapVariant& variant, const LineTest& isMatch,
                        const std::string& entry, WhenAbsent whenAbsent);

#endif
