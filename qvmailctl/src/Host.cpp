#include "system/LargeFilesAndDates.h"

#include "Host.h"

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
void requireFit(const Host& host)
{
    requireAccounts();
    if (host.settings.usesSql) {
        reachDatabase(host.settings);
        return;
    }
    requireTools();
    requireMaps();
    requireNoWorkFiles();
}

// Waits in steps of a second, so that an interruption can end the waiting.
void open(Host& host)
{
    PostfixTransaction::Outcome outcome;
    int waited = 0;
    do
        outcome = host.transaction.open(host.options.wait > 0 ? 1 : 0);
    while (outcome == PostfixTransaction::Busy && !isInterrupted() && ++waited < host.options.wait);
    stopIfInterrupted();
    if (outcome == PostfixTransaction::Busy)
        stop(Status::Busy,
             host.transaction.reason() + "; nothing was changed, try again when it has ended");
    if (outcome != PostfixTransaction::Done)
        stop(Status::NotWritten, host.transaction.reason() + "; nothing was changed");
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
void finish(Host& host)
{
    stopIfInterrupted();
    if (host.options.dryRun) {
        const std::string failure = host.transaction.failure();
        host.transaction.drop();
        if (!failure.empty())
            stop(Status::NotWritten, failure + "; nothing was changed");
        return;
    }
    // The commands that the commit runs are not interrupted either.
    ignoreInterruptions();
    leaveNoInput();
    const PostfixTransaction::Outcome outcome = host.transaction.commit();
    if (outcome == PostfixTransaction::Refused)
        stop(Status::NotWritten, host.transaction.reason() + "; nothing was changed");
    if (outcome == PostfixTransaction::Unfinished)
        stop(Status::Unfinished, "the change is not finished: " + host.transaction.reason());
    if (!host.transaction.reason().empty())
        tell("warning: " + host.transaction.reason());
}

void make(Host& host, const Work& work)
{
    // Until the commit an interruption ends the command, with nothing changed.
    watchInterruptions();
    open(host);
    work();
    finish(host);
}

void makePatiently(Host& host, const Work& attempt)
{
    for (const int pause : Pauses)
        try {
            return attempt();
        } catch (const Stop& stopped) {
            if (!host.transaction.mayPass() || isInterrupted())
                throw;
            tell("note: " + stopped.sentence + "; it is tried again");
            host.transaction.drop();
            host.changes = {};
            std::this_thread::sleep_for(std::chrono::milliseconds(pause));
        }
    attempt();
}

} // namespace

Host::Host(const Options& given)
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

void beginQuery(Host& host)
{
    if (!host.settings.usesSql && access(VDOMAINFILE, F_OK) != 0)
        tell("note: " VDOMAINFILE " is missing, so nothing is hosted; \"qvmailctl init\" prepares "
             "this machine");
    // The answer should be from before the interrupted change or from after it, not from its
    // middle. It may be from its middle when another change is at work, or when nothing can be
    // written.
    if (access(VJOURNALFILE, F_OK) == 0 && host.transaction.open(0) == PostfixTransaction::Done)
        host.transaction.drop();
}

void beginAsking(Host& host)
{
    requireFit(host);
    beginQuery(host);
}

void change(Host& host, const Work& work)
{
    makePatiently(host, [&] {
        requireFit(host);
        make(host, work);
    });
}

void repair(Host& host, const Work& work)
{
    makePatiently(host, [&] { make(host, work); });
}

void conclude(const Host& host, int code, std::initializer_list<int> successes,
              const std::string& failure)
{
    if (std::find(successes.begin(), successes.end(), code) != successes.end())
        return;
    std::string why = host.transaction.failure();
    if (why.empty())
        why = host.settings.usesSql
                  ? "the database refused a statement or the connection was lost; see its log"
                  : "a map below /etc/vmail could not be read or written";
    stop(Status::NotWritten, failure + ": " + why + " (the library answered " +
                                 std::to_string(code) + "); nothing was changed");
}

void confirm(const Host& host, const std::string& deletion)
{
    if (host.options.yes || host.options.dryRun)
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
