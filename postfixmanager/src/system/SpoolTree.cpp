#include "system/LargeFilesAndDates.h"

#include "system/SpoolTree.h"

#include "MapFiles.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <memory>
#include <set>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// An open directory, closed on leaving.
class Directory
{
public:
    explicit Directory(int descriptor) : m_descriptor(descriptor) {}
    ~Directory()
    {
        if (m_descriptor >= 0)
            close(m_descriptor);
    }
    Directory(Directory&& other) noexcept : m_descriptor(other.release()) {}
    Directory& operator=(Directory&& other) noexcept
    {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }

    bool isOpen() const { return m_descriptor >= 0; }
    int number() const { return m_descriptor; }
    int release() { return std::exchange(m_descriptor, -1); }

private:
    int m_descriptor;
};

struct CloseList {
    void operator()(DIR* list) const { closedir(list); }
};

constexpr gid_t SameGroup = -1;
constexpr int OpenDirectory = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// Where an entry of the spool stands: the directory that holds it, and its name there.
struct Place {
    Directory parent;
    std::string name;
    bool isDomain;

    Directory open() const
    {
        return Directory(
            openat(parent.number(), name.c_str(), OpenDirectory | (isDomain ? 0 : O_NOFOLLOW)));
    }
};

// The parent is not open when it cannot be reached; errno says why.
Place placeOf(const std::string& path)
{
    Place place{Directory(open(VSPOOLDIR, OpenDirectory)), {}, true};
    std::string_view rest = std::string_view(path).substr(std::string_view(VSPOOLDIR "/").size());
    for (;;) {
        const std::size_t end = rest.find('/');
        // As in any path, "//" stays in the directory.
        place.name = end == 0 || rest.empty() ? "." : rest.substr(0, end);
        if (end == std::string_view::npos || !place.parent.isOpen())
            return place;
        place = Place{place.open(), {}, false};
        rest.remove_prefix(end + 1);
    }
}

// Moves on to the place of another path. What paths in the same directory share is walked once.
void moveTo(Place& place, std::string& holder, const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    if (place.parent.isOpen() && path.compare(0, slash, holder) == 0)
        place.name = path.substr(slash + 1);
    else
        place = placeOf(path);
    holder = path.substr(0, slash);
}

// Sets owner and mode of the directory itself, and of nothing that a link leads to.
bool giveRights(const Place& place, const OwnedDirectory& directory)
{
    const Directory made = place.open();
    return made.isOpen() &&
           fchown(made.number(), directory.owner.user, directory.owner.group) == 0 &&
           fchmod(made.number(), directory.mode) == 0;
}

// For a place that could not be opened, for the reason in errno: whether there is nothing, or
// nothing that leads on (no link and no directory).
bool leadsNowhere(const Place& place)
{
    struct stat entry {
    };
    return errno == ENOENT ||
           (fstatat(place.parent.number(), place.name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) == 0 &&
            !S_ISLNK(entry.st_mode) && !S_ISDIR(entry.st_mode));
}

// Syncs the directories and those that hold them. A few are synced one by one; for many that would
// take seconds, so their file systems are synced, once each. That in turn waits for the mail that
// others write meanwhile.
int syncMade(const std::vector<OwnedDirectory>& directories, std::string& failed)
{
    const bool isBulk = directories.size() > 100;
    std::set<std::string> holders;
    std::set<dev_t> synced;
    for (const OwnedDirectory& directory : directories) {
        failed = directory.path;
        const bool isFirst =
            holders.insert(directory.path.substr(0, directory.path.rfind('/'))).second;
        if (isBulk && !isFirst)
            continue;
        const Place place = placeOf(directory.path);
        if (!place.parent.isOpen())
            return errno;
        if (isBulk) {
            struct stat holder {
            };
            if (fstat(place.parent.number(), &holder) != 0 ||
                (synced.insert(holder.st_dev).second && syncfs(place.parent.number()) != 0))
                return errno;
            continue;
        }
        const Directory made = place.open();
        if (!made.isOpen() || fsync(made.number()) != 0 ||
            (isFirst && fsync(place.parent.number()) != 0))
            return errno;
    }
    return 0;
}

