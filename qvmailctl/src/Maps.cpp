#include "system/LargeFilesAndDates.h"

#include "Maps.h"

#include "MapFiles.h"
#include "Results.h"
#include "maps/LineReader.h"
#include "maps/MapLines.h"
#include "maps/MapVariants.h"

#include <algorithm>

#include <unistd.h>

std::optional<std::string> valueOf(const char* map, std::string_view name)
{
    LineReader reader(map, std::string(name));
    std::string_view line;
    while (reader.nextLine(line)) {
        if (wholeName(line) != name)
            continue;
        line.remove_prefix(std::min(line.size(), name.size() + 1));
        return std::string(line);
    }
    return std::nullopt;
}

bool hasEntry(const char* map, std::string_view name)
{
    return valueOf(map, name).has_value();
}

std::vector<std::string> namesOf(const char* map, const std::string& text, const Take& take)
{
    std::vector<std::string> names;
    LineReader reader(map, text);
    std::string_view line;
    while (reader.nextLine(line))
        if (take(wholeName(line), line))
            names.emplace_back(wholeName(line));
    return names;
}

void refuseWorkFiles()
{
    for (const MapVariant* const writer : MapVariants)
        if (access(writer->workFile, F_OK) == 0)
            refuse("the work file " + std::string(writer->workFile) +
                   " of an interrupted change is there, and the control panel's next change would "
                   "put its lines into a map. Compare it with " +
                   (writer->map == nullptr ? "the files below " VMAPDIR : writer->map) +
                   " (where a file is missing, the work file is the new one: rename it), then "
                   "remove it");
}

std::string_view domainOf(std::string_view address)
{
    const std::size_t at = address.find('@');
    return at == std::string_view::npos ? std::string_view() : address.substr(at + 1);
}
