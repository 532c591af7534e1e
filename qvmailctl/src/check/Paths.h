// Files and directories as the checks see them.
#ifndef QVMAILCTL_CHECK_PATHS_H
#define QVMAILCTL_CHECK_PATHS_H

#include "MapFiles.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

inline constexpr const char* Maps[] = {VDOMAINFILE, VPASSWDFILE, VSHADOWFILE,
                                       VMAPSFILE,   VALIASFILE,  VQUOTAFILE};
inline constexpr const char* MapsWithTables[] = {VMAPSFILE, VALIASFILE, VQUOTAFILE};

enum class PathType { File, Directory, Link, Other };

struct PathFacts {
    PathType type;
    uid_t user;
    gid_t group;
    mode_t mode; // without the type
    long long size;
    long long changed; // in seconds
};

// Nothing when nothing is there. factsOf looks at a link itself, factsBehind at what it leads to.
std::optional<PathFacts> factsOf(const std::string& path);
std::optional<PathFacts> factsBehind(const std::string& path);
bool isThere(const std::string& path);

// The names in a directory, sorted; none when it cannot be read.
std::vector<std::string> namesIn(const std::string& directory);

// How many lines are not empty; 0 when the file cannot be read.
std::size_t countLines(const std::string& file);

// "12 lines, 340 bytes, 2024-05-01 12:30".
std::string description(const std::string& file);

// The copies of a map that lie beside it, each with its description; empty when there is none.
std::string copiesOf(const std::string& map);

// "0644"
std::string octal(mode_t mode);

#endif
