#include "system/LargeFilesAndDates.h"

#include "transaction/Commit.h"

#include "maps/MapWriter.h"
#include "stage/CheckedFiles.h"
#include "system/Shell.h"
#include "system/SpoolTree.h"
#include "system/SystemAccounts.h"
#include "transaction/Changes.h"
#include "transaction/StageDirectory.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace
{

// A map that is to be published, and how.
struct Publication {
    StagedMap* staged;
    std::vector<std::string> gone; // the entries that it loses, as lines
    bool gains;                    // entries, or changes some
};

std::vector<Publication> publicationsOf(Stage& stage)
{
    std::vector<Publication> publications;
    for (StagedMap& staged : stage.maps()) {
        const std::vector<LineChange> changes = changesOf(staged);
        if (changes.empty() && !staged.isRepaired)
            continue;
        checkChanges(staged, changes);
        // A repaired map without another entry is published all the same: its last line is ended
        // now.
        Publication publication{&staged, {}, changes.empty()};
        for (const LineChange& change : changes)
            if (change.after.empty())
                publication.gone.push_back(change.before);
            else
                publication.gains = true;
        publications.push_back(std::move(publication));
    }
    return publications;
}

// ---- Tables ----

// The files that postmap made beside a staged file: one or more, named after it, depending on the
// type of the lookup table.
std::vector<std::string> tableEndings(const StagedMap& staged, const std::string& file)
{
    std::vector<std::string> endings;
    for (const std::string& path : entriesOf(staged.directory))
        if (path.compare(0, file.size() + 1, file + ".") == 0)
            endings.push_back(path.substr(file.size()));
    return endings;
}

std::string firstLineOf(const std::string& path)
{
    const std::string text = readWhole(path);
    return text.substr(0, text.find('\n'));
}

std::vector<std::string> buildTable(const StagedMap& staged, const std::string& file)
{
    constexpr const char* Complaints = VSTAGEDIR "/complaints";
    writeSynced(Complaints, "");
    if (!runInShell("postmap " + file + " 2> " + Complaints))
        refuse("postmap cannot build the table of " + std::string(staged.map) + ": " +
               firstLineOf(Complaints));
    std::vector<std::string> endings = tableEndings(staged, file);
    if (endings.empty())
        refuse("postmap built no table of " + std::string(staged.map));
    for (const std::string& ending : endings) {
        // postmap itself would have written to the old table, and so kept its rights.
        if (!identityOf(staged.map + ending).empty())
            copyRights(staged.map + ending, file + ending);
        syncFile(file + ending);
    }
    return endings;
}

// ---- The way into the public ----

// Adds the moves that put the file in its map's place, where an earlier state of it stands. The
// lookup table comes first: Postfix warns of a table that is older than its map.
void addMoves(Journal& journal, const StagedMap& staged, const std::string& earlier,
              const std::string& file, const std::vector<std::string>& expected)
{
    if (staged.isTable)
        for (const std::string& ending : buildTable(staged, file))
            journal.moves.push_back({file + ending, staged.map + ending, {}});
    else
        dateAfter(earlier, file);
    syncFile(file);
    journal.moves.push_back({file, staged.map, expected});
}

std::string makeUnion(const Publication& publication)
{
    std::string both = publication.staged->at("both-");
    copyMap(publication.staged->copy(), both);
    MapWriter file(both, Appended);
    for (const std::string& line : publication.gone)
        file.writeLine(line);
    if (!file.close())
        refuseFailed(both, "written");
    return both;
}

void addMaps(Journal& journal, const std::vector<Publication>& publications)
{
    std::vector<std::string> unions;
    for (const Publication& publication : publications) {
        const StagedMap& staged = *publication.staged;
        keepUnder(staged.map, staged.at("former-"));
        journal.moves.push_back({staged.at("former-"), staged.map + std::string(Backup), {}});

        const bool isBoth = publication.gains && !publication.gone.empty();
        unions.push_back(isBoth ? makeUnion(publication) : "");
        if (publication.gains)
            addMoves(journal, staged, staged.map, isBoth ? unions.back() : staged.copy(),
                     {staged.former});
    }
    for (std::size_t i = publications.size(); i-- > 0;) {
        const StagedMap& staged = *publications[i].staged;
        if (publications[i].gone.empty())
            continue;
        if (unions[i].empty())
            addMoves(journal, staged, staged.map, staged.copy(), {staged.former});
        else
            addMoves(journal, staged, unions[i], staged.copy(),
                     {staged.former, identityOf(unions[i])});
    }
    for (const Publication& publication : publications)
        syncDirectory(publication.staged->directory);
}

// ---- The spool ----

// The identity of what is there; empty when there is nothing.
std::string foundAt(const std::string& path)
{
    std::string identity;
    if (const int failure = identityInSpool(path, identity))
        refuse(path + " cannot be looked at: " + strerror(failure));
    return identity;
}

void addRemovals(Journal& journal, const Stage& stage)
{
    for (const std::string& path : stage.pathsToRemove()) {
        const std::string identity = foundAt(path);
        if (identity.empty())
            continue;
        if (access(path.substr(0, path.rfind('/')).c_str(), W_OK) != 0)
            refuseFailed(path, "removed");
        checkChangeable(path);
        journal.removals.push_back({path, identity});
    }
}

// New directories are made now, while the commit can still be refused. Those that are there already
// get their owner and mode afterwards; those in a place that is cleared first are made afterwards.
void makeDirectories(Journal& journal, const Stage& stage)
{
    if (stage.directoriesToMake().empty())
        return;
    const std::optional<Ownership> owner = ownershipOf(MailOwner, MailReaders);
    if (!owner)
        refuse("the system account \"qvadmin\" or \"mail\" is missing");

    std::vector<OwnedDirectory> newOnes;
    for (const SpoolDirectory& directory : stage.directoriesToMake()) {
        const bool isLater = stage.isToBeRemoved(directory.path) || isInSpool(directory.path);
        (isLater ? journal.directories : newOnes)
            .push_back({directory.path, directory.mode, *owner});
    }
    noteNewDirectories(newOnes);
    std::string failed;
    if (const int failure = makeInSpool(newOnes, failed))
        refuse(failed + " cannot be made: " + strerror(failure));
}

} // namespace

Journal prepareCommit(Stage& stage)
{
    if (!stage.failure().empty())
        refuse(stage.failure(), stage.failureMayPass());

    Journal journal;
    const std::vector<Publication> publications = publicationsOf(stage);
    addMaps(journal, publications);
    addRemovals(journal, stage);
    makeDirectories(journal, stage);
    if (stage.database)
        journal.witness = stage.database->witness();
    const bool isChanged = !publications.empty() || !journal.witness.question.empty();
    journal.reloads = stage.wantsReload() && isChanged;
    journal.checkPlaces();
    return journal;
}
