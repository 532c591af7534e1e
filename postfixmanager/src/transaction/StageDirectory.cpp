#include "system/LargeFilesAndDates.h"

#include "transaction/StageDirectory.h"

#include "maps/LineReader.h"
#include "maps/MapLines.h"
#include "stage/CheckedFiles.h"
#include "system/SpoolTree.h"

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
constexpr const char* Unremoved = VSTAGEDIR "/unremoved"; // mail that could not yet be removed
constexpr std::chrono::milliseconds Pause(10);

void removeFiles()
{
    for (const char* const directory : {VSTAGEDIR, VLISTSTAGEDIR})
        for (const std::string& path : entriesOf(directory))
            if (path != Unremoved)
                removeIfThere(path);
    rmdir(VLISTSTAGEDIR); // the other one is the lock, and stays
}

std::vector<std::string> linesIn(const char* file)
{
    std::vector<std::string> lines;
    std::istringstream text(identityOf(file).empty() ? std::string() : readWhole(file));
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

void writeLines(const char* file, const std::vector<std::string>& lines)
{
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    writeSynced(file, text);
    syncDirectory(VSTAGEDIR);
}

bool hasName(const char* map, const std::string& name)
{
    LineReader reader(map, name);
    std::string_view line;
    while (reader.nextLine(line))
        if (wholeName(line) == name)
            return true;
    return reader.error() != 0; // it may be in the part that could not be read
}

// Whether the mailbox or domain of a spool path exists now.
bool isListed(const std::string& path, SqlTransaction* database)
{
    const std::string name = ownerOf(path);
    const bool isMailbox = contains(name, "@");
    if (database == nullptr)
        return hasName(isMailbox ? VPASSWDFILE : VDOMAINFILE, name);
    return isMailbox ? database->holds("virtual_users", "email", name)
                     : database->holds("virtual_domains", "name", name);
}

void noteUnremoved(const std::vector<Journal::Removal>& left)
{
    std::vector<std::string> lines(left.size());
    std::transform(left.begin(), left.end(), lines.begin(), [](const Journal::Removal& removal) {
        return removal.path + "\t" + removal.identity;
    });
    writeLines(Unremoved, lines);
}

std::vector<Journal::Removal> unremoved()
{
    std::vector<Journal::Removal> removals;
    for (const std::string& line : linesIn(Unremoved))
        removals.push_back(
            {std::string(textBefore(line, '\t')), std::string(textAfter(line, '\t'))});
    return removals;
}

void removeUnremoved(SqlTransaction* database)
{
    std::vector<Journal::Removal> due;
    for (const Journal::Removal& removal : unremoved())
        if (!isListed(removal.path, database))
            due.push_back(removal);
    Journal::Rest rest;
    removeMail(due, rest);
    if (rest.removals.empty())
        removeIfThere(Unremoved);
    else
        noteUnremoved(rest.removals);
}

void takeBackNewDirectories(SqlTransaction* database)
{
    const std::vector<std::string> paths = linesIn(NewDirectories);
    for (auto path = paths.rbegin(); path != paths.rend(); ++path)
        if (!isListed(*path, database))
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

    if (m_isHeld && !isInPlace()) {
        close(m_directory);
        refuse(VSTAGEDIR " was removed meanwhile; try again");
    }
}

bool StageLock::isInPlace() const
{
    struct stat mine {
    };
    struct stat there {
    };
    return fstat(m_directory, &mine) == 0 && lstat(VSTAGEDIR, &there) == 0 &&
           mine.st_ino == there.st_ino && mine.st_dev == there.st_dev;
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

void noteNewDirectories(const std::vector<OwnedDirectory>& directories)
{
    std::vector<std::string> paths(directories.size());
    std::transform(directories.begin(), directories.end(), paths.begin(),
                   [](const OwnedDirectory& directory) { return directory.path; });
    writeLines(NewDirectories, paths);
}

void finishEarlier(SqlTransaction* database)
{
    removeUnremoved(database);
    const std::optional<Journal> journal = readJournal();
    if (!journal)
        return discardStage(database);
    const bool asksDatabase = !journal->witness.question.empty();
    if (asksDatabase && database == nullptr)
        refuse(VJOURNALFILE
               " is of a change of the database that was interrupted, and this program "
               "uses map files; let one that uses the database finish it first");
    if (asksDatabase && !database->isTrue(journal->witness))
        return discardStage(database);
    try {
        journal->checkPlaces();
    } catch (const Refusal& refusal) {
        if (journal->isUntouched())
            return discardStage(database);
        refuse("an interrupted change cannot be completed: " + refusal.reason +
               ". Compare it with its copy in " VSTAGEDIR ", then remove " VJOURNALFILE);
    }
    const auto isTaken = [&](const std::string& path) { return isListed(path, database); };
    clearStage(journal->carryOut(isTaken).removals);
}

void discardStage(SqlTransaction* database)
{
    // The journal goes first: nobody must carry it out once a part of what it names is gone.
    if (!identityOf(VJOURNALFILE).empty())
        removeJournal();
    takeBackNewDirectories(database);
    removeFiles();
}

void clearStage(const std::vector<Journal::Removal>& left)
{
    if (!left.empty()) {
        std::vector<Journal::Removal> all = unremoved();
        all.insert(all.end(), left.begin(), left.end());
        noteUnremoved(all);
    }
    removeIfThere(NewDirectories);
    syncDirectory(VSTAGEDIR);
    removeJournal();
    removeFiles();
}
