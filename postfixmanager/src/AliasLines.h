// The lines of the alias map, forwarders' and lists' alike. A line stands for a text when its key
// contains it anywhere, on purpose: jimbob@example.com also stands for bob@example.com.
#ifndef QV_ALIASLINES_H
#define QV_ALIASLINES_H

#include <string>

// Appends the entry, or makes the map with it, and publishes it. False, and nothing done, when a
// line stands for the address already.
bool addAliasEntry(const std::string& address, const std::string& entry);

// These two rewrite the map, without its empty lines, and publish it. False, and nothing done, when
// it cannot be opened.
bool dropAliasEntries(const std::string& address);
enum class WhenAbsent { Skip, Add };
bool replaceAliasEntries(const std::string& address, const std::string& entry,
                         WhenAbsent whenAbsent);

#endif
