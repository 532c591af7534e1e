// What stands in the map files, by whole names: what a plain query of the library answers also
// holds what contains a name.
#ifndef QVMAILCTL_MAPS_H
#define QVMAILCTL_MAPS_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

bool hasEntry(const char* map, std::string_view name);

// The rest of the line of that name, behind the separator.
std::optional<std::string> valueOf(const char* map, std::string_view name);

// The names, in the order of the file, of the lines that hold the text and that take accepts.
using Take = std::function<bool(std::string_view name, std::string_view line)>;
std::vector<std::string> namesOf(const char* map, const std::string& text, const Take& take);

// Ends the command when a rewrite of a program without transactions was interrupted.
void refuseWorkFiles();

// The part of an address behind its first "@"; empty when it has none.
std::string_view domainOf(std::string_view address);

#endif
