#ifndef QV_MAPREWRITE_H
#define QV_MAPREWRITE_H

#include "maps/MapVariants.h"
#include "maps/MapWriter.h"

#include <functional>
#include <string>
#include <string_view>

// The steps by which a map is changed. Outcomes of commands, of removing, renaming and of changes
// of owner and mode are not checked, and nothing is locked: the fixed work files make one operation
// at a time the host's duty. In a transaction the same steps work on the staged copy, every outcome
// is checked at the commit, and commands wait until then.

// "cp FILE FILE.suffix"; a file that is not there yields no copy.
void backUp(const std::string& file, const char* suffix);

// The same, but no command is run for a file that is not there.
void backUpIfThere(const std::string& file, const char* suffix);

// The map directory's mode is set to 0755 before most changes, so that the mail server can reach
// the maps whatever was done to it.
void openMapDirectory();

// Removes a directory that stands in the work file's place. A work file that is left over stays.
void removeWorkDirectory(const MapVariant& variant);

// What to do with one line: write it, write another, or write nothing.
using LineRule = std::function<void(std::string_view line, MapWriter& newMap)>;

// Has the last word: may write what comes last, and says whether the new map is wanted at all.
using AtEnd = std::function<bool(MapWriter& newMap)>;

// Streams the map through the rule into the work file, asks atEnd (when given), puts the work file
// in the map's place and gives it its owner and mode. The work file goes, and the map stays as it
// was, when atEnd does not want it, when the map cannot be read to its end or when the work file
// cannot be written whole. A crash between remove and rename leaves the work file only.
//
// map  the variant's, or the one that the call names.
//
// False, and nothing done, when the map cannot be opened and the variant needs it, or when a work
// file that is to be emptied cannot be opened.
bool rewriteMap(const MapVariant& variant, const std::string& map, const LineRule& rule,
                const AtEnd& atEnd = nullptr);
bool rewriteMap(const MapVariant& variant, const LineRule& rule, const AtEnd& atEnd = nullptr);

// In a transaction that has changed the map: puts another line in place of the last one, if that is
// of this name. A new entry is the last, and rewriting the map for each of many takes too long.
// False, and nothing done, in all other cases.
bool replaceLastLine(const std::string& map, std::string_view name,
                     const std::function<std::string(std::string_view line)>& replaced);

// Adds the line as it stands behind the file's last byte: a last line without line end, left by
// hand-editing, runs into it. Makes the file when there is none.
void appendLine(const std::string& map, std::string_view line);

void setOwnerAndMode(const std::string& map, NewOwner owner, mode_t mode);

// Runs what the variant names: "postmap FILE", then "postfix reload".
void publish(const MapVariant& variant);

#endif
