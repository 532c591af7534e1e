#include "LargeFilesAndDates.h"

#include "Maps.h"

#include "MapFiles.h"
#include "MapLines.h"
#include "MapReader.h"
#include "Results.h"

#include <algorithm>

#include <fcntl.h>
#include <unistd.h>

namespace
{

std::string_view wholeLine(std::string_view line)
{
    return line;
}

std::string_view firstWord(std::string_view line)
{
    return line.substr(0, line.find_first_of(" \t"));
}

struct WorkFile {
    const char* name;
    const char* map;
};

const WorkFile WorkFiles[] = {
    {VDOMAINFILE "-temp.txt", VDOMAINFILE},
    {VMAPDIR "/vmaps-temp.txt", VMAPSFILE},
    {VMAPDIR "/valias-temp.txt", VALIASFILE},
    {VMAPDIR "/vquota-temp.txt", VQUOTAFILE},
    {VMAPDIR "/vpasswd_temp.txt", VPASSWDFILE},
    {VMAPDIR "/vshadow_temp.txt", VSHADOWFILE},
    {VMAPDIR "/temp.txt", VPASSWDFILE ", vshadow, vmaps.txt or vquota.txt"},
};

} // namespace

const Map DomainList{VDOMAINFILE, wholeLine, wholeLine};
const Map AccountFile{VPASSWDFILE, accountName, wholeLine};
const Map ShadowFile{VSHADOWFILE, accountName, wholeLine};
const Map MailboxMap{VMAPSFILE, firstWord, wholeLine};
const Map QuotaMap{VQUOTAFILE, firstWord, mapKey};
const Map AliasMap{VALIASFILE, firstWord, mapKey};

std::optional<std::string> valueOf(const Map& map, std::string_view name)
{
    MapReader reader(map.file, std::string(name));
    std::string_view line;
    while (reader.nextLine(line)) {
        if (map.name(line) != name)
            continue;
        line.remove_prefix(std::min(line.size(), name.size() + 1));
        return std::string(line);
    }
    return std::nullopt;
}

bool hasEntry(const Map& map, std::string_view name)
{
    return valueOf(map, name).has_value();
}

std::vector<std::string> namesOf(const Map& map, const std::string& text, const Take& take)
{
    std::vector<std::string> names;
    MapReader reader(map.file, text);
    std::string_view line;
    while (reader.nextLine(line))
        if (take(map.name(line), line))
            names.emplace_back(map.name(line));
    return names;
}

void refuseOthersHit(Doing doing, const Map& map, const std::string& text)
{
    refuseOthersHit(doing, map, text, [&](std::string_view name) { return name == text; });
}

void refuseOthersHit(Doing doing, const Map& map, const std::string& text,
                     const std::function<bool(std::string_view name)>& isMeant)
{
    const std::vector<std::string> names =
        namesOf(map, text, [&](std::string_view name, std::string_view line) {
            return !isMeant(name) && contains(map.searched(line), text);
        });
    if (names.empty())
        return;

    constexpr std::size_t Shown = 5;
    std::string list;
    for (std::size_t i = 0; i < names.size() && i < Shown; ++i)
        list += (i == 0 ? "" : ", ") + names[i];
    if (names.size() > Shown)
        list += " and " + std::to_string(names.size() - Shown) + " more";
    const std::string where = std::string(map.file) + " has " + list + ", in whose line \"" + text +
                              "\" occurs; the library goes by that text, so it would ";
    if (doing == Doing::Adding)
        refuse(where + "take " + text +
               " for listed and add nothing. Choose another name, or "
               "delete the other first and add it again afterwards");
    refuse(where + "change that line too. Delete the other first if it may go; else edit " +
           map.file + " by hand and run postmap and \"postfix reload\"");
}

void refuseWorkFiles()
{
    for (const WorkFile& file : WorkFiles)
        if (access(file.name, F_OK) == 0)
            refuse("the work file " + std::string(file.name) +
                   " of an interrupted change is there, and its lines would enter the next one. "
                   "Compare it with " +
                   file.map +
                   " (where that is missing, the work file is the new one: rename it), "
                   "then remove it");
}

void refuseUnendedLine(const std::string& file)
{
    const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return;
    char last = '\n';
    const off_t size = lseek(descriptor, 0, SEEK_END);
    const bool isEnded = size <= 0 || (pread(descriptor, &last, 1, size - 1) == 1 && last == '\n');
    close(descriptor);
    if (!isEnded)
        refuse("the last line of " + file +
               " has no line end, and the new line would run into it; add the line end (echo >> " +
               file + ")");
}

std::string_view domainOf(std::string_view address)
{
    const std::size_t at = address.find('@');
    return at == std::string_view::npos ? std::string_view() : address.substr(at + 1);
}
