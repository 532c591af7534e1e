#include "system/LargeFilesAndDates.h"

#include "Session.h"

#include "Interruption.h"
#include "MapFiles.h"
#include "Output.h"
#include "Programs.h"
#include "Results.h"
#include "maps/MapVariants.h"
#include "system/SystemAccounts.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

const Options& onlyForRoot(const Options& options)
{
    if (geteuid() != 0)
        stop(Status::NotRoot, "only root may administer mail hosting; run it with sudo");
    return options;
}

void requireAccounts()
{
    for (const char* const name : {MailReaders, MailOwner})
        if (getpwnam(name) == nullptr || getgrnam(name) == nullptr)
            stop(Status::NotFit, "the system account or group \"" + std::string(name) +
                                     "\", which mail files belong to, is missing; add it with "
                                     "\"qvmailctl init\"");
}

void requireTools()
{
    for (const char* const tool : {"postmap", "postfix"})
        if (!isInstalled(tool))
            stop(Status::NotFit, "the program " + std::string(tool) +
                                     " is not found, so the mail server would not see the change; "
                                     "install Postfix or set PATH");
}

std::string wayBack(const std::string& map)
{
    const std::string copy = map + ".qvbackup";
    return access(copy.c_str(), F_OK) == 0
               ? "bring it back: " + copy + " is its state before the last change"
               : "if it was never made, make an empty one with \"qvmailctl init\"";
}

void requireMaps()
{
    for (const char* const map :
         {VDOMAINFILE, VPASSWDFILE, VSHADOWFILE, VMAPSFILE, VALIASFILE, VQUOTAFILE}) {
        requireNoEmptyLink(map);
        if (access(map, F_OK) != 0)
            stop(Status::NotFit, "the map " + std::string(map) + " is missing; " + wayBack(map));
    }
}

// A program without transactions was interrupted while it rewrote a map: its next change would put
// the work file's lines into a map.
void requireNoWorkFiles()
{
    for (const MapVariant* const writer : MapVariants)
        if (access(writer->workFile, F_OK) == 0)
            stop(Status::NotFit,
                 "the work file " + std::string(writer->workFile) +
                     " of an interrupted change is there, and the control panel's next change "
                     "would put its lines into a map; \"qvmailctl check\" tells what it holds, "
                     "and \"qvmailctl check --repair\" puts it aside");
}

// Ends the command when accounts or tools that a change needs are missing, or a work file is left.
void requireFit(const Session& session)
{
    requireAccounts();
    if (session.settings.usesSql) {
        reachDatabase(session.settings);
        return;
    }
    requireTools();
    requireMaps();
    requireNoWorkFiles();
}

// Waits in steps of a second, so that an interruption can end the waiting.
void open(Session& session)
{
    PostfixTransaction::Outcome outcome;
    int waited = 0;
    do
        outcome = session.transaction.open(session.options.wait > 0 ? 1 : 0);
    while (outcome == PostfixTransaction::Busy && !isInterrupted() &&
           ++waited < session.options.wait);
    stopIfInterrupted();
    if (outcome == PostfixTransaction::Busy)
        stop(Status::Busy,
             session.transaction.reason() + "; nothing was changed, try again when it has ended");
    if (outcome != PostfixTransaction::Done)
        stop(Status::NotWritten, session.transaction.reason() + "; nothing was changed");
}

// The commands that the commit runs get no input: what is left of it may be passwords for the
// commands of a script that come next.
void leaveNoInput()
{
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (nothing <= STDIN_FILENO)
        return;
    dup2(nothing, STDIN_FILENO);
    close(nothing);
}

