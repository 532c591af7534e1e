#include "system/LargeFilesAndDates.h"

#include "stage/Stage.h"

#include "stage/CheckedFiles.h"
#include "stage/SqlTransaction.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <string_view>

#include <sys/stat.h>

namespace
{

Stage* current = nullptr;

// Runs a step. What it refuses makes the commit refuse.
template <class Step> std::string guarded(Stage& stage, Step step)
{
    try {
        return step();
    } catch (const Refusal& refusal) {
        stage.fail(refusal);
    } catch (const std::exception& error) {
        stage.fail(error.what());
    }
    return {};
}

bool isAtOrBelow(std::string_view path, std::string_view directory)
{
    return path.substr(0, directory.size()) == directory &&
           (path.size() == directory.size() || path[directory.size()] == '/');
}

// Refuses a path that is not below the spool, or that could lead out of it.
void checkSpoolPath(const std::string& path)
{
    const std::string spool = VSPOOLDIR "/";
    bool isGood = path.compare(0, spool.size(), spool) == 0;
    std::string_view rest = std::string_view(path).substr(std::min(spool.size(), path.size()));
    for (bool isLast = false; isGood && !isLast;) {
        const std::size_t end = rest.find('/');
        const std::string_view name = rest.substr(0, end);
        isGood = !name.empty() && name != "." && name != ".." &&
                 std::none_of(name.begin(), name.end(), [](unsigned char c) { return c <= ' '; });
        isLast = end == std::string_view::npos;
        rest.remove_prefix(isLast ? rest.size() : end + 1);
    }
    if (!isGood)
        refuse("\"" + path + "\" is no path of a domain or a mailbox below " VSPOOLDIR);
}

} // namespace

Stage* openStage()
{
    return current;
}

Stage::Stage(bool onFiles)
    : m_onFiles(onFiles), m_maps{{{VPASSWDFILE, VSTAGEDIR, "vpasswd", false},
                                  {VSHADOWFILE, VSTAGEDIR, "vshadow", false},
                                  {VQUOTAFILE, VSTAGEDIR, "vquota.txt", true},
                                  {VMAPSFILE, VSTAGEDIR, "vmaps.txt", true},
                                  {VALIASFILE, VSTAGEDIR, "valias.txt", true},
                                  {VDOMAINFILE, VLISTSTAGEDIR, "VirtualHosts", false}}}
{
    current = this;
}

Stage::~Stage()
{
    current = nullptr;
}

void Stage::fail(const std::string& reason, bool mayPass)
{
    if (!m_failure.empty())
        return;
    m_failure = reason;
    m_failureMayPass = mayPass;
}

StagedMap* Stage::find(const std::string& map)
{
    for (StagedMap& staged : m_maps)
        if (map == staged.map)
            return &staged;
    fail(map + " is none of the maps, and a transaction changes no other file");
    return nullptr;
}

std::string Stage::mapToRead(const std::string& map)
{
    StagedMap* const staged = find(map);
    if (staged == nullptr)
        return {};
    if (staged->isChanged)
        return staged->copy();
    return guarded(*this, [&]() -> std::string {
        if (!identityOf(map).empty())
            return map;
        if (m_onFiles)
            refuse(map + " is missing, which is damage: it holds mail accounts. Bring it back from "
                         "a copy, or make it empty with create-empty-maps");
        return {};
    });
}

void Stage::recordFormer(StagedMap& staged)
{
    if (!staged.isChanged)
        staged.former = identityOf(staged.map);
    if (staged.former.empty())
        refuse(std::string(staged.map) + " is missing; bring it back from a copy, or make it empty "
                                         "with create-empty-maps");
    if (std::string(staged.map) == VDOMAINFILE && mkdir(VLISTSTAGEDIR, 0700) != 0 &&
        errno != EEXIST)
        refuseFailed(VLISTSTAGEDIR, "made");
}

std::string Stage::mapToChange(const std::string& map)
{
    StagedMap* const staged = find(map);
    if (staged == nullptr)
        return {};
    return guarded(*this, [&]() -> std::string {
        recordFormer(*staged);
        if (!staged->isChanged)
            staged->copiedSize = copyMap(map, staged->copy());
        staged->isChanged = true;
        return staged->copy();
    });
}

std::string Stage::replacementOf(const std::string& map)
{
    StagedMap* const staged = find(map);
    if (staged == nullptr)
        return {};
    return guarded(*this, [&] {
        recordFormer(*staged);
        return staged->replacement();
    });
}

void Stage::takeReplacement(const std::string& map)
{
    StagedMap* const staged = find(map);
    if (staged == nullptr)
        return;
    guarded(*this, [&]() -> std::string {
        copyRights(staged->isChanged ? staged->copy() : map, staged->replacement());
        moveFile(staged->replacement(), staged->copy());
        staged->isChanged = true;
        staged->copiedSize = 0;
        staged->rights = {-1, 0};
        staged->additions = 0;
        staged->names.clear();
        return {};
    });
}

bool Stage::isToBeRemoved(const std::string& path) const
{
    return std::any_of(m_removals.begin(), m_removals.end(),
                       [&](const std::string& removal) { return isAtOrBelow(path, removal); });
}

// Whether the path is a directory once what is staged is done.
bool Stage::willBeDirectory(const std::string& path) const
{
    struct stat entry {
    };
    if (stat(path.c_str(), &entry) == 0 && S_ISDIR(entry.st_mode) && !isToBeRemoved(path))
        return true;
    return m_newPaths.count(path) > 0;
}

bool Stage::makeDirectory(const SpoolDirectory& directory)
{
    guarded(*this, [&]() -> std::string {
        checkSpoolPath(directory.path);
        return {};
    });
    if (!willBeDirectory(directory.path.substr(0, directory.path.rfind('/')))) {
        fail(directory.path + " cannot be made: there is no directory above it");
        return false;
    }
    m_directories.push_back(directory);
    m_newPaths.insert(directory.path);
    return true;
}

void Stage::remove(const std::string& path)
{
    guarded(*this, [&]() -> std::string {
        checkSpoolPath(path);
        const auto isGone = [&](const SpoolDirectory& made) {
            return isAtOrBelow(made.path, path);
        };
        for (const SpoolDirectory& made : m_directories)
            if (isGone(made))
                m_newPaths.erase(made.path);
        m_directories.erase(std::remove_if(m_directories.begin(), m_directories.end(), isGone),
                            m_directories.end());
        if (std::find(m_removals.begin(), m_removals.end(), path) == m_removals.end())
            m_removals.push_back(path);
        return {};
    });
}
