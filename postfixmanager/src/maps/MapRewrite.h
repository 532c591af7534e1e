#ifndef QV_MAPREWRITE_H
#define QV_MAPREWRITE_H

#include "maps/MapVariants.h"
#include "maps/MapWriter.h"

#include <functional>
#include <string>
#include <string_view>

// The steps by which a map is changed. A plain call checks no outcome of a command, a removal, a
// rename or a change of owner or mode, and locks nothing: work files have fixed names, so the host
// must see to it that one operation runs at a time. In a transaction the same steps work on the
// staged copy, every outcome counts at the commit, and commands wait until then.

// "cp FILE FILE.suffix"; a file that is not there yields no copy.
void backUp(const std::string& file, const char* suffix);

// The same, but no command is run for a file that is not there.
void backUpIfThere(const std::string& file, const char* suffix);

// The map directory's mode is set to 0755 before most changes, so that the mail server can reach
// the maps whatever was done to it.
void openMapDirectory();

// Removes an empty directory that stands in the work file's place. A work file that is left over
// stays.
void removeWorkDirectory(const MapVariant& variant);

// What to do with one line: write it, write another, or write nothing.
using LineRule = std::function<void(std::string_view line, MapWriter& newMap)>;

// Called after the last line: may write more lines, and says whether the new map is wanted at all.
using AtEnd = std::function<bool(MapWriter& newMap)>;

// Passes the map line by line to the rule, which writes to the work file; asks atEnd (when given);
// puts the work file in the map's place and gives it its owner and mode. The work file is removed,
// and the map stays as it was, when atEnd does not want it, when the map cannot be read to its end
// or when the work file cannot be written whole. A crash between remove and rename leaves the work
// file only.
//
// map  the variant's, or the one that the call names.
//
// False, with nothing done, when the map cannot be opened and the variant needs it, or when a work
// file that is to be emptied cannot be opened.
bool rewriteMap(const MapVariant& variant, const std::string& map, const LineRule& rule,
                const AtEnd& atEnd = nullptr);
bool rewriteMap(const MapVariant& variant, const LineRule& rule, const AtEnd& atEnd = nullptr);

// In a transaction that has changed the map: replaces the last line if it has this name. A new
// entry is the last line, and to rewrite the map for each of many would take too long. False, with
// nothing done, in all other cases.
bool replaceLastLine(const std::string& map, std::string_view name,
                     const std::function<std::string(std::string_view line)>& replaced);

// Writes the line right behind the file's last byte: a last line without a line feed, left by
// hand-editing, and this one become one line. Makes the file when there is none.
void appendLine(const std::string& map, std::string_view line);

void setOwnerAndMode(const std::string& map, NewOwner owner, mode_t mode);

// Runs what the variant names: "postmap FILE", then "postfix reload".
void publish(const MapVariant& variant);

#endif