// A tree that is being removed. Each level takes a descriptor, and whoever may write here may nest
// directories without end: below a certain depth, directories are first moved up to the top.
struct Tree {
    int top;
    unsigned moved = 0;
};
constexpr int Deepest = 100;

int removeEntry(int parent, const char* name, Tree& tree, int depth);

int removeAllIn(Directory directory, Tree& tree, int depth)
{
    const std::unique_ptr<DIR, CloseList> list(fdopendir(directory.number()));
    if (!list)
        return errno;
    const int descriptor = directory.release();
    int failure = 0;
    while (const dirent* const entry = readdir(list.get())) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        if (const int failed = removeEntry(descriptor, entry->d_name, tree, depth))
            failure = failed;
    }
    return failure;
}

int moveUp(int parent, const char* name, Tree& tree)
{
    int moved;
    do {
        const std::string upper = ".deep-" + std::to_string(tree.moved++);
        moved = renameat(parent, name, tree.top, upper.c_str());
    } while (moved != 0 && (errno == ENOTEMPTY || errno == EEXIST || errno == ENOTDIR));
    return moved == 0 ? 0 : errno;
}

int removeEntry(int parent, const char* name, Tree& tree, int depth)
{
    if (unlinkat(parent, name, 0) == 0 || errno == ENOENT)
        return 0;
    if (errno != EISDIR && errno != EPERM)
        return errno;
    if (depth == Deepest)
        return moveUp(parent, name, tree);
    Directory directory(openat(parent, name, OpenDirectory | O_NOFOLLOW));
    if (!directory.isOpen())
        return errno == ENOTDIR ? EPERM : errno; // a file that may not be removed
    if (const int failure = removeAllIn(std::move(directory), tree, depth + 1))
        return failure;
    return unlinkat(parent, name, AT_REMOVEDIR) == 0 || errno == ENOENT ? 0 : errno;
}

int removeTree(int parent, const char* name)
{
    if (unlinkat(parent, name, 0) == 0 || errno == ENOENT)
        return 0;
    if (errno != EISDIR && errno != EPERM)
        return errno;
    const Directory top(openat(parent, name, OpenDirectory | O_NOFOLLOW));
    if (!top.isOpen())
        return errno == ENOTDIR ? EPERM : errno;
    Tree tree{top.number()};
    unsigned movedBefore;
    do {
        movedBefore = tree.moved;
        Directory again(openat(parent, name, OpenDirectory | O_NOFOLLOW));
        if (!again.isOpen())
            return errno;
        if (const int failure = removeAllIn(std::move(again), tree, 0))
            return failure;
    } while (tree.moved > movedBefore);
    return unlinkat(parent, name, AT_REMOVEDIR) == 0 || errno == ENOENT ? 0 : errno;
}

} // namespace

int makeInSpool(const std::vector<OwnedDirectory>& directories, std::string& failed)
{
    Place place{Directory(-1), {}, true};
    std::string holder;
    for (const OwnedDirectory& directory : directories) {
        failed = directory.path;
        moveTo(place, holder, directory.path);
        if (!place.parent.isOpen())
            return errno;
        if (mkdirat(place.parent.number(), place.name.c_str(), 0700) != 0 && errno != EEXIST)
            return errno;
        // The owner comes last: a directory that an interruption leaves to root is found by "check".
        const Directory made = place.open();
        if (!made.isOpen() || fchmod(made.number(), directory.mode) != 0 ||
            fchown(made.number(), directory.owner.user, directory.owner.group) != 0)
            return errno;
    }
    return syncMade(directories, failed);
}

bool makePlainlyInSpool(const OwnedDirectory& directory, mode_t madeWith)
{
    const Place place = placeOf(directory.path);
    if (!place.parent.isOpen() ||
        (mkdirat(place.parent.number(), place.name.c_str(), madeWith) != 0 && errno != EEXIST))
        return false;
    giveRights(place, directory);
    return true;
}

