// What stands in the map files. The library matches by text within names; a person means whole
// names, and these looks into the files tell where the two differ.
#ifndef QVMAILCTL_MAPS_H
#define QVMAILCTL_MAPS_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// A map as its reader sees it: what a line is named by, and the part that the library searches.
struct Map {
    const char* file;
    std::string_view (*name)(std::string_view line);
    std::string_view (*searched)(std::string_view line);
};

extern const Map DomainList;
extern const Map AccountFile;
extern const Map ShadowFile;
extern const Map MailboxMap;
extern const Map QuotaMap;
extern const Map AliasMap;

bool hasEntry(const Map& map, std::string_view name);

// The rest of the line of that name, behind the separator.
std::optional<std::string> valueOf(const Map& map, std::string_view name);

// The names, in the order of the file, of the lines that hold the text and that take accepts.
using Take = std::function<bool(std::string_view name, std::string_view line)>;
std::vector<std::string> namesOf(const Map& map, const std::string& text, const Take& take);

// Ends the command when the library would also hit lines that are not meant. By default the line
// named by the text is the one that is meant.
enum class Doing { Adding, Changing };
void refuseOthersHit(Doing doing, const Map& map, const std::string& text);
void refuseOthersHit(Doing doing, const Map& map, const std::string& text,
                     const std::function<bool(std::string_view name)>& isMeant);

// Ends the command when a rewrite was interrupted: its work file would end up in the next map.
void refuseWorkFiles();

// Ends the command when the file's last line lacks its line end: a new line would run into it.
void refuseUnendedLine(const std::string& file);

// The part of an address behind its first "@"; empty when it has none.
std::string_view domainOf(std::string_view address);

#endif
