// Stage - what the open transaction of this process keeps from everybody else until its commit
//
// The few functions below the operations that act on the world ask openStage(): where a map is,
// which lines a text means, what is published, which connection is used, how the spool changes.
// Without an open transaction they act at once. No operation asks.
#ifndef QV_STAGE_H
#define QV_STAGE_H

#include "MapFiles.h"
#include "system/Refusal.h"
#include "system/SystemAccounts.h"

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include <sys/types.h>

class SqlTransaction;

// A map of the system and its staged copy.
struct StagedMap {
    const char* map;
    const char* directory; // of the copy
    const char* name;      // of the copy there
    bool isTable;          // the mail server reads it through a lookup table, which postmap builds

    bool isChanged = false;  // there is a copy, and it stands for the map
    bool isRepaired = false; // the copy is published even if no entry differs
    std::string former = {}; // identity of the map when it was copied

    std::size_t copiedSize = 0;              // of the map, as long as lines were only added; else 0
    std::pair<int, mode_t> rights = {-1, 0}; // of the copy, as a writer has set them

    // The hashes of the copy's names, kept from the second added entry on.
    int additions = 0;
    std::unordered_set<std::size_t> names = {};

    std::string copy() const { return at(""); }
    std::string replacement() const { return at("new-"); }

    // Another file beside the copy.
    std::string at(const char* prefix) const
    {
        return std::string(directory) + "/" + prefix + name;
    }
};

// In the order in which new entries become public: an account before the route that leads to it.
using StagedMaps = std::array<StagedMap, 6>;

struct SpoolDirectory {
    std::string path;
    mode_t mode;
};

class Stage
{
public:
    // onFiles  the accounts are in map files: a map that is missing is damage.
    explicit Stage(bool onFiles);
    ~Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    // Makes the commit refuse, for the first reason given.
    void fail(const std::string& reason, bool mayPass = false);
    void fail(const Refusal& refusal) { fail(refusal.reason, refusal.mayPass); }
    const std::string& failure() const { return m_failure; }
    bool failureMayPass() const { return m_failureMayPass; }

    // Where the map is to be read. Empty, and a failure, when it is no regular file or when it is
    // missing although the accounts are in files.
    std::string mapToRead(const std::string& map);

    // The staged copy, to be changed in place; it is made when there is none. Empty when that
    // fails.
    std::string mapToChange(const std::string& map);

    // A file beside the copy, to write the changed map to; takeReplacement puts it in the copy's
    // place.
    std::string replacementOf(const std::string& map);
    void takeReplacement(const std::string& map);

    // The state of a map; null, and a failure, when it is none of the system's.
    StagedMap* find(const std::string& map);
    StagedMaps& maps() { return m_maps; }

    // Spool directories to be made, or given their owner and mode again, and paths to be removed
    // with all below them. False when the directory could not be made.
    bool makeDirectory(const SpoolDirectory& directory);
    void remove(const std::string& path);
    const std::vector<SpoolDirectory>& directoriesToMake() const { return m_directories; }
    const std::vector<std::string>& pathsToRemove() const { return m_removals; }

    // Whether the path is to be removed, by itself or with a directory above it.
    bool isToBeRemoved(const std::string& path) const;

    bool makesDirectories() const { return !m_directories.empty(); }

    void wantReload() { m_wantsReload = true; }
    bool wantsReload() const { return m_wantsReload; }

    std::unique_ptr<SqlTransaction> database; // null: the accounts are in map files

    // Whether Dovecot delivers; nothing until that is asked for.
    std::optional<bool> deliveryAgent;

    // Whether the passwords of account records are to be stored as they are.
    bool passwordsAreHashed = false;

    // Owners that were looked up, by user and group account.
    std::map<std::pair<std::string, std::string>, std::optional<Ownership>> owners;

private:
    void recordFormer(StagedMap& staged);
    bool willBeDirectory(const std::string& path) const;

    bool m_onFiles;
    std::string m_failure;
    bool m_failureMayPass = false;
    StagedMaps m_maps;
    std::vector<SpoolDirectory> m_directories;
    std::unordered_set<std::string> m_newPaths; // of these: they may be thousands
    std::vector<std::string> m_removals;
    bool m_wantsReload = false;
};

// The stage of this process's transaction; null when none is open.
Stage* openStage();

#endif