HeldWay::HeldWay(const std::string& path)
{
    const std::size_t last = path.rfind('/');
    std::size_t end = path.find('/', std::string_view(VSPOOLDIR "/").size());
    for (; m_isSafe && end <= last; end = path.find('/', end + 1)) {
        const Place place = placeOf(path.substr(0, end));
        Directory directory = place.open();
        if (!directory.isOpen()) {
            m_isSafe = leadsNowhere(place);
            return;
        }
        if (end < last)
            m_isSafe = hold(directory.release());
    }
}

bool HeldWay::hold(int descriptor)
{
    constexpr mode_t OthersWrite = 022;
    constexpr mode_t AllBits = 07777;
    struct stat entry {
    };
    if (fstat(descriptor, &entry) != 0) {
        close(descriptor);
        return false;
    }
    const mode_t mode = entry.st_mode & AllBits;
    m_held.push_back({descriptor, entry.st_uid, mode});
    // The owner first: the former one could change the mode back.
    return fchown(descriptor, 0, SameGroup) == 0 && fchmod(descriptor, mode & ~OthersWrite) == 0;
}

HeldWay::~HeldWay()
{
    for (const HeldDirectory& held : m_held) {
        if (fchown(held.descriptor, held.user, SameGroup) == 0)
            fchmod(held.descriptor, held.mode);
        close(held.descriptor);
    }
}

std::string asideOf(const std::string& path)
{
    const std::size_t name = path.rfind('/') + 1;
    // A name that gets too long for the file system is cut. Two that become the same are both to be
    // removed anyway.
    return path.substr(0, name) + (".removed-" + path.substr(name)).substr(0, NAME_MAX);
}

int moveAsideInSpool(const std::string& path)
{
    const Place place = placeOf(path);
    const Place aside = placeOf(asideOf(path));
    if (!place.parent.isOpen() || !aside.parent.isOpen())
        return errno == ENOENT ? 0 : errno;
    const auto move = [&] {
        const bool isMoved = renameat(place.parent.number(), place.name.c_str(),
                                      aside.parent.number(), aside.name.c_str()) == 0;
        // Synced: after a loss of power it must not be back while the journal is gone.
        return (isMoved && fsync(place.parent.number()) == 0) || errno == ENOENT ? 0 : errno;
    };
    const int failure = move();
    if (failure != ENOTEMPTY && failure != EEXIST)
        return failure;
    // What was moved aside earlier is still there.
    if (const int stillThere = removeTree(aside.parent.number(), aside.name.c_str()))
        return stillThere;
    return move();
}

int removeFromSpool(const std::string& path)
{
    const Place place = placeOf(path);
    if (!place.parent.isOpen())
        return errno == ENOENT ? 0 : errno;
    if (const int failure = removeTree(place.parent.number(), place.name.c_str()))
        return failure;
    // Synced: after a loss of power it would be back, and nobody would know that it is to be
    // removed.
    return fsync(place.parent.number()) == 0 ? 0 : errno;
}

bool isInSpool(const std::string& path)
{
    struct stat entry {
    };
    return lstat(path.c_str(), &entry) == 0 || errno != ENOENT;
}

int identityInSpool(const std::string& path, std::string& identity)
{
    identity.clear();
    const Place place = placeOf(path);
    struct statx entry {
    };
    if (!place.parent.isOpen() || statx(place.parent.number(), place.name.c_str(),
                                        AT_SYMLINK_NOFOLLOW, STATX_INO | STATX_BTIME, &entry) != 0)
        return errno == ENOENT ? 0 : errno;
    // With the time of birth: a file system soon gives a freed inode to another file. Without the
    // disk's number, which may be another one after the next boot.
    identity = std::to_string(entry.stx_ino) + ":" + std::to_string(entry.stx_btime.tv_sec) + "." +
               std::to_string(entry.stx_btime.tv_nsec);
    return 0;
}

int removeEmptyFromSpool(const std::string& path)
{
    const Place place = placeOf(path);
    if (!place.parent.isOpen())
        return errno == ENOENT ? 0 : errno;
    const bool isGone =
        unlinkat(place.parent.number(), place.name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT;
    return isGone ? 0 : errno;
}
