#include "system/LargeFilesAndDates.h"

#include "transaction/StageDirectory.h"

#include "stage/CheckedFiles.h"
#include "system/SpoolTree.h"
#include "transaction/Journal.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr const char* NewDirectories = VSTAGEDIR "/new-directories";
constexpr const char* Aside = VSTAGEDIR "/aside"; // mail that could not yet be removed
constexpr std::chrono::milliseconds Pause(10);

void removeFiles()
{
    for (const char* const directory : {VSTAGEDIR, VLISTSTAGEDIR})
        for (const std::string& path : entriesOf(directory))
            if (path != Aside)
                removeIfThere(path);
    rmdir(VLISTSTAGEDIR); // the other one is the lock, and stays
}

std::vector<std::string> pathsIn(const char* file)
{
    std::vector<std::string> paths;
    std::istringstream lines(identityOf(file).empty() ? std::string() : readWhole(file));
    for (std::string path; std::getline(lines, path);)
        paths.push_back(path);
    return paths;
}

void writePaths(const char* file, const std::vector<std::string>& paths)
{
    std::string text;
    for (const std::string& path : paths)
        text += path + "\n";
    writeSynced(file, text);
    syncDirectory(VSTAGEDIR);
}

void removeAside()
{
    const std::vector<std::string> paths = pathsIn(Aside);
    std::vector<std::string> left;
    for (const std::string& path : paths)
        if (removeFromSpool(path) != 0)
            left.push_back(path);
    if (left.empty())
        removeIfThere(Aside);
    else if (left.size() < paths.size())
        writePaths(Aside, left);
}

void takeBackNewDirectories()
{
    const std::vector<std::string> paths = pathsIn(NewDirectories);
    for (auto path = paths.rbegin(); path != paths.rend(); ++path)
        removeEmptyFromSpool(*path);
}

} // namespace

StageLock::StageLock(int patience)
{
    if (mkdir(VSTAGEDIR, 0700) != 0 && errno != EEXIST)
        refuseFailed(VSTAGEDIR, "made");
    m_directory = open(VSTAGEDIR, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat entry {
    };
    if (m_directory < 0 || fstat(m_directory, &entry) != 0)
        refuseFailed(VSTAGEDIR, "opened");
    if (entry.st_uid != geteuid() || (entry.st_mode & 077U) != 0) {
        close(m_directory);
        refuse(VSTAGEDIR " is not a directory of root alone; remove it");
    }

    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(patience);
    while (!(m_isHeld = flock(m_directory, LOCK_EX | LOCK_NB) == 0) &&
           (patience < 0 || std::chrono::steady_clock::now() < end))
        std::this_thread::sleep_for(Pause);

    struct stat there {
    };
    if (m_isHeld && (lstat(VSTAGEDIR, &there) != 0 || there.st_ino != entry.st_ino ||
                     there.st_dev != entry.st_dev)) {
        close(m_directory);
        refuse(VSTAGEDIR " was removed meanwhile; try again");
    }
}

std::string StageLock::holder() const
{
    struct stat entry {
    };
    std::ifstream locks("/proc/locks");
    if (fstat(m_directory, &entry) != 0)
        return "unknown";
    const std::string inode = ":" + std::to_string(entry.st_ino) + " ";
    // "1: FLOCK  ADVISORY  WRITE 4711 fe:00:123456 0 EOF"
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number, kind, advisory, access, process;
        words >> number >> kind >> advisory >> access >> process;
        if (kind == "FLOCK" && line.find(inode) != std::string::npos)
            return process;
    }
    return "unknown";
}

StageLock::~StageLock()
{
    close(m_directory);
}

void noteNewDirectories(const std::vector<SpoolDirectory>& directories)
{
    std::vector<std::string> paths(directories.size());
    std::transform(directories.begin(), directories.end(), paths.begin(),
                   [](const SpoolDirectory& directory) { return directory.path; });
    writePaths(NewDirectories, paths);
}

void finishEarlier(SqlTransaction* database)
{
    removeAside();
    const std::optional<Journal> journal = readJournal();
    if (!journal)
        return discardStage();
    if (!journal->witness.question.empty() && database == nullptr)
        refuse(VJOURNALFILE
               " is of a change of the database that was interrupted, and this program "
               "uses map files; let one that uses the database finish it first");
    if (!journal->witness.question.empty() && !database->isTrue(journal->witness)) {
        removeJournal();
        return discardStage();
    }
    try {
        journal->checkPlaces();
    } catch (const Refusal& refusal) {
        refuse("an interrupted change cannot be completed: " + refusal.reason +
               ". Compare it with its copy in " VSTAGEDIR ", then remove " VJOURNALFILE);
    }
    clearStage(journal->carryOut().aside);
}

void discardStage()
{
    // First, so that nobody carries it out once a part of what it names is gone.
    if (!identityOf(VJOURNALFILE).empty())
        removeJournal();
    takeBackNewDirectories();
    removeFiles();
}

void clearStage(const std::vector<std::string>& aside)
{
    if (!aside.empty()) {
        std::vector<std::string> all = pathsIn(Aside);
        all.insert(all.end(), aside.begin(), aside.end());
        writePaths(Aside, all);
    }
    removeIfThere(NewDirectories);
    syncDirectory(VSTAGEDIR);
    removeJournal();
    removeFiles();
}
