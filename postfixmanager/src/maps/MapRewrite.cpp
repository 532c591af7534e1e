#include "system/LargeFilesAndDates.h"

#include "maps/MapRewrite.h"

#include "maps/MapLines.h"
#include "maps/MapReader.h"
#include "stage/Effects.h"
#include "stage/Stage.h"
#include "system/RegularFile.h"
#include "system/Shell.h"
#include "system/SystemAccounts.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <utility>

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

bool giveToNewOwner(const std::string& path, NewOwner owner)
{
    switch (owner) {
    case GroupOfMail:
        return giveTo(path, "root", MailReaders);
    case GroupOfQvadmin:
        return giveTo(path, "root", MailOwner);
    case CallerAndQvadmin: {
        const group* const own = getgrnam(MailOwner);
        return own != nullptr && chown(path.c_str(), getuid(), own->gr_gid) == 0;
    }
    case OwnerAsCreated:
        break;
    }
    return true;
}

bool isClosedToOthers(const std::string& file)
{
    struct stat entry {
    };
    return stat(file.c_str(), &entry) == 0 && (entry.st_mode & S_IRWXO) == 0;
}

// Removes the map and renames the work file to it.
void takeWorkFile(const char* workFile, const std::string& map)
{
    remove(map.c_str());
    rename(workFile, map.c_str());
}

} // namespace

void backUp(const std::string& file, const char* suffix)
{
    // A transaction's commit keeps the former map.
    if (openStage() == nullptr && !mayNeverEnd(file) && !mayNeverEnd(file + suffix))
        runInShell("cp " + file + " " + file + suffix);
}

void backUpIfThere(const std::string& file, const char* suffix)
{
    if (mapExists(file))
        backUp(file, suffix);
}

void openMapDirectory()
{
    if (openStage() == nullptr) // its commit does the same
        chmod(VMAPDIR, 0755);
}

void removeWorkDirectory(const MapVariant& variant)
{
    if (openStage() == nullptr && access(variant.workFile, F_OK) == 0)
        rmdir(variant.workFile);
}

bool rewriteMap(const MapVariant& variant, const std::string& map, const LineRule& rule,
                const AtEnd& atEnd)
{
    Stage* const stage = openStage();
    const std::string workFile = stage == nullptr ? variant.workFile : stage->replacementOf(map);

    // One that is to be emptied is opened first, so that it is there even when the map is not.
    std::optional<MapWriter> newMap;
    if (variant.opened == Emptied || stage != nullptr)
        newMap.emplace(workFile, Emptied);
    MapReader oldMap(map);
    if (!oldMap.isOpen() && (variant.oldMap == FailsWithout || stage != nullptr))
        return false;
    if (!newMap)
        newMap.emplace(workFile, variant.opened);
    else if (!newMap->isOpen() && stage == nullptr && variant.oldMap == FailsWithout)
        return false;

    std::string_view line;
    while (oldMap.nextLine(line))
        rule(line, *newMap);
    const bool isWanted = !atEnd || atEnd(*newMap);
    const bool isWhole = newMap->close() && oldMap.succeeded();
    if (!isWhole && stage != nullptr)
        stage->fail(workFile + " cannot be written: " + strerror(errno));
    if (!isWanted || !isWhole) {
        remove(workFile.c_str());
        return true;
    }

    if (stage == nullptr)
        takeWorkFile(variant.workFile, map);
    else
        stage->takeReplacement(map);
    setOwnerAndMode(map, variant.owner, variant.mode);
    return true;
}

bool rewriteMap(const MapVariant& variant, const LineRule& rule, const AtEnd& atEnd)
{
    return rewriteMap(variant, variant.map, rule, atEnd);
}

bool replaceLastLine(const std::string& map, std::string_view name,
                     const std::function<std::string(std::string_view line)>& replaced)
{
    Stage* const stage = openStage();
    StagedMap* const staged = stage == nullptr ? nullptr : stage->find(map);
    if (staged == nullptr || !staged->isChanged)
        return false;

    constexpr off_t TailSize = 4096;
    std::ifstream file(staged->copy());
    const off_t size = file.seekg(0, std::ios::end).tellg();
    std::string tail(std::max<off_t>(std::min(size, TailSize), 0), ' ');
    file.seekg(-static_cast<off_t>(tail.size()), std::ios::end).read(tail.data(), tail.size());
    if (!file || tail.empty())
        return false;
    tail.pop_back(); // its line end: a staged copy has one
    const std::size_t start = tail.rfind('\n') + 1;
    const std::string_view line = std::string_view(tail).substr(start);
    if (start == 0 || wholeName(line) != name)
        return false;

    const off_t lineStart = size - static_cast<off_t>(line.size()) - 1;
    if (lineStart < static_cast<off_t>(staged->copiedSize))
        staged->copiedSize = 0;
    if (truncate(staged->copy().c_str(), lineStart) != 0)
        stage->fail(map + " cannot be cut: " + strerror(errno));
    appendLine(map, replaced(line));
    return true;
}

void appendLine(const std::string& map, std::string_view line)
{
    Stage* const stage = openStage();
    MapWriter file(stage == nullptr ? map : stage->mapToChange(map), Appended);
    file.writeLine(line);
    if (!file.close() && stage != nullptr)
        stage->fail(map + " cannot be added to: " + strerror(errno));
}

void setOwnerAndMode(const std::string& map, NewOwner owner, mode_t mode)
{
    Stage* const stage = openStage();
    const std::string file = stage == nullptr ? map : stage->mapToChange(map);
    // Where password hashes are closed to others, a transaction leaves them so.
    if (stage != nullptr && map == VSHADOWFILE && isClosedToOthers(file))
        mode = ModeAsCreated;
    StagedMap* const staged = stage == nullptr ? nullptr : stage->find(map);
    if (staged != nullptr &&
        std::exchange(staged->rights, {owner, mode}) == std::pair(int{owner}, mode))
        return; // it has them since the last of many entries
    const bool isOwned = giveToNewOwner(file, owner);
    const bool isModed = mode == ModeAsCreated || chmod(file.c_str(), mode) == 0;
    if ((!isOwned || !isModed) && stage != nullptr)
        stage->fail(map + " cannot be given its owner and mode: are the accounts \"mail\" and "
                          "\"qvadmin\" there?");
}

void publish(const MapVariant& variant)
{
    if (variant.publish == PostmapAndReload)
        rebuildLookupTable(variant.map);
    if (variant.publish != PublishNothing)
        reloadPostfix();
}
