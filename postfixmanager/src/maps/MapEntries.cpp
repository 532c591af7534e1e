#include "maps/MapEntries.h"

#include "maps/MapLines.h"
#include "maps/MapReader.h"
#include "stage/Stage.h"

namespace
{

std::size_t nameHash(std::string_view line)
{
    return std::hash<std::string_view>()(wholeName(line));
}

// A transaction that adds many entries must not read the whole map for each: from the second entry
// on it remembers the names. False means that no line of that name is there; true, that one may be.
bool mayHoldNameOf(const std::string& entry, const std::string& map)
{
    Stage* const stage = openStage();
    StagedMap* const staged = stage == nullptr ? nullptr : stage->find(map);
    if (staged == nullptr || staged->additions++ == 0)
        return true;
    if (staged->names.empty()) {
        MapReader reader(map);
        std::string_view line;
        while (reader.nextLine(line))
            staged->names.insert(nameHash(line));
    }
    return !staged->names.insert(nameHash(entry)).second;
}

} // namespace

Added addEntry(const MapVariant& variant, const std::string& text, const LineTest& isMatch,
               const std::string& entry)
{
    bool isNewMap = false;
    if (mayHoldNameOf(entry, variant.map)) {
        MapReader map(variant.map, text);
        isNewMap = !map.isOpen();
        std::string_view line;
        while (map.nextLine(line))
            if (isMatch(line))
                return Added::No;
    }
    appendLine(variant.map, entry);
    if (!isNewMap)
        return Added::ToMap;
    setOwnerAndMode(variant.map, variant.owner, variant.mode);
    return Added::ToNewMap;
}

bool dropEntries(const MapVariant& variant, const std::string& map, const LineTest& isMatch)
{
    return rewriteMap(variant, map, [&](std::string_view line, MapWriter& newMap) {
        if (!line.empty() && !isMatch(line))
            newMap.writeLine(line);
    });
}

bool dropEntries(const MapVariant& variant, const LineTest& isMatch)
{
    return dropEntries(variant, variant.map, isMatch);
}

Replaced replaceEntries(const MapVariant& variant, const LineTest& isMatch,
                        const std::string& entry, WhenAbsent whenAbsent)
{
    bool found = false;
    const auto replace = [&](std::string_view line, MapWriter& newMap) {
        if (line.empty())
            return;
        const bool isMine = isMatch(line);
        newMap.writeLine(isMine ? entry : line);
        found = found || isMine;
    };
    const auto addWhenAbsent = [&](MapWriter& newMap) {
        if (!found && whenAbsent == WhenAbsent::Add)
            newMap.writeLine(entry);
        return true;
    };
    if (!rewriteMap(variant, replace, addWhenAbsent))
        return Replaced::NotOpened;
    return found ? Replaced::Some : Replaced::None;
}
