// check [--repair]
#include "system/LargeFilesAndDates.h"

#include "Commands.h"
#include "Paths.h"
#include "Results.h"
#include "check/Areas.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace
{

// Keeps changes out while it lives, so that none is seen half made. When the directory of the lock
// does not exist, no change was ever made.
class Pause
{
public:
    Pause() : m_directory(open(VSTAGEDIR, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
    ~Pause()
    {
        if (m_directory >= 0)
            close(m_directory);
    }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

    // False while a change is at work.
    bool begin() const { return m_directory < 0 || flock(m_directory, LOCK_SH | LOCK_NB) == 0; }

    // Waits for the change to end. Ends the command when that takes too long.
    void wait(int patience) const
    {
        using Clock = std::chrono::steady_clock;
        const Clock::time_point end = Clock::now() + std::chrono::seconds(patience);
        while (!begin()) {
            if (Clock::now() >= end)
                stop(Status::Busy, "a change is at work; try again when it has ended");
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }

private:
    int m_directory;
};

// ---- Looking ----

Findings look(const Session& session)
{
    Findings findings;
    const MailServers servers = readServers();
    checkAccounts(servers, findings);
    checkLock(findings);
    checkDirectories(servers, findings);
    checkSecrets(session.settings, servers, findings);

    const bool isReadable = session.settings.usesSql ? checkSchema(session.settings, findings)
                                                     : checkMaps(servers, findings);
    Hosting hosting;
    if (isReadable) {
        hosting = session.read(everything());
        checkNames(session.settings, hosting, findings);
        if (session.settings.usesSql)
            checkRows(session.settings, hosting, findings);
        else
            checkEntries(session.settings, hosting, findings);
        checkSpool(hosting, findings);
    }
    if (!session.settings.usesSql)
        checkLookupTables(servers, findings);
    checkServers(session.settings, servers, hosting, findings);
    return findings;
}

Findings lookAtLock(const Session& session)
{
    const Pause pause;
    pause.wait(session.options.wait); // the files of a change at work are no finding
    Findings findings;
    checkLock(findings);
    return findings;
}

bool areSame(const Finding& a, const Finding& b)
{
    return std::string_view(a.kind) == b.kind && a.place == b.place && a.name == b.name;
}

// Does not wait for changes. A change at work may leave something half made for a moment, which is
// no finding: what is found is looked at again, with changes kept out or a moment later.
Findings lookTwice(const Session& session)
{
    Findings first = look(session);
    if (first.empty())
        return first;
    const Pause pause;
    const bool isCalm = pause.begin();
    if (!isCalm)
        std::this_thread::sleep_for(std::chrono::seconds(1));
    Findings findings = look(session);
    const auto isPassing = [&](const Finding& finding) {
        return !isCalm && std::none_of(first.begin(), first.end(), [&](const Finding& before) {
            return areSame(finding, before);
        });
    };
    findings.erase(std::remove_if(findings.begin(), findings.end(), isPassing), findings.end());
    return findings;
}

// ---- Mending ----

bool isMendable(const Finding& finding)
{
    return finding.how != Mend::ByHand;
}

std::string lineOf(const Finding& finding, const char* way)
{
    return finding.place + ": " + finding.fault + "; " + way + finding.wayOut;
}

bool isAny(const Findings& findings, Mend how)
{
    return std::any_of(findings.begin(), findings.end(),
                       [&](const Finding& finding) { return finding.how == how; });
}

// Mends the findings that are mended in this way, and returns them. What fails is told and stays.
Findings mendAll(const Findings& findings, Mend how, Mending& mending)
{
    Findings mended;
    for (const Finding& finding : findings)
        if (finding.how == how)
            try {
                finding.mend(mending);
                mended.push_back(finding);
            } catch (const Refusal& refusal) {
                tell("not mended: " + refusal.reason);
            }
    return mended;
}

void append(Findings& all, const Findings& more)
{
    all.insert(all.end(), more.begin(), more.end());
}

// Mends in one transaction. What lies beside the maps is mended first, under the lock, because the
// transaction refuses a missing map. Returns what was mended.
Findings mendOnce(Session& session)
{
    constexpr int Rounds = 3; // a map that is back has entries, a tree that is made lacks homes
    Mending first(session);
    Findings mended = mendAll(lookAtLock(session), Mend::First, first);
    Findings entries;
    try {
        repair(session, [&] {
            Findings findings = look(session);
            for (int round = 0; round < Rounds && isAny(findings, Mend::Beside); ++round) {
                Mending beside(session);
                append(mended, mendAll(findings, Mend::Beside, beside));
                beside.finishBeside();
                findings = look(session);
            }
            Mending inTransaction(session);
            entries = mendAll(findings, Mend::InTransaction, inTransaction);
            inTransaction.stage();
        });
        append(mended, entries);
    } catch (const Stop&) { // the transaction changed nothing; the rest stays mended
        for (const Finding& finding : mended)
            tell(lineOf(finding, "repaired: "));
        throw;
    }
    return mended;
}

// ---- Answers ----

constexpr const char* WithRepair = "with --repair ";

// The text behind the fault (way) is what a person has to do, what --repair would do, or what it
// did.
Json jsonOf(const Finding& finding, const char* way)
{
    return {{"kind", finding.kind},
            {"place", finding.place},
            {"name", finding.name.empty() ? Json(nullptr) : Json(finding.name)},
            {"message", finding.fault + "; " + way + finding.wayOut},
            {"repair", isMendable(finding)}};
}

Json listOf(const Findings& findings, const char* wayOfMendable)
{
    Json list = Json::array();
    for (const Finding& finding : findings)
        list.push_back(jsonOf(finding, isMendable(finding) ? wayOfMendable : ""));
    return list;
}

Answer answerOf(const Findings& findings, const Findings& mended, bool isDry)
{
    Answer answer{Json::object(), {}};
    if (isDry)
        answer.result["dry_run"] = true;
    answer.result["findings"] = listOf(findings, WithRepair);
    answer.result["repaired"] = listOf(mended, "");
    for (const Finding& finding : mended)
        answer.lines.push_back(lineOf(finding, isDry ? "dry run: " : "repaired: "));
    for (const Finding& finding : findings)
        if (!isMendable(finding))
            answer.lines.push_back(lineOf(finding, ""));
        else if (!isDry)
            answer.lines.push_back(lineOf(finding, WithRepair));
    if (findings.empty())
        return answer;

    const auto count = std::count_if(findings.begin(), findings.end(), isMendable);
    answer.status = Status::NotFit;
    answer.sentence =
        std::to_string(findings.size()) + (findings.size() == 1 ? " finding" : " findings");
    if (count > 0)
        answer.sentence += ", of which \"qvmailctl check --repair\" mends " + std::to_string(count);
    return answer;
}

Answer check(Session& session, const Given& given)
{
    const bool isDry = session.options.dryRun;
    Findings findings = lookTwice(session);
    Findings mended;
    if (isDry)
        std::copy_if(findings.begin(), findings.end(), std::back_inserter(mended), isMendable);
    constexpr int Rounds = 3; // what is mended may bring to light what was hidden by it
    bool goesOn = given.repair && !isDry;
    for (int round = 0; goesOn && round < Rounds; ++round) {
        if (std::none_of(findings.begin(), findings.end(), isMendable))
            break;
        const Findings now = mendOnce(session);
        append(mended, now);
        goesOn = !now.empty();
        findings = lookTwice(session);
    }
    if (findings.empty() && !session.options.json)
        tell("nothing is wrong");
    return answerOf(findings, mended, isDry);
}

} // namespace

Object checkCommand()
{
    return {"check",
            "Look whether all is well, and mend what can be mended",
            {{"",
              "Look whether all is well: files, tables, mail directories, settings of the servers",
              {},
              Repair | ChangeOptions,
              "  qvmailctl check\n"
              "  qvmailctl check --dry-run\n"
              "  qvmailctl check --repair",
              check}}};
}
