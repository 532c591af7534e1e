#include "system/LargeFilesAndDates.h"

#include "stage/CheckedFiles.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace
{

// An open file, closed on leaving.
class Descriptor
{
public:
    Descriptor(const std::string& path, int flags, mode_t mode = 0)
        : m_path(path), m_descriptor(open(path.c_str(), flags | O_CLOEXEC, mode))
    {
        if (m_descriptor < 0)
            refuseFailed(path, "opened");
    }
    ~Descriptor()
    {
        if (m_descriptor >= 0)
            close(m_descriptor);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const { return m_descriptor; }

    std::size_t readInto(char* buffer, std::size_t size) const
    {
        ssize_t count;
        do
            count = read(m_descriptor, buffer, size);
        while (count < 0 && errno == EINTR);
        if (count < 0)
            refuseFailed(m_path, "read");
        return count;
    }

    void writeAll(const char* text, std::size_t size) const
    {
        while (size > 0) {
            const ssize_t count = write(m_descriptor, text, size);
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                refuseFailed(m_path, "written");
            text += count;
            size -= count;
        }
    }

    // Some file systems tell of a failed write only now.
    void finish()
    {
        const int descriptor = m_descriptor;
        m_descriptor = -1;
        if (close(descriptor) != 0)
            refuseFailed(m_path, "written");
    }

private:
    std::string m_path;
    int m_descriptor;
};

// File systems without extended attributes have none to copy.
void copyAttributes(int from, int to, const std::string& path)
{
    std::vector<char> names(XATTR_LIST_MAX);
    const ssize_t length = flistxattr(from, names.data(), names.size());
    if (length < 0 && errno == ENOTSUP)
        return;
    if (length < 0)
        refuseFailed(path, "asked for its attributes");
    std::vector<char> value(XATTR_SIZE_MAX);
    for (const char* name = names.data(); name < names.data() + length; name += strlen(name) + 1) {
        const ssize_t size = fgetxattr(from, name, value.data(), value.size());
        if (size >= 0 && fsetxattr(to, name, value.data(), size, 0) != 0 && errno != ENOTSUP)
            refuseFailed(path, "given its attributes");
    }
}

void copyRights(int from, int to, const std::string& path)
{
    struct stat entry {
    };
    // The mode comes last: a change of owner takes bits away, an access list moves them.
    if (fstat(from, &entry) != 0 || fchown(to, entry.st_uid, entry.st_gid) != 0)
        refuseFailed(path, "given its owner");
    copyAttributes(from, to, path);
    if (fchmod(to, entry.st_mode & 07777U) != 0)
        refuseFailed(path, "given its mode");
}

// O_NONBLOCK: what was put in a file's place may be a pipe that nobody writes to.
constexpr int Reading = O_RDONLY | O_NOFOLLOW | O_NONBLOCK;
constexpr int Writing = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW;
constexpr mode_t RootOnly = 0600;

} // namespace

void refuseFailed(const std::string& path, const char* attempted)
{
    refuse(path + " cannot be " + attempted + ": " + strerror(errno));
}

std::string identityOf(const std::string& path)
{
    struct stat entry {
    };
    if (lstat(path.c_str(), &entry) != 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return {};
        refuseFailed(path, "looked at");
    }
    if (!S_ISREG(entry.st_mode))
        refuse(path + " is not a regular file" + (S_ISLNK(entry.st_mode) ? " but a link" : "") +
               "; put the file itself there");
    // Without the disk's number, which may be another one after the next boot.
    return std::to_string(entry.st_ino) + ":" + std::to_string(entry.st_size) + ":" +
           std::to_string(entry.st_mtim.tv_sec) + "." + std::to_string(entry.st_mtim.tv_nsec);
}

std::size_t copyMap(const std::string& from, const std::string& to)
{
    const Descriptor source(from, Reading);
    Descriptor target(to, Writing, RootOnly);
    std::vector<char> block(std::size_t{128} * 1024);
    char last = '\n';
    std::size_t size = 0;
    while (const std::size_t count = source.readInto(block.data(), block.size())) {
        target.writeAll(block.data(), count);
        last = block[count - 1];
        size += count;
    }
    if (last != '\n') {
        target.writeAll("\n", 1);
        ++size;
    }
    copyRights(source.number(), target.number(), to);
    target.finish();
    return size;
}

void copyRights(const std::string& from, const std::string& to)
{
    const Descriptor source(from, Reading);
    const Descriptor target(to, Reading);
    copyRights(source.number(), target.number(), to);
}

void keepUnder(const std::string& from, const std::string& to)
{
    removeIfThere(to);
    if (link(from.c_str(), to.c_str()) == 0)
        return;
    if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK)
        refuseFailed(to, "made");
    copyMap(from, to);
    syncFile(to);
}

void dateAfter(const std::string& earlier, const std::string& file)
{
    struct stat before {
    };
    struct stat after {
    };
    if (stat(earlier.c_str(), &before) != 0 || stat(file.c_str(), &after) != 0)
        refuseFailed(file, "dated");
    if (after.st_mtim.tv_sec > before.st_mtim.tv_sec)
        return;
    const timespec times[] = {{0, UTIME_OMIT}, {before.st_mtim.tv_sec + 1, 0}};
    if (utimensat(AT_FDCWD, file.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0)
        refuseFailed(file, "dated");
}

void checkChangeable(const std::string& path)
{
    for (const std::string& place : {path, path.substr(0, path.rfind('/'))}) {
        struct statx entry {
        };
        if (statx(AT_FDCWD, place.c_str(), AT_SYMLINK_NOFOLLOW, STATX_TYPE, &entry) != 0) {
            if (errno != ENOENT)
                refuseFailed(place, "looked at");
        } else if ((entry.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0) {
            refuse(place + " may not be changed; allow it with \"chattr -i -a\"");
        }
    }
}

void moveFile(const std::string& from, const std::string& to)
{
    if (rename(from.c_str(), to.c_str()) != 0)
        refuseFailed(to, "replaced");
}

void removeIfThere(const std::string& path)
{
    if (unlink(path.c_str()) != 0 && errno != ENOENT)
        refuseFailed(path, "removed");
}

void writeSynced(const std::string& path, const std::string& text)
{
    Descriptor file(path, Writing, RootOnly);
    file.writeAll(text.data(), text.size());
    if (fsync(file.number()) != 0)
        refuseFailed(path, "synced");
    file.finish();
}

std::string readWhole(const std::string& path)
{
    const Descriptor file(path, Reading);
    std::string text;
    std::array<char, 4096> block{};
    while (const std::size_t count = file.readInto(block.data(), block.size()))
        text.append(block.data(), count);
    return text;
}

std::vector<std::string> entriesOf(const std::string& directory)
{
    std::vector<std::string> paths;
    std::error_code error;
    std::filesystem::directory_iterator entry(directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
        paths.push_back(entry->path());
    if (error && error != std::errc::no_such_file_or_directory)
        refuse(directory + " cannot be read: " + error.message());
    return paths;
}

void syncFile(const std::string& path)
{
    const Descriptor file(path, Reading);
    if (fsync(file.number()) != 0)
        refuseFailed(path, "synced");
}

void syncDirectory(const std::string& path)
{
    const Descriptor directory(path, O_RDONLY | O_DIRECTORY);
    if (fsync(directory.number()) != 0)
        refuseFailed(path, "synced");
}
