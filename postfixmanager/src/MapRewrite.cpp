#include "MapRewrite.h"

#include "MapReader.h"
#include "Shell.h"
#include "SystemAccounts.h"

#include <cstdio>

#include <sys/stat.h>
#include <unistd.h>

void backUp(const std::string& file, const char* suffix)
{
    runInShell("cp " + file + " " + file + suffix);
}

void backUpIfThere(const std::string& file, const char* suffix)
{
    if (access(file.c_str(), F_OK) == 0)
        backUp(file, suffix);
}

void openMapDirectory()
{
    chmod(VMAPDIR, 0755);
}

bool rewriteMap(const MapVariant& variant, const LineRule& rule,
                const std::function<void(MapWriter& newMap)>& atEnd)
{
    MapReader oldMap(variant.map);
    if (!oldMap.isOpen())
        return false;

    MapWriter newMap(variant.workFile, MapWriter::Append);
    std::string_view line;
    while (oldMap.nextLine(line))
        rule(line, newMap);
    if (atEnd)
        atEnd(newMap);
    newMap.close();

    replaceFile(variant.workFile, variant.map);
    settleOwnerAndMode(variant);
    return true;
}

void replaceFile(const char* workFile, const std::string& file)
{
    remove(file.c_str());
    rename(workFile, file.c_str());
}

void appendLine(const std::string& file, std::string_view line)
{
    MapWriter(file, MapWriter::Append).writeLine(line);
}

void settleOwnerAndMode(const MapVariant& variant)
{
    if (variant.groupAccount != nullptr)
        giveTo(variant.map, "root", variant.groupAccount);
    if (variant.mode != 0)
        chmod(variant.map.c_str(), variant.mode);
}

void publish(const MapVariant& variant)
{
    if (variant.publish == Publish::PostmapAndReload)
        rebuildLookupTable(variant.map);
    if (variant.publish != Publish::Nothing)
        reloadPostfix();
}
