#ifndef QV_MAPREWRITE_H
#define QV_MAPREWRITE_H

#include "MapFiles.h"
#include "MapWriter.h"

#include <functional>
#include <string>
#include <string_view>

#include <sys/types.h>

// What a changed map needs before the mail server sees it: "postmap FILE" for a lookup table,
// "postfix reload" for what the server reads otherwise.
enum class Publish { Nothing, Reload, PostmapAndReload };

// How a writer changes its map: one procedure, and what differs between the writers.
struct MapVariant {
    std::string map;
    const char* backupSuffix; // of the copy made beforehand; null: no copy
    const char* workFile;     // becomes the new map; one left over ends up at its head
    const char*
        groupAccount; // new owner: "root" and this account's primary group; null: as it falls
    mode_t mode;      // 0: as it falls
    Publish publish;  // run by the operation after the change
};

constexpr const char* Backup = ".qvbackup";

// clang-format off
inline const MapVariant DomainList     = {VDOMAINFILE, Backup, "/etc/VirtualHosts-temp.txt", nullptr, 0, Publish::Nothing};
inline const MapVariant MailboxMap     = {VMAPSFILE, Backup, VMAPDIR "/vmaps-temp.txt", "mail", 0644, Publish::PostmapAndReload};
inline const MapVariant QuotaMap       = {VQUOTAFILE, Backup, VMAPDIR "/vquota-temp.txt", "mail", 0644, Publish::PostmapAndReload};
inline const MapVariant AliasMap       = {VALIASFILE, Backup, VMAPDIR "/valias-temp.txt", "mail", 0644, Publish::PostmapAndReload};
inline const MapVariant CatchAllMap    = {VMAPSFILE, ".CABackup", VMAPDIR "/vmaps-temp.txt", "qvadmin", 0644, Publish::PostmapAndReload};
inline const MapVariant AccountUpdate  = {VPASSWDFILE, nullptr, VMAPDIR "/vpasswd_temp.txt", "qvadmin", 0644, Publish::Reload};
inline const MapVariant ShadowUpdate   = {VSHADOWFILE, nullptr, VMAPDIR "/vshadow_temp.txt", "qvadmin", 0644, Publish::Reload};
inline const MapVariant DomainAliases  = {VALIASFILE, nullptr, VMAPDIR "/valias-temp.txt", "qvadmin", 0, Publish::PostmapAndReload};
inline       MapVariant domainMailboxes(const std::string& map) { return
                                         {map, nullptr, VMAPDIR "/temp.txt", "qvadmin", 0644, Publish::Nothing}; }
// clang-format on

// The steps of the procedure. No step but the opening of the map is checked, and nothing is locked:
// the fixed work files make one operation at a time the host's duty.

// "cp FILE FILE.suffix"; a file that is not there yields no copy.
void backUp(const std::string& file, const char* suffix);

// The same, but no command is run for a file that is not there.
void backUpIfThere(const std::string& file, const char* suffix);

// The map directory's mode is set to 0755 before most changes, so that the mail server can reach
// the maps whatever was done to it.
void openMapDirectory();

// What to do with one line: write it, write another, or write nothing.
using LineRule = std::function<void(std::string_view line, MapWriter& newMap)>;

// Streams the map through the rule into the work file, lets atEnd (when given) write what comes
// last, puts the work file in the map's place and gives it its owner and mode. False, and nothing
// done, when the map cannot be opened. A crash between remove and rename leaves the work file only.
bool rewriteMap(const MapVariant& variant, const LineRule& rule,
                const std::function<void(MapWriter& newMap)>& atEnd = nullptr);

// Removes file and renames workFile to it.
void replaceFile(const char* workFile, const std::string& file);

// Adds the line as it stands behind the file's last byte: a last line without line end, left by
// hand-editing, runs into it. Makes the file when there is none.
void appendLine(const std::string& file, std::string_view line);

// Sets the variant's owner and mode.
void settleOwnerAndMode(const MapVariant& variant);

// Runs what the variant names: "postmap FILE", then "postfix reload".
void publish(const MapVariant& variant);

#endif
