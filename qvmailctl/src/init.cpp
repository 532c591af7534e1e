// init
#include "system/LargeFilesAndDates.h"

#include "Commands.h"
#include "MapFiles.h"
#include "Programs.h"
#include "Results.h"
#include "init/Database.h"
#include "init/Files.h"
#include "init/Servers.h"
#include "init/System.h"

#include <filesystem>

#include <unistd.h>

namespace
{

bool checkedBackend(const Session& session, const std::string& name, bool hasSettings)
{
    if (name.empty())
        return session.settings.usesSql;
    if (name != "files" && name != "mysql")
        stop(Status::Usage, "the backend is \"files\" or \"mysql\", not " + inQuotes(name));
    const bool usesSql = name == "mysql";
    if (hasSettings && usesSql != session.settings.usesSql)
        stop(Status::NotFit,
             QVCONFFILE " says that the accounts are in " +
                 std::string(usesSql ? "files" : "a database") +
                 "; to move them, \"umask 077; qvmailctl export > FILE\", move " QVCONFFILE
                 " away, run this again, and \"qvmailctl import FILE "
                 "--take-over\" (docs/moving.md)");
    return usesSql;
}

std::string checkedConfig(const std::string& given)
{
    std::string directory = given.empty() ? QVMAILCTL_CONFIG : given;
    if (access((directory + "/sql-accounts.sql").c_str(), R_OK) != 0)
        stop(Status::NotFit, "the shipped settings are not in " + inQuotes(directory) +
                                 "; name their directory with --config");
    return std::filesystem::canonical(directory);
}

void makeSettings(Setup& setup, const std::optional<Database>& database)
{
    std::string text = textOfFile(setup.shipped("Quorvel-" + setup.backend() + ".conf"));
    if (database)
        text = withValue(text, "MailSqlPassword ", "\"" + database->place.password + "\"");
    makeFile(setup, QVCONFFILE, text, RootAlone);
}

// Once the settings name the database, domains in the map files are not seen any more.
void tellOfFormerAccounts(Setup& setup)
{
    if (isFile(VDOMAINFILE) && !textOfFile(VDOMAINFILE).empty())
        setup.toDo.emplace_back("the domains of " VDOMAINFILE
                                " are not in the database; if they were exported, \"qvmailctl "
                                "import FILE --take-over\","
                                " else see docs/moving.md");
}

// May be run again: what is there stays as it is.
Answer init(Session& session, const Given& given)
{
    const bool hasSettings = isFile(QVCONFFILE);
    Setup setup;
    setup.usesSql = checkedBackend(session, given.name, hasSettings);
    setup.servers = given.servers;
    setup.dryRun = session.options.dryRun;
    setup.config = checkedConfig(given.config);

    // Nothing is changed unless all of this holds.
    requirePackages(setup, setup.usesSql && !hasSettings);
    requireMailGroup();
    requireNoLostMap();
    checkServerFiles(setup);
    std::optional<Database> database;
    if (setup.usesSql)
        database = lookAtDatabase(setup, hasSettings ? std::optional(session.settings.database)
                                                     : std::nullopt);

    if (database && setup.servers && !database->isUsable())
        stop(Status::Unreachable,
             database->refusal +
                 "; nothing was changed, for mail servers without their database put "
                 "off all mail. Start it and run this again; where root may not log "
                 "in to it, run this without --servers first");

    // The settings come first: the database is given the passwords that stand in them.
    try {
        makeAccount(setup);
        makeDirectory(setup, VMAPDIR);
        makeDirectory(setup, VSPOOLDIR, ForGroupMail);
        makeSettings(setup, database);
        setUpServers(setup, database ? &*database : nullptr);
        makeMaps(setup);
        if (database)
            makeDatabase(setup, *database);
        if (database && (!hasSettings || isEmpty(*database)))
            tellOfFormerAccounts(setup);
    } catch (const Stop& stopped) {
        if (setup.changesNothing())
            throw;
        stop(Status::Unfinished,
             stopped.sentence + " (what was made before stays; run this again to go on)");
    }
    return setup.answer();
}

} // namespace

Object initCommand()
{
    return {"init",
            "Prepare this machine, with the accounts in \"files\" or in \"mysql\"",
            {{"",
              "Prepare this machine, with the accounts in \"files\" or in \"mysql\"; can be "
              "repeated",
              {"[BACKEND]"},
              ChangeOptions | Servers,
              "  qvmailctl init files --dry-run\n"
              "  qvmailctl init files --servers\n"
              "  qvmailctl init mysql --servers",
              init}}};
}
