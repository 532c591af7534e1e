#include "system/LargeFilesAndDates.h"

#include "Host.h"

#include "Maps.h"
#include "Output.h"
#include "Results.h"

#include <csignal>
#include <cstdlib>
#include <iostream>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

const Options& onlyForRoot(const Options& options)
{
    if (geteuid() != 0)
        refuse("only root may administer mail hosting; run it with sudo");
    return options;
}

// With where the tools lie, which a PATH set by su or cron often leaves out.
std::string searchPath()
{
    const char* const path = getenv("PATH");
    return std::string(path == nullptr ? "/usr/bin:/bin" : path) + ":/usr/sbin:/sbin";
}

bool isOnPath(const std::string& program)
{
    const std::string path = searchPath() + ":";
    std::size_t begin = 0;
    for (std::size_t end; (end = path.find(':', begin)) != std::string::npos; begin = end + 1)
        if (access((path.substr(begin, end - begin) + "/" + program).c_str(), X_OK) == 0)
            return true;
    return false;
}

void requireAccounts()
{
    for (const char* const name : {"mail", "qvadmin"}) {
        if (getpwnam(name) == nullptr)
            refuse("the system account \"" + std::string(name) +
                   "\", which mail files belong to, is missing; add it with adduser");
        if (getgrnam(name) == nullptr)
            refuse("the system group \"" + std::string(name) +
                   "\", which mail files belong to, is missing; add it with addgroup");
    }
}

constexpr int Interruptions[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
volatile std::sig_atomic_t interrupted = 0;

void noteInterruption(int /*signal*/)
{
    interrupted = 1;
}

// In steps, so that an interruption ends the waiting too.
void open(Host& host)
{
    PostfixTransaction::Outcome outcome;
    int waited = 0;
    do
        outcome = host.transaction.open(host.options.wait > 0 ? 1 : 0);
    while (outcome == PostfixTransaction::Busy && interrupted == 0 && ++waited < host.options.wait);
    if (outcome == PostfixTransaction::Busy)
        throw Stop{Status::Busy, host.transaction.reason() +
                                     "; nothing was changed, try again when it has ended"};
    if (outcome != PostfixTransaction::Done)
        throw Stop{Status::Failed, host.transaction.reason() + "; nothing was changed"};
}

} // namespace

Host::Host(const Options& given)
    : options(onlyForRoot(given)), settings(readSettings()),
      library(&tracking, "", settings.onTables ? "mysql" : "files", settings.server, settings.port,
              settings.user, settings.password, settings.database),
      transaction(library)
{
    library.ErrNo = 0;
    constexpr mode_t OthersMayRead = 022; // Dovecot and Postfix read the files as other users
    umask(OthersMayRead);
    setenv("PATH", searchPath().c_str(), 1);
}

void beginQuery(Host& host)
{
    // The answer should be from after the interrupted change, or from before it. Where somebody
    // else is at work, or nothing can be written, it is from wherever that is.
    if (access(VJOURNALFILE, F_OK) == 0 && host.transaction.open(0) == PostfixTransaction::Done)
        host.transaction.drop();
    // An empty address is nobody's, so a "yes" means that nobody could be asked.
    VectorString nothing;
    if (host.settings.onTables && (host.library.Postfix_IsMailboxExists("") ||
                                   host.library.Postfix_GetListSettings("", &nothing) != 0))
        throw Stop{Status::Failed, "the database \"" + host.settings.database + "\" on " +
                                       host.settings.server + " port " + host.settings.port +
                                       " cannot be read as user \"" + host.settings.user +
                                       "\"; check the server, its tables and the MailSql "
                                       "settings in " QVCONFFILE};
}

void beginChange(Host& host)
{
    requireAccounts();
    if (!host.settings.onTables) {
        for (const char* const tool : {"postmap", "postfix"})
            if (!isOnPath(tool))
                refuse("the program " + std::string(tool) +
                       " is not found, so the mail server would not see the change; install "
                       "Postfix or set PATH");
        refuseWorkFiles();
    }
    // Until the commit an interruption ends the command, with nothing changed.
    for (const int interruption : Interruptions)
        signal(interruption, noteInterruption);
    open(host);
}

void finishChange(Host& host)
{
    if (!host.transaction.isOpen())
        return;
    if (interrupted != 0)
        throw Stop{Status::Failed, "interrupted; nothing was changed"};
    // Nor are the commands that the commit runs interrupted.
    for (const int interruption : Interruptions)
        signal(interruption, SIG_IGN);
    const PostfixTransaction::Outcome outcome = host.transaction.commit();
    if (outcome == PostfixTransaction::Refused)
        throw Stop{Status::Failed, host.transaction.reason() + "; nothing was changed"};
    if (outcome == PostfixTransaction::Unfinished)
        throw Stop{Status::Failed, "the change is not finished: " + host.transaction.reason()};
    if (!host.transaction.reason().empty())
        tell("warning: " + host.transaction.reason());
}

void confirm(const Host& host, const std::string& deletion)
{
    if (host.options.yes || isatty(STDIN_FILENO) == 0)
        return;
    prompt("Delete " + deletion + "? [y/N] ");
    std::string reply;
    std::getline(std::cin, reply);
    if (reply != "y" && reply != "yes")
        refuse("nothing was deleted");
}
