#include "AliasLines.h"

#include "MapLines.h"
#include "MapReader.h"
#include "MapRewrite.h"

namespace
{

bool standsFor(std::string_view line, const std::string& address)
{
    return contains(mapKey(line), address);
}

} // namespace

bool addAliasEntry(const std::string& address, const std::string& entry)
{
    bool isNewMap;
    {
        MapReader map(VALIASFILE, address);
        isNewMap = !map.isOpen();
        std::string_view line;
        while (map.nextLine(line))
            if (standsFor(line, address))
                return false;
    }
    appendLine(VALIASFILE, entry);
    if (isNewMap)
        settleOwnerAndMode(AliasMap);
    publish(AliasMap);
    return true;
}

bool dropAliasEntries(const std::string& address)
{
    const bool rewritten = rewriteMap(AliasMap, [&](std::string_view line, MapWriter& newMap) {
        if (!line.empty() && !standsFor(line, address))
            newMap.writeLine(line);
    });
    if (rewritten)
        publish(AliasMap);
    return rewritten;
}

bool replaceAliasEntries(const std::string& address, const std::string& entry,
                         WhenAbsent whenAbsent)
{
    bool found = false;
    const auto replace = [&](std::string_view line, MapWriter& newMap) {
        if (line.empty())
            return;
        const bool isMatch = standsFor(line, address);
        newMap.writeLine(isMatch ? entry : line);
        found = found || isMatch;
    };
    const auto addWhenAbsent = [&](MapWriter& newMap) {
        if (!found && whenAbsent == WhenAbsent::Add)
            newMap.writeLine(entry);
    };
    const bool rewritten = rewriteMap(AliasMap, replace, addWhenAbsent);
    if (rewritten)
        publish(AliasMap);
    return rewritten;
}
