#include "system/LargeFilesAndDates.h"

#include "Mending.h"

#include "MapFiles.h"
#include "Paths.h"
#include "Programs.h"
#include "Results.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr int PatienceWithPostfix = 60; // seconds

// The commit will replace the copy by the map as it is now. When the map has lost lines, only the
// copy still has them: it is kept under another name.
void keepLongerCopy(const std::string& map)
{
    const std::string copy = map + ".qvbackup";
    if (countLines(copy) <= countLines(map))
        return;
    const std::string aside = asideNameOf(copy);
    if (link(copy.c_str(), aside.c_str()) != 0 && errno != EEXIST)
        stop(Status::NotWritten, aside + " cannot be made: " + strerror(errno));
}

} // namespace

void Mending::edit(const std::string& map, std::size_t entry, Edit edit)
{
    m_edits[map][entry] = std::move(edit);
}

void Mending::drop(const std::string& map, std::size_t entry)
{
    edit(map, entry, [](std::string_view) { return std::nullopt; });
}

void Mending::call(const std::string& place, std::function<void(Session& session)> call)
{
    m_called.insert(place);
    m_calls.push_back(std::move(call));
}

void Mending::finishBeside()
{
    std::string failed;
    if (const int failure = makeInSpool(m_directories, failed))
        stop(Status::NotWritten,
             failed + " cannot be made or given its owner and mode: " + strerror(failure));
    if (m_reloads) // it fails while Postfix is stopped, which is all right
        outputOf({"postfix", "reload"}, PatienceWithPostfix);
}

void Mending::stage()
{
    std::set<std::string> changed = m_called;
    for (const auto& [map, edits] : m_edits)
        changed.insert(map);
    for (const std::string& map : changed)
        keepLongerCopy(map);

    for (const auto& [map, edits] : m_edits) {
        std::size_t entry = 0;
        const auto rule = [&, &edits = edits](std::string_view line) {
            const auto edit = edits.find(entry++);
            return edit == edits.end() ? std::optional(std::string(line)) : edit->second(line);
        };
        conclude(m_session, m_session.transaction.repairMap(map, rule), {PostfixResult::Updated},
                 map + " could not be mended");
    }
    for (const auto& call : m_calls)
        call(m_session);
}

void giveRights(const std::string& path, const Ownership& owner, mode_t mode)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK |
                                                  O_CLOEXEC); // not waiting for a pipe
    const bool isGiven = descriptor >= 0 && fchown(descriptor, owner.user, owner.group) == 0 &&
                         fchmod(descriptor, mode) == 0;
    const int failure = errno;
    if (descriptor >= 0)
        close(descriptor);
    if (!isGiven)
        refuse(path + " cannot be given its owner and mode: " + strerror(failure));
}

std::string asideNameOf(const std::string& path)
{
    const time_t now = time(nullptr);
    struct tm parts {
    };
    char date[32] = "";
    strftime(date, sizeof date, "%Y%m%d-%H%M%S", localtime_r(&now, &parts));
    return path + ".aside-" + date;
}

void moveAside(const std::string& path, const std::string& aside)
{
    if (isThere(aside))
        refuse(aside + " is there already");
    if (rename(path.c_str(), aside.c_str()) != 0)
        refuse(path + " cannot be renamed to " + aside + ": " + strerror(errno));
}

void buildTable(const std::string& map)
{
    if (outputOf({"postmap", map}, PatienceWithPostfix))
        return;
    removeHalfTable(map);
    if (!outputOf({"postmap", map}, PatienceWithPostfix))
        refuse("postmap cannot build its table; run \"postmap " + map + "\" to see why");
}
