#include "system/LargeFilesAndDates.h"

#include "stage/Stage.h"
#include "transaction/Journal.h"

#include "maps/MapLines.h"
#include "stage/CheckedFiles.h"
#include "system/Shell.h"
#include "system/SpoolTree.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>

#include <sys/stat.h>

namespace
{

constexpr const char* Unwritten = VSTAGEDIR "/new-journal";
constexpr const char* FirstLine = "journal of a mail administration, format 1";
constexpr const char* LastLine = "end";

// The fields of a line, separated by tabs. No path or question holds one.
std::vector<std::string> fieldsOf(const std::string& line)
{
    std::vector<std::string> fields;
    std::istringstream stream(line);
    for (std::string field; std::getline(stream, field, '\t');)
        fields.push_back(field);
    return fields;
}

std::string textOf(const Journal& journal)
{
    std::ostringstream text;
    text << FirstLine << "\n";
    if (!journal.witness.question.empty())
        text << "witness\t" << journal.witness.question << "\t" << journal.witness.answer << "\t"
             << journal.witness.database << "\n";
    for (const Journal::Move& move : journal.moves) {
        text << "move\t" << move.from << "\t" << move.to;
        for (const std::string& identity : move.expected)
            text << "\t" << identity;
        text << "\n";
    }
    if (journal.reloads)
        text << "reload\n";
    for (const Journal::Removal& removal : journal.removals)
        text << "remove\t" << removal.path << "\t" << removal.identity << "\n";
    for (const OwnedDirectory& directory : journal.directories)
        text << "directory\t" << directory.path << "\t" << directory.mode << "\t"
             << directory.owner.user << "\t" << directory.owner.group << "\n";
    text << LastLine << "\n";
    return text.str();
}

bool takeLine(Journal& journal, const std::string& line)
{
    const std::vector<std::string> fields = fieldsOf(line);
    const std::string kind = fields.empty() ? "" : fields[0];
    const auto number = [&](std::size_t i) { return std::strtoul(fields[i].c_str(), nullptr, 10); };
    if (kind == "witness" && fields.size() == 4)
        journal.witness = {fields[1], fields[2], fields[3]};
    else if (kind == "move" && fields.size() >= 3)
        journal.moves.push_back({fields[1], fields[2], {fields.begin() + 3, fields.end()}});
    else if (kind == "reload")
        journal.reloads = true;
    else if (kind == "remove" && fields.size() == 3)
        journal.removals.push_back({fields[1], fields[2]});
    else if (kind == "directory" && fields.size() == 5)
        journal.directories.push_back(
            {fields[1],
             static_cast<mode_t>(number(2)),
             {static_cast<uid_t>(number(3)), static_cast<gid_t>(number(4))}});
    else
        return false;
    return true;
}

} // namespace

bool Journal::hasSteps() const
{
    return !moves.empty() || reloads || !removals.empty() || !directories.empty();
}

void Journal::write() const
{
    writeSynced(Unwritten, textOf(*this));
    moveFile(Unwritten, VJOURNALFILE);
    try {
        syncDirectory(VSTAGEDIR);
    } catch (const Refusal&) {
        removeIfThere(VJOURNALFILE);
        throw;
    }
}

void Journal::checkPlaces() const
{
    for (const Move& move : moves) {
        if (identityOf(move.from).empty())
            continue;
        checkChangeable(move.to);
        const std::string found = identityOf(move.to);
        if (!move.expected.empty() && !found.empty() &&
            std::find(move.expected.begin(), move.expected.end(), found) == move.expected.end())
            refuse(move.to + " was changed meanwhile by a program that does without transactions");
    }
}

bool Journal::isUntouched() const
{
    return witness.question.empty() &&
           std::none_of(moves.begin(), moves.end(),
                        [](const Move& move) { return identityOf(move.from).empty(); });
}

// Mail is first moved aside, then removed: what cannot be removed at once then belongs to nobody,
// even when the mailbox or domain is made anew.
void removeMail(const std::vector<Journal::Removal>& removals, Journal::Rest& rest)
{
    std::vector<int> failures;
    for (const Journal::Removal& removal : removals) {
        std::string found;
        int failure = identityInSpool(removal.path, found);
        if (failure == 0 && found == removal.identity)
            failure = moveAsideInSpool(removal.path);
        failures.push_back(failure);
    }
    for (std::size_t i = 0; i < removals.size(); ++i) {
        const std::string& path = removals[i].path;
        if (failures[i] == 0)
            failures[i] = removeFromSpool(asideOf(path));
        else if (failures[i] == EBUSY) // something is mounted there
            failures[i] = removeFromSpool(path);
        if (failures[i] == 0)
            continue;
        rest.spool =
            path + " cannot be removed: " + strerror(failures[i]) + "; the next change tries again";
        rest.removals.push_back(removals[i]);
    }
}

std::string ownerOf(const std::string& path)
{
    std::string name = path.substr(path.rfind('/') + 1);
    if (contains(name, "@"))
        return name;
    return std::string(
        textBefore(std::string_view(path).substr(std::string_view(VSPOOLDIR "/").size()), '/'));
}

Journal::Rest Journal::carryOut(const PathTest& isTaken) const
{
    bool hasList = false;
    for (const Move& move : moves) {
        if (!identityOf(move.from).empty())
            moveFile(move.from, move.to);
        hasList = hasList || move.to == VDOMAINFILE;
    }
    if (!moves.empty()) {
        chmod(VMAPDIR, 0755); // the mail server reaches the maps, whatever was done to it
        syncDirectory(VMAPDIR);
        if (hasList)
            syncDirectory("/etc");
    }
    Rest rest;
    if (reloads && !runInShell("postfix reload"))
        rest.reload = "\"postfix reload\" failed; run it once the mail server is started";

    std::set<std::string> remade;
    for (const OwnedDirectory& directory : directories)
        remade.insert(ownerOf(directory.path));
    std::vector<Removal> due = removals;
    const auto stays = [&](const Removal& removal) {
        return remade.count(ownerOf(removal.path)) == 0 && isTaken(removal.path);
    };
    due.erase(std::remove_if(due.begin(), due.end(), stays), due.end());
    removeMail(due, rest);

    std::string failed;
    if (const int failure = makeInSpool(directories, failed))
        rest.spool = failed + " cannot be made: " + strerror(failure);
    return rest;
}

std::optional<Journal> readJournal()
{
    if (identityOf(VJOURNALFILE).empty())
        return std::nullopt;
    Journal journal;
    std::istringstream lines(readWhole(VJOURNALFILE));
    std::string line;
    bool isGood = std::getline(lines, line) && line == FirstLine;
    while (isGood && std::getline(lines, line) && line != LastLine)
        isGood = takeLine(journal, line);
    if (!isGood || line != LastLine)
        refuse(VJOURNALFILE
               " cannot be understood; was it written by another release? Let that one "
               "finish it, or remove it to give the change up");
    return journal;
}

void removeJournal()
{
    removeIfThere(VJOURNALFILE);
    syncDirectory(VSTAGEDIR);
}
