#include "system/LargeFilesAndDates.h"

#include "init/Files.h"

#include "Output.h"
#include "Programs.h"
#include "Results.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

[[noreturn]] void stopAt(const std::string& path, const char* attempted)
{
    stop(Status::NotWritten, path + " could not be " + attempted + ": " + strerror(errno));
}

gid_t numberOf(const char* group)
{
    const struct group* const found = group == nullptr ? nullptr : getgrnam(group);
    if (group != nullptr && found == nullptr)
        stop(Status::NotFit, "there is no group " + std::string(group) + " on this system");
    return found == nullptr ? 0 : found->gr_gid;
}

void syncDirectoryOf(const std::string& path)
{
    const int directory =
        open(path.substr(0, path.rfind('/') + 1).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        fsync(directory);
        close(directory);
    }
}

constexpr const char* Beside = ".qvmailctl-new";

// Writes the text under a name beside the path; what an interrupted init left there is replaced.
std::string writeBeside(const std::string& path, const std::string& text, Readers readers)
{
    std::string beside = path + Beside;
    const gid_t group = numberOf(readers.group);
    unlink(beside.c_str());
    const int file = open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          S_IRUSR | S_IWUSR);
    if (file < 0)
        stopAt(path, "made");
    const bool isWritten = writeAll(file, text) && fchown(file, 0, group) == 0 &&
                           fchmod(file, readers.mode) == 0 && fsync(file) == 0;
    const int reason = errno;
    close(file);
    if (!isWritten) {
        unlink(beside.c_str());
        errno = reason;
        stopAt(path, "written");
    }
    return beside;
}

std::string now()
{
    const std::time_t time = std::time(nullptr);
    std::tm local{};
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d-%H%M%S", localtime_r(&time, &local));
    return text;
}

} // namespace

bool isFile(const std::string& path)
{
    struct stat found = {};
    if (lstat(path.c_str(), &found) != 0) {
        if (errno != ENOENT && errno != ENOTDIR)
            stop(Status::NotFit, path + " cannot be looked at: " + strerror(errno));
        return false;
    }
    if (!S_ISREG(found.st_mode))
        stop(Status::NotFit, path + (S_ISLNK(found.st_mode) ? " is a link" : " is no plain file") +
                                 ", and a plain file belongs there; move it away");
    return true;
}

void makeFile(Setup& setup, const std::string& path, const std::string& text, Readers readers)
{
    if (isFile(path)) {
        if (!setup.dryRun)
            unlink((path + Beside).c_str()); // left by an interrupted init
        return setup.kept.push_back(path);
    }
    if (!setup.dryRun) {
        // link() replaces nothing, not even a file that the panel has made meanwhile.
        const std::string beside = writeBeside(path, text, readers);
        const bool isPlaced = link(beside.c_str(), path.c_str()) == 0;
        const int reason = errno;
        unlink(beside.c_str());
        errno = reason;
        if (!isPlaced)
            stopAt(path, "made");
        syncDirectoryOf(path);
    }
    setup.made.push_back(path);
}

void makeDirectory(Setup& setup, const std::string& path, Readers readers)
{
    struct stat found = {};
    if (stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode)) // it may lie on another disk
        return setup.kept.push_back(path);
    const group* const passing = readers.group == nullptr ? nullptr : getgrnam(readers.group);
    const gid_t owner = passing == nullptr ? 0 : passing->gr_gid;
    // It appears with its mode: what is there is kept, also by the init after one that was interrupted.
    const std::string beside = path + Beside;
    if (!setup.dryRun) {
        rmdir(beside.c_str());
        if (mkdir(beside.c_str(), S_IRWXU) != 0 || chown(beside.c_str(), 0, owner) != 0 ||
            chmod(beside.c_str(), readers.mode) != 0 || rename(beside.c_str(), path.c_str()) != 0)
            stopAt(path, "made");
        syncDirectoryOf(path);
    }
    setup.made.push_back(path);
}

void replaceFile(Setup& setup, const std::string& path, const std::string& text, Readers readers)
{
    const std::string former = path + ".before-qvmailctl-" + now();
    if (!setup.dryRun) {
        const std::string beside = writeBeside(path, text, readers);
        if (link(path.c_str(), former.c_str()) != 0)
            stopAt(former, "made");
        if (rename(beside.c_str(), path.c_str()) != 0)
            stopAt(path, "replaced");
        syncDirectoryOf(path);
    }
    setup.made.push_back(former);
    setup.changed.push_back(path);
}

std::string textOfFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    if (!file)
        stop(Status::NotFit, path + " cannot be read");
    return text;
}

std::string withValue(const std::string& text, const std::string& name, const std::string& value)
{
    std::string result;
    for (const std::string& line : linesOf(text))
        result += (line.rfind(name, 0) == 0 ? name + value : line) + "\n";
    return result;
}

std::string valueIn(const std::string& text, const std::string& name)
{
    for (const std::string& line : linesOf(text))
        if (line.rfind(name, 0) == 0)
            return line.substr(name.size());
    return "";
}

std::string withReplaced(std::string text, const std::string& from, const std::string& to)
{
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}
