#include "LargeFilesAndDates.h"

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

} // namespace

Host::Host(const Options& given)
    : options(onlyForRoot(given)), settings(readSettings()),
      library(&tracking, "", settings.onTables ? "mysql" : "files", settings.server, settings.port,
              settings.user, settings.password, settings.database)
{
    library.ErrNo = 0;
    constexpr mode_t OthersMayRead = 022; // Dovecot and Postfix read the files as other users
    umask(OthersMayRead);
    setenv("PATH", searchPath().c_str(), 1);
}

void beginQuery(Host& host)
{
    host.lock.emplace();
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

void beginChange(Host& host, std::initializer_list<const char*> appendedFiles)
{
    beginQuery(host);
    requireAccounts();
    if (host.settings.onTables)
        return;
    for (const char* const tool : {"postmap", "postfix"})
        if (!isOnPath(tool))
            refuse("the program " + std::string(tool) +
                   " is not found, so the mail server would not see the change; install Postfix or "
                   "set PATH");
    refuseWorkFiles();
    for (const char* const file : appendedFiles)
        refuseUnendedLine(file);
    // A change runs to its end: between two of its steps a map may be gone and its work file there.
    for (const int interruption : {SIGINT, SIGTERM, SIGHUP, SIGPIPE})
        signal(interruption, SIG_IGN);
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
