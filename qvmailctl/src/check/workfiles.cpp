// The map files themselves: missing, unfit, or interrupted while they were rewritten
#include "system/LargeFilesAndDates.h"

#include "Areas.h"

#include "Output.h"
#include "Paths.h"
#include "maps/LineFaults.h"
#include "maps/LineReader.h"
#include "maps/MapVariants.h"
#include "system/Refusal.h"
#include "system/SystemAccounts.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <set>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr mode_t MapMode = 0644;
constexpr mode_t WritableByOthers = 022;
constexpr mode_t ReadableByOthers = 04;

// Work files, and the maps that each may have been about to replace.
using WorkFiles = std::map<std::string, std::set<std::string>>;

// Whose lines of one mailbox or domain are edited with a shared work file, in this order.
constexpr const char* DomainMaps[] = {VPASSWDFILE, VSHADOWFILE, VMAPSFILE, VQUOTAFILE};

bool hasTable(const std::string& map)
{
    return std::find(std::begin(MapsWithTables), std::end(MapsWithTables), map) !=
           std::end(MapsWithTables);
}

WorkFiles workFilesThere()
{
    WorkFiles files;
    for (const MapVariant* const writer : MapVariants) {
        if (!isThere(writer->workFile))
            continue;
        std::set<std::string>& maps = files[writer->workFile];
        if (writer->map != nullptr)
            maps.insert(writer->map);
        else // the editors of the lines of one mailbox or domain
            maps.insert(std::begin(DomainMaps), std::end(DomainMaps));
    }
    return files;
}

// Whether a program may still be writing it. A rewrite takes seconds at most; its map is lost when
// the work file is taken away.
bool isFresh(const std::string& file)
{
    constexpr int Minute = 60;
    const std::optional<PathFacts> facts = factsOf(file);
    const time_t now = time(nullptr);
    return facts && facts->changed <= now && facts->changed > now - Minute;
}

// Whether the file can be the whole new map: a program closes it before it removes the map.
bool isWhole(const std::string& file, const std::string& map)
{
    const std::optional<PathFacts> facts = factsOf(file);
    if (!facts || facts->type != PathType::File || facts->size == 0)
        return false;
    LineReader reader(file);
    std::string_view line;
    std::size_t faults = 0;
    while (reader.nextLine(line))
        if (!line.empty() && !isNumberOfType(map, line) && faultOfLine(map, line) != nullptr)
            ++faults;
    return reader.error() == 0 && faults == 0 && line.empty(); // the last line has its end
}

void publishMended(const std::string& map, Mending& mending)
{
    if (hasTable(map))
        buildTable(map);
    mending.reloadPostfix();
}

void takePlace(const std::string& workFile, const std::string& map, Mending& mending)
{
    giveRights(workFile, ownershipApart("root", MailReaders).value_or(Ownership{0, 0}), MapMode);
    moveAside(workFile, map);
    publishMended(map, mending);
}

void makeEmpty(const std::string& map, Mending& mending)
{
    const int file = open(map.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, MapMode);
    if (file < 0)
        refuse(map + " cannot be made: " + strerror(errno));
    close(file);
    publishMended(map, mending);
}

// The plain editors of a domain's lines share a work file, to which each adds: where it could not
// become the map, its lines are the first of the next map. Empty: it is not so.
std::string linesInNextMap(const std::string& gone)
{
    if (std::find(std::begin(DomainMaps), std::end(DomainMaps), gone) == std::end(DomainMaps))
        return {};
    for (const std::string map : DomainMaps) {
        LineReader reader(map);
        std::string_view line;
        std::string lines;
        bool isWhole = true;
        while (reader.nextLine(line) && (line.empty() || faultOfLine(map, line) != nullptr)) {
            isWhole = isWhole && (line.empty() || faultOfLine(gone, line) == nullptr);
            lines.append(line) += '\n';
        }
        if (isWhole && lines.find_first_not_of('\n') != std::string::npos && reader.error() == 0)
            return lines;
    }
    return {};
}

void makeFrom(const std::string& lines, const std::string& map, Mending& mending)
{
    const std::string file = asideNameOf(map);
    const int made = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (made < 0)
        refuse(file + " cannot be made: " + strerror(errno));
    const bool isWritten = writeAll(made, lines) && fsync(made) == 0;
    const std::string why = strerror(errno);
    close(made);
    if (!isWritten) {
        unlink(file.c_str());
        refuse(file + " cannot be written: " + why);
    }
    takePlace(file, map, mending);
}

std::string knownCopies(const std::string& map)
{
    const std::string copies = copiesOf(map);
    return copies.empty() ? "no copy of it lies beside it" : "its former states are " + copies;
}

// The one command after which nothing is left to find.
std::string bringBack(const std::string& how, const std::string& former, const std::string& map)
{
    return "\"" + how + " " + former + " " + map + " && qvmailctl check --repair\"";
}

