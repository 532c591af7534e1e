#include "system/LargeFilesAndDates.h"

#include "Paths.h"

#include "maps/LineReader.h"
#include "maps/MapVariants.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <set>

#include <sys/stat.h>

namespace
{

using Look = int (*)(const char* path, struct stat* entry);

std::optional<PathFacts> factsBy(Look look, const std::string& path)
{
    struct stat entry {
    };
    if (look(path.c_str(), &entry) != 0)
        return std::nullopt;
    PathType type = PathType::Other;
    if (S_ISREG(entry.st_mode))
        type = PathType::File;
    else if (S_ISDIR(entry.st_mode))
        type = PathType::Directory;
    else if (S_ISLNK(entry.st_mode))
        type = PathType::Link;
    return PathFacts{type,          entry.st_uid,
                     entry.st_gid,  static_cast<mode_t>(entry.st_mode & 07777U),
                     entry.st_size, entry.st_mtim.tv_sec};
}

} // namespace

std::optional<PathFacts> factsOf(const std::string& path)
{
    return factsBy(lstat, path);
}

std::optional<PathFacts> factsBehind(const std::string& path)
{
    return factsBy(stat, path);
}

bool isThere(const std::string& path)
{
    return factsOf(path).has_value();
}

std::vector<std::string> namesIn(const std::string& directory)
{
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
        names.push_back(entry->path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::size_t countLines(const std::string& file)
{
    std::size_t count = 0;
    LineReader reader(file);
    std::string_view line;
    while (reader.nextLine(line))
        count += line.empty() ? 0 : 1;
    return count;
}

std::string description(const std::string& file)
{
    const std::optional<PathFacts> facts = factsOf(file);
    if (!facts)
        return "missing";
    const time_t changed = facts->changed;
    struct tm parts {
    };
    char date[32] = "";
    strftime(date, sizeof date, "%Y-%m-%d %H:%M", localtime_r(&changed, &parts));
    return std::to_string(countLines(file)) + " lines, " + std::to_string(facts->size) +
           " bytes, " + date;
}

std::string copiesOf(const std::string& map)
{
    std::string copies;
    std::set<std::string> endings = {Backup};
    for (const MapVariant* const writer : MapVariants)
        if (writer->map != nullptr && writer->map == map && writer->backupSuffix != nullptr)
            endings.insert(writer->backupSuffix);
    for (const std::string& ending : endings) {
        const std::string copy = map + ending;
        if (isThere(copy))
            copies.append(copies.empty() ? "" : ", ")
                .append(copy)
                .append(" (")
                .append(description(copy) + ")");
    }
    return copies;
}

std::string octal(mode_t mode)
{
    std::string digits = "0";
    for (int shift = (mode & 07000U) != 0 ? 9 : 6; shift >= 0; shift -= 3)
        digits += static_cast<char>('0' + ((mode >> shift) & 7U));
    return digits;
}
