#include "MapEntries.h"

#include "MapReader.h"

Added addEntry(const MapVariant& variant, const std::string& text, const LineTest& isMatch,
               const std::string& entry)
{
    bool isNewMap;
    {
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
    settleOwnerAndMode(variant);
    return Added::ToNewMap;
}

bool dropEntries(const MapVariant& variant, const LineTest& isMatch)
{
    return rewriteMap(variant, [&](std::string_view line, MapWriter& newMap) {
        if (!line.empty() && !isMatch(line))
            newMap.writeLine(line);
    });
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
    };
    if (!rewriteMap(variant, replace, addWhenAbsent))
        return Replaced::NotOpened;
    return found ? Replaced::Some : Replaced::None;
}