Finding lookAtWorkFile(const std::string& file, const std::set<std::string>& maps,
                       const WorkFiles& all)
{
    std::set<std::string> gone;
    std::string states;
    for (const std::string& map : maps) {
        if (!isThere(map))
            gone.insert(map);
        states += (states.empty() ? "" : "; ") + map + " is " +
                  (isThere(map) ? "there (" + description(map) + "), " : "gone, ") +
                  knownCopies(map);
    }
    const std::string fault = "is the work file (" + description(file) +
                              ") of a change that was interrupted, and the control panel's next "
                              "one would put its lines into a map: " +
                              states;
    if (isFresh(file))
        return {"work-file", file, "", fault,
                "look again in a minute: its program may still be at work"};
    if (gone.empty()) {
        const std::string aside = asideNameOf(file);
        return {"work-file",
                file,
                "",
                fault,
                "it is renamed to " + aside,
                Mend::Beside,
                [file, aside](Mending&) { moveAside(file, aside); }};
    }
    const std::string& map = *gone.begin();
    const auto isOfMap = [&](const auto& other) { return other.second.count(map) > 0; };
    const bool isOnlyOne = std::count_if(all.begin(), all.end(), isOfMap) == 1;
    if (gone.size() == 1 && isOnlyOne && isWhole(file, map))
        return {"work-file",
                file,
                "",
                fault,
                "it takes the place of " + map + ", which it is",
                Mend::Beside,
                [file, map](Mending& mending) { takePlace(file, map, mending); }};
    const std::string copy = map + Backup;
    return {"work-file", file, "", fault,
            "compare them; where this is the whole new map, " + bringBack("mv", file, map) +
                (countLines(copy) > 0 ? ", else " + bringBack("cp -p", copy, map) : "")};
}

void lookForMap(const std::string& map, const WorkFiles& workFiles, Findings& findings)
{
    const bool isReadByPostfix = map == VDOMAINFILE || map == VMAPSFILE || map == VALIASFILE;
    const std::string fault = std::string("is missing, so ") +
                              (isReadByPostfix ? "Postfix puts off all mail and " : "") +
                              "changes are refused; " + knownCopies(map);
    const bool hasWorkFile = std::any_of(workFiles.begin(), workFiles.end(), [&](const auto& file) {
        return file.second.count(map) > 0;
    });
    const std::string lines = linesInNextMap(map);
    if (hasWorkFile)
        findings.push_back({"map-missing", map, "", fault, "see its work file"});
    else if (!lines.empty())
        findings.push_back({"map-missing", map, "", fault,
                            "it is made of its lines, with which another map begins", Mend::Beside,
                            [map, lines](Mending& mending) { makeFrom(lines, map, mending); }});
    else if (countLines(map + std::string(Backup)) > 0)
        findings.push_back({"map-missing", map, "", fault,
                            "bring it back, " + bringBack("cp -p", map + Backup, map)});
    else
        findings.push_back({"map-missing", map, "", fault, "it is made, empty", Mend::Beside,
                            [map](Mending& mending) { makeEmpty(map, mending); }});
}

// Only rights that do harm are found: the group depends on the operation that wrote the map last.
void checkRights(const std::string& map, const PathFacts& facts, const MailServers& servers,
                 Findings& findings)
{
    const bool isAccountFile = map == VPASSWDFILE || map == VSHADOWFILE;
    const std::string authUser = servers.dovecotSetting("service/auth/user");
    const bool isReadByRoot =
        map == VQUOTAFILE || (isAccountFile && (authUser.empty() || authUser == "root"));
    std::string fault;
    if (facts.user != 0)
        fault = "belongs to the user " + std::to_string(facts.user) +
                ", who may write to it, and as whom postmap builds no table";
    else if ((facts.mode & WritableByOthers) != 0)
        fault = "has the mode " + octal(facts.mode) + ", so that others may write to it";
    else if ((facts.mode & ReadableByOthers) == 0 && !isReadByRoot)
        fault = "has the mode " + octal(facts.mode) + ", so that " +
                (isAccountFile ? "Dovecot" : "Postfix") + " cannot read it";
    if (fault.empty())
        return;
    findings.push_back({"map-rights", map, "", fault, "it belongs to root, with mode 0644",
                        Mend::Beside, [map, group = facts.group](Mending&) {
                            giveRights(map, {0, group}, MapMode);
                        }});
}

} // namespace

bool checkMaps(const MailServers& servers, Findings& findings)
{
    const WorkFiles workFiles = workFilesThere();
    for (const auto& [file, maps] : workFiles)
        findings.push_back(lookAtWorkFile(file, maps, workFiles));

    bool areReadable = true;
    for (const std::string map : Maps) {
        const std::optional<PathFacts> facts = factsOf(map);
        areReadable = areReadable && facts && facts->type == PathType::File;
        if (!facts)
            lookForMap(map, workFiles, findings);
        else if (facts->type != PathType::File)
            findings.push_back({"map-unfit", map, "",
                                facts->type == PathType::Link
                                    ? "is a link, which a change would replace by a file"
                                    : "is no regular file",
                                "put the file itself there"});
        else
            checkRights(map, *facts, servers, findings);
    }
    return areReadable;
}
