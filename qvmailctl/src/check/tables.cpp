// The lookup tables that Postfix reads in place of maps
#include "system/LargeFilesAndDates.h"

#include "Areas.h"

#include "Names.h"
#include "Paths.h"
#include "Programs.h"
#include "maps/LineFaults.h"
#include "maps/LineReader.h"
#include "maps/MapLines.h"

#include <algorithm>
#include <unordered_map>

#include <fcntl.h>
#include <sys/stat.h>

namespace
{

constexpr int Seconds = 60;
constexpr mode_t TableMode = 0644;
constexpr mode_t WritableByOthers = 022;
constexpr mode_t ReadableByOthers = 04;

const std::map<std::string, const char*> EndingOfType = {{"hash", ".db"},   {"btree", ".db"},
                                                         {"lmdb", ".lmdb"}, {"cdb", ".cdb"},
                                                         {"dbm", ".pag"},   {"sdbm", ".pag"}};

// Names and values as postmap reads lines: in lower case, and the first of two counts.
using Content = std::unordered_map<std::string, std::string>;

// False when the map has a line that postmap reads otherwise than the library: then there is
// nothing to compare.
bool readContent(const std::string& map, Content& content)
{
    LineReader reader(map);
    std::string_view line;
    while (reader.nextLine(line)) {
        if (line.empty())
            continue;
        if (faultOfLine(map, line) != nullptr || line.front() == '#')
            return false;
        const std::string_view name = wholeName(line);
        std::string_view value = line.substr(name.size() + 1);
        const std::size_t begin = value.find_first_not_of(" \t");
        if (begin == std::string_view::npos)
            return false;
        value = value.substr(begin, value.find_last_not_of(" \t") + 1 - begin);
        content.try_emplace(lowerCase(std::string(name)), value);
    }
    return reader.error() == 0;
}

// What is wrong with the table; empty when it says the same as the map.
std::string faultOfContent(const std::string& map)
{
    Content content;
    if (!readContent(map, content))
        return {};
    const std::optional<std::string> table = outputOf({"postmap", "-s", map}, Seconds);
    if (!table)
        return "cannot be read by postmap";
    std::size_t count = 0;
    for (std::string_view rest = *table; !rest.empty(); ++count) {
        const std::string_view line = textBefore(rest, '\n');
        const auto entry = content.find(std::string(textBefore(line, '\t')));
        if (entry == content.end() || entry->second != textAfter(line, '\t'))
            return "says otherwise than its map of " + std::string(textBefore(line, '\t'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
    return count == content.size() ? "" : "lacks entries of its map";
}

std::string faultOfTable(const std::string& map, const PathFacts& mapFacts,
                         const std::string& table)
{
    const std::optional<PathFacts> facts = factsOf(table);
    if (!facts)
        return "is missing, so Postfix puts off mail";
    if (facts->changed < mapFacts.changed)
        return "is older than its map: a change of the map was not published";
    return faultOfContent(map);
}

// A map may be dated in the future by a wrong clock: its table must not seem older than it.
void dateNotBefore(long long changed, const std::string& table)
{
    const std::optional<PathFacts> facts = factsOf(table);
    const timespec times[] = {{0, UTIME_OMIT}, {static_cast<time_t>(changed), 0}};
    if (facts && facts->changed < changed)
        utimensat(AT_FDCWD, table.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

void checkTable(const std::string& map, const std::string& table, Findings& findings)
{
    const std::optional<PathFacts> mapFacts = factsOf(map);
    if (!mapFacts || mapFacts->type != PathType::File)
        return;
    const std::string fault = faultOfTable(map, *mapFacts, table);
    if (!fault.empty())
        findings.push_back({"table-stale", table, "", fault, "postmap builds it anew", Mend::Beside,
                            [map, table, changed = mapFacts->changed](Mending&) {
                                buildTable(map);
                                dateNotBefore(changed, table);
                            }});
    const std::optional<PathFacts> facts = factsOf(table);
    if (facts && ((facts->mode & ReadableByOthers) == 0 || (facts->mode & WritableByOthers) != 0))
        findings.push_back({"table-rights", table, "",
                            "has the mode " + octal(facts->mode) +
                                ", so that Postfix cannot read it or others may write to it",
                            "it belongs to root, with mode 0644", Mend::Beside,
                            [table, group = facts->group](Mending&) {
                                giveRights(table, {0, group}, TableMode);
                            }});
}

// The type before ":MAP" in a setting, sought from a place on; empty when there is none.
std::string typeBefore(const std::string& setting, const std::string& map, std::size_t& from)
{
    const std::size_t end = from = setting.find(":" + map, from);
    if (end == std::string::npos)
        return {};
    std::size_t begin = end;
    while (begin > 0 && isalnum(static_cast<unsigned char>(setting[begin - 1])) != 0)
        --begin;
    ++from;
    return setting.substr(begin, end - begin);
}

// main.cf may name another type than postmap makes.
void checkType(const MailServers& servers, const std::string& setting, const std::string& map,
               Findings& findings)
{
    std::size_t from = 0;
    std::string type;
    do
        type = typeBefore(servers.postfixSetting(setting), map, from);
    while (!type.empty() && (type == servers.tableType || EndingOfType.count(type) == 0));
    if (!type.empty())
        findings.push_back({"table-type", MainCf, setting,
                            setting + " names " + type + ":" + map +
                                ", and \"postmap FILE\" makes " + servers.tableType +
                                ": Postfix never sees a change",
                            "write $default_database_type:" + map + " there"});
}

} // namespace

void checkLookupTables(const MailServers& servers, Findings& findings)
{
    const auto ending = EndingOfType.find(servers.tableType);
    if (ending == EndingOfType.end())
        return;
    for (const std::string map : MapsWithTables) {
        checkTable(map, map + ending->second, findings);
        for (const char* const setting : {"virtual_mailbox_maps", "virtual_alias_maps"})
            checkType(servers, setting, map, findings);
    }
}
