#include "PostfixTransaction.h"

#include "Backend.h"
#include "maps/MapLines.h"
#include "maps/MapRewrite.h"
#include "stage/SqlTransaction.h"
#include "stage/Stage.h"
#include "system/Refusal.h"
#include "system/SpoolTree.h"
#include "transaction/Changes.h"
#include "transaction/Commit.h"
#include "transaction/PasswordHashes.h"
#include "transaction/StageDirectory.h"

#include <exception>
#include <map>

#include <unistd.h>

// Everything that an open transaction holds. It is released from the last member to the first.
struct PostfixTransaction::State {
    State(const PostfixManager& manager, const TimeLimits& limits, int patience)
        : settings{manager.m_mailSqlUser,     manager.m_mailSqlUserPassword,
                   manager.m_mailSqlServerIP, manager.m_mailSqlServerPort,
                   manager.m_mailSqlDatabase, limits},
          lock(patience)
    {
    }

    SqlSettings settings;
    pid_t process = getpid();
    StageLock lock;
    std::unique_ptr<Stage> stage;
};

namespace
{

using Change = PostfixTransaction::Change;

constexpr const char* NotOpen = "no transaction is open";

void addMapChanges(std::vector<Change>& all, Stage& stage)
{
    for (const StagedMap& staged : stage.maps())
        for (const LineChange& change : changesOf(staged)) {
            const Change::Kind kind = change.before.empty()  ? Change::Added
                                      : change.after.empty() ? Change::Removed
                                                             : Change::Changed;
            const std::string& line = kind == Change::Added ? change.after : change.before;
            all.push_back({staged.map, kind, std::string(wholeName(line))});
        }
}

// A mailbox's alias for itself keeps a catch-all from taking its mail. It is no forwarder, and map
// files have none: no host wants to hear of it.
bool isSelfRow(const std::string& table, const Row& row)
{
    return table == "virtual_aliases" && row.at(0) == row.at(1);
}

// A removed and an added row of the same name are told as one change.
void addTableChanges(std::vector<Change>& all, const Stage& stage)
{
    if (!stage.database)
        return;
    std::map<std::pair<std::string, std::string>, std::size_t> removed;
    for (const RowChange& change : stage.database->changes()) {
        const bool isNew = change.before.empty();
        const Row& row = isNew ? change.after : change.before;
        if (isSelfRow(change.table, row))
            continue;
        const std::string& name = row.at(0);
        const auto partner = removed.find({change.table, name});
        if (isNew && partner != removed.end()) {
            all[partner->second].kind = Change::Changed;
            removed.erase(partner);
            continue;
        }
        if (!isNew)
            removed[{change.table, name}] = all.size();
        all.push_back({change.table, isNew ? Change::Added : Change::Removed, name});
    }
}

void addSpoolChanges(std::vector<Change>& all, const Stage& stage)
{
    for (const std::string& path : stage.pathsToRemove())
        if (isInSpool(path))
            all.push_back({VSPOOLDIR, Change::Removed, path});
    for (const SpoolDirectory& directory : stage.directoriesToMake())
        if (!isInSpool(directory.path) || stage.isToBeRemoved(directory.path))
            all.push_back({VSPOOLDIR, Change::Added, directory.path});
}

// Commits in the database. When that fails, or the answer does not arrive, asks over another
// connection what became of it. False when that cannot be asked; the stage's failure says why.
bool commitInDatabase(Stage& stage, const SqlSettings& settings, const Witness& witness)
{
    try {
        stage.database->commit();
        return true;
    } catch (const Refusal& refusal) {
        stage.fail(refusal);
    }
    stage.database.reset();
    bool isTaken = false;
    try {
        isTaken = askPatiently([&] { return SqlTransaction(settings).isTrue(witness); });
    } catch (const Refusal&) {
        return false;
    }
    if (!isTaken)
        refuse(stage.failure(), stage.failureMayPass());
    return true;
}

// Runs a step. Returns why it could not be done; a refusal without a reason when it was done.
template <class Step> Refusal faultOf(const Step& step)
{
    try {
        step();
        return {};
    } catch (const Refusal& refusal) {
        return refusal;
    } catch (const std::exception& error) { // no memory
        return {error.what()};
    }
}

// Makes the commit refuse for the fault, if it is one. Returns its reason.
std::string keep(Stage& stage, const Refusal& fault)
{
    if (!fault.reason.empty())
        stage.fail(fault);
    return fault.reason;
}

void stageRepair(Stage& stage, const std::string& map, const PostfixTransaction::LineRepair& rule)
{
    constexpr MapVariant Repairer = {nullptr,        nullptr,       nullptr,        Emptied,
                                     OwnerAsCreated, ModeAsCreated, PublishNothing, FailsWithout};
    StagedMap* const staged = stage.find(map);
    if (staged == nullptr)
        return; // with a failure
    rewriteMap(Repairer, map, [&](std::string_view line, MapWriter& newMap) {
        if (const std::optional<std::string> kept = rule(line))
            newMap.writeLine(*kept);
    });
    staged->isRepaired = true;
    stage.wantReload();
}

} // namespace

PostfixTransaction::PostfixTransaction(PostfixManager& manager) : m_manager(manager) {}

PostfixTransaction::~PostfixTransaction()
{
    drop();
}

