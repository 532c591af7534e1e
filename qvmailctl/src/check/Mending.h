// What the mending of many findings does together: each directory is synced once, and each map is
// rewritten once.
#ifndef QVMAILCTL_CHECK_MENDING_H
#define QVMAILCTL_CHECK_MENDING_H

#include "Session.h"
#include "system/SpoolTree.h"

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class Mending
{
public:
    explicit Mending(Session& session) : m_session(session) {}

    // ---- Beside the maps ----

    void makeDirectory(const OwnedDirectory& directory) { m_directories.push_back(directory); }
    void reloadPostfix() { m_reloads = true; }
    void finishBeside();

    // ---- In the transaction ----

    // Returns the line to write in place of the entry's, or nothing to drop it.
    using Edit = std::function<std::optional<std::string>(std::string_view line)>;

    // entry  its place among the map's lines that are not empty, counted from 0.
    void edit(const std::string& map, std::size_t entry, Edit edit);
    void drop(const std::string& map, std::size_t entry);
    void rewrite(const std::string& map) { m_edits[map]; } // to end its last line

    // Library calls that change a map or a table; they are made after the lines are edited.
    void call(const std::string& place, std::function<void(Session& session)> call);
    void stage();

private:
    Session& m_session;
    std::vector<OwnedDirectory> m_directories;
    bool m_reloads = false;
    std::map<std::string, std::unordered_map<std::size_t, Edit>> m_edits; // by map
    std::set<std::string> m_called;                                       // maps and tables
    std::vector<std::function<void(Session& session)>> m_calls;
};

// Sets owner and mode of a file or directory. Throws a Refusal when it cannot, as for a link.
void giveRights(const std::string& path, const Ownership& owner, mode_t mode);

// asideNameOf gives a free name beside the path. moveAside renames the path to it, never over
// anything, and throws a Refusal when it cannot.
std::string asideNameOf(const std::string& path);
void moveAside(const std::string& path, const std::string& aside);

// Builds the lookup table of the map. Throws a Refusal when postmap fails.
void buildTable(const std::string& map);

#endif