// Commits the change; gives it up in a dry run.
void finish(Session& session)
{
    stopIfInterrupted();
    if (session.options.dryRun) {
        const std::string failure = session.transaction.failure();
        session.transaction.drop();
        if (!failure.empty())
            stop(Status::NotWritten, failure + "; nothing was changed");
        return;
    }
    // The commands that the commit runs are not interrupted either.
    ignoreInterruptions();
    leaveNoInput();
    const PostfixTransaction::Outcome outcome = session.transaction.commit();
    if (outcome == PostfixTransaction::Refused)
        stop(Status::NotWritten, session.transaction.reason() + "; nothing was changed");
    if (outcome == PostfixTransaction::Unfinished)
        stop(Status::Unfinished, "the change is not finished: " + session.transaction.reason());
    if (!session.transaction.reason().empty())
        tell("warning: " + session.transaction.reason());
}

void make(Session& session, const Work& work)
{
    // Until the commit an interruption ends the command, with nothing changed.
    watchInterruptions();
    open(session);
    work();
    finish(session);
}

void makePatiently(Session& session, const Work& attempt)
{
    for (const int pause : Pauses)
        try {
            return attempt();
        } catch (const Stop& stopped) {
            if (!session.transaction.mayPass() || isInterrupted())
                throw;
            tell("note: " + stopped.sentence + "; it is tried again");
            session.transaction.drop();
            session.changes = {};
            std::this_thread::sleep_for(std::chrono::milliseconds(pause));
        }
    attempt();
}

} // namespace

Session::Session(const Options& given)
    : options(onlyForRoot(given)), settings(readSettings()),
      library(&tracking, "", settings.usesSql ? "mysql" : "files", settings.database.server,
              settings.database.port, settings.database.user, settings.database.password,
              settings.database.database),
      transaction(library)
{
    library.ErrNo = 0;
    transaction.limitWaiting(settings.database.limits.connect, settings.database.limits.answer);
    constexpr mode_t OthersMayRead = 022; // Dovecot and Postfix read the files as other users
    umask(OthersMayRead);
    setenv("PATH", searchPath().c_str(), 1);
}

void beginQuery(Session& session)
{
    if (!session.settings.usesSql && access(VDOMAINFILE, F_OK) != 0)
        tell("note: " VDOMAINFILE " is missing, so nothing is hosted; \"qvmailctl init\" prepares "
             "this machine");
    // The answer should be from before the interrupted change or from after it, not from its
    // middle. It may be from its middle when another change is at work, or when nothing can be
    // written.
    if (access(VJOURNALFILE, F_OK) == 0 && session.transaction.open(0) == PostfixTransaction::Done)
        session.transaction.drop();
}

void beginAsking(Session& session)
{
    requireFit(session);
    beginQuery(session);
}

void change(Session& session, const Work& work)
{
    makePatiently(session, [&] {
        requireFit(session);
        make(session, work);
    });
}

void repair(Session& session, const Work& work)
{
    makePatiently(session, [&] { make(session, work); });
}

void conclude(const Session& session, int code, std::initializer_list<int> successes,
              const std::string& failure)
{
    if (std::find(successes.begin(), successes.end(), code) != successes.end())
        return;
    std::string why = session.transaction.failure();
    if (why.empty())
        why = session.settings.usesSql
                  ? "the database refused a statement or the connection was lost; see its log"
                  : "a map below /etc/vmail could not be read or written";
    stop(Status::NotWritten, failure + ": " + why + " (the library answered " +
                                 std::to_string(code) + "); nothing was changed");
}

void confirm(const Session& session, const std::string& deletion)
{
    if (session.options.yes || session.options.dryRun)
        return;
    if (isatty(STDIN_FILENO) == 0)
        stop(Status::Usage, "nobody can be asked whether to delete " + deletion +
                                ": standard input is no terminal; say --yes to delete it");
    watchInterruptions();
    prompt("Delete " + deletion + "? [y/N] ");
    waitForInput(STDIN_FILENO);
    std::string reply;
    std::getline(std::cin, reply);
    if (reply != "y" && reply != "yes")
        stop(Status::Interrupted, "nothing was deleted");
}