PostfixTransaction::Outcome PostfixTransaction::open(int patience)
{
    Outcome outcome = Refused;
    const Refusal fault = faultOf([&] {
        if (openStage() != nullptr)
            refuse("this program has a transaction open already");
        auto state = std::make_unique<State>(
            m_manager, TimeLimits{m_connectSeconds, m_answerSeconds}, patience);
        if (!state->lock.isHeld()) {
            outcome = Busy;
            refuse("another change is at work (process " + state->lock.holder() + ")");
        }
        std::unique_ptr<SqlTransaction> database;
        if (usesSql(m_manager)) {
            database = std::make_unique<SqlTransaction>(state->settings);
            database->checkEngines();
        }
        finishEarlier(database.get());
        if (database != nullptr)
            database->rollBack(); // what the transaction sees begins now
        state->stage = std::make_unique<Stage>(database == nullptr);
        state->stage->database = std::move(database);
        m_state = std::move(state);
        outcome = Done;
    });
    m_reason = fault.reason;
    m_mayPass = fault.mayPass;
    return outcome;
}

bool PostfixTransaction::isOpen() const
{
    return m_state != nullptr;
}

std::string PostfixTransaction::failure() const
{
    return isOpen() ? m_state->stage->failure() : std::string();
}

std::vector<PostfixTransaction::Change> PostfixTransaction::changes()
{
    std::vector<Change> all;
    if (!isOpen())
        return all;
    const Refusal fault = faultOf([&] {
        addMapChanges(all, *m_state->stage);
        addTableChanges(all, *m_state->stage);
        addSpoolChanges(all, *m_state->stage);
    });
    if (fault.reason.empty())
        return all;
    m_state->stage->fail(fault);
    return {};
}

int PostfixTransaction::createMailboxWithHash(SvpopUser* vpopUserData, const std::string& domain,
                                              const std::string& user, const std::string& quota)
{
    m_reason = NotOpen;
    if (!isOpen())
        return PostfixResult::MailboxNotCreated;
    Stage& stage = *m_state->stage;
    int code = PostfixResult::MailboxNotCreated;
    const Refusal fault = faultOf([&] {
        checkHash(user + "@" + domain, vpopUserData->Shadow->sp_pwdp);
        stage.passwordsAreHashed = true;
        code = m_manager.Postfix_CreateMailbox(vpopUserData, domain, user, quota);
    });
    stage.passwordsAreHashed = false;
    m_reason = keep(stage, fault);
    return code;
}

int PostfixTransaction::storePasswordHashes(
    const std::vector<std::pair<std::string, std::string>>& hashes)
{
    m_reason = NotOpen;
    if (!isOpen())
        return PostfixResult::Failed;
    Stage& stage = *m_state->stage;
    m_reason = keep(stage, faultOf([&] { stagePasswordHashes(stage, hashes); }));
    return failure().empty() ? PostfixResult::Updated : PostfixResult::Failed;
}

int PostfixTransaction::repairMap(const std::string& map, const LineRepair& rule)
{
    m_reason = NotOpen;
    if (!isOpen())
        return PostfixResult::Failed;
    Stage& stage = *m_state->stage;
    m_reason = keep(stage, faultOf([&] { stageRepair(stage, map, rule); }));
    return failure().empty() ? PostfixResult::Updated : PostfixResult::Failed;
}

PostfixTransaction::Outcome PostfixTransaction::commit()
{
    m_reason = NotOpen;
    if (!isOpen())
        return Refused;

    Stage& stage = *m_state->stage;
    Journal journal;
    bool isKnown = true;
    const Refusal refusal = faultOf([&] {
        if (!m_state->lock.isInPlace())
            refuse(VSTAGEDIR " was removed meanwhile");
        journal = prepareCommit(stage);
        if (journal.hasSteps() || stage.makesDirectories())
            journal.write();
        journal.checkPlaces(); // again: to write the journal took a while
        if (stage.database)
            isKnown = commitInDatabase(stage, m_state->settings, journal.witness);
    });
    m_reason = refusal.reason;
    m_mayPass = refusal.mayPass;
    if (!m_reason.empty()) {
        drop();
        return Refused;
    }
    if (!isKnown) {
        m_reason = "it is not known whether the database took the change: " + stage.failure();
        m_state.reset();
        return Unfinished;
    }

    // From here on the change will be carried out, if not by this process then by the next one.
    Journal::Rest rest;
    m_reason = faultOf([&] {
                   rest = journal.carryOut([](const std::string&) { return false; });
                   clearStage(rest.removals);
               }).reason;
    m_state.reset();
    if (!m_reason.empty()) {
        m_reason += "; the next change will complete this one first";
        return Unfinished;
    }
    m_reason = rest.spool.empty() ? rest.reload : rest.spool;
    return rest.spool.empty() ? Done : Unfinished;
}

void PostfixTransaction::drop()
{
    if (!isOpen())
        return;
    if (m_state->process != getpid()) {
        // A child that a host has forked: the transaction is its parent's, the connection too.
        [[maybe_unused]] State* const parents = m_state.release();
        return;
    }
    std::unique_ptr<SqlTransaction>& database = m_state->stage->database;
    const bool isAnswering =
        database != nullptr && faultOf([&] { database->rollBack(); }).reason.empty();
    // What cannot be discarded now is discarded by the next transaction.
    faultOf([&] { discardStage(isAnswering ? database.get() : nullptr); });
    m_state.reset();
}

const std::string& PostfixTransaction::reason() const
{
    return m_reason;
}

bool PostfixTransaction::mayPass() const
{
    return isOpen() ? m_state->stage->failureMayPass() : m_mayPass;
}

void PostfixTransaction::limitWaiting(unsigned connectSeconds, unsigned answerSeconds)
{
    m_connectSeconds = connectSeconds;
    m_answerSeconds = answerSeconds;
}
