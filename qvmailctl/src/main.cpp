// qvmailctl - administers the virtual mail hosting of a Postfix server from the command line
#include "CommandLine.h"
#include "Output.h"
#include "Passwords.h"
#include "Programs.h"
#include "Record.h"
#include "Results.h"

#include <exception>
#include <utility>

namespace
{

// Runs the action to its end. Whatever the library prints meanwhile is kept off standard output.
Answer carryOut(const Choice& choice, Session& session)
{
    const QuietLibrary quiet(choice.options.verbose);
    try {
        Answer answer = choice.action->run(session, choice.given);
        if (!session.settings.usesSql) // the database needs no postmap
            quiet.showComplaints(false);
        return answer.result.is_null() ? session.changes.answer(choice.options.dryRun) : answer;
    } catch (const Stop& stopped) {
        quiet.showComplaints(stopped.status == Status::NotWritten ||
                             stopped.status == Status::Unfinished);
        // Something may have seemed missing because it could not be read.
        const std::string failure = session.transaction.failure();
        if (stopped.status != Status::NotWritten && !failure.empty()) {
            tell(stopped.sentence);
            stop(Status::NotWritten, failure + "; nothing was changed");
        }
        throw;
    }
}

bool isChange(const Choice& choice)
{
    if (choice.action == nullptr)
        return false;
    const unsigned takes = choice.action->takes;
    const bool onlyLooks = (takes & Repair) != 0 && !choice.given.repair;
    return (takes & ChangeOptions) != 0 && !choice.options.dryRun && !onlyLooks;
}

Answer run(const Choice& choice)
{
    if (choice.action == nullptr)
        return {Json(choice.text), linesOf(choice.text)};
    Session session(choice.options);
    const std::string words = choice.words + (choice.given.repair ? " --repair" : "");
    try {
        Answer answer = carryOut(choice, session);
        if (isChange(choice))
            record(words, nameOf(answer.status));
        return answer;
    } catch (const Stop& stopped) {
        if (isChange(choice))
            record(words, nameOf(stopped.status));
        throw;
    }
}

} // namespace

int main(int argc, char** argv)
{
    keepNoCore();
    Choice choice;
    try {
        const std::vector<Object> objects = {
            domainCommands(), mailboxCommands(),  quotaCommands(), aliasCommands(),
            listCommands(),   catchAllCommands(), searchCommand(), checkCommand(),
            initCommand(),    exportCommand(),    importCommand()};
        readCommandLine(argc, argv, objects, choice);
        Answer answer = run(choice);
        const Status status = answer.status;
        if (give(std::move(answer), choice.options.json))
            return static_cast<int>(status);
        tell("the answer could not be written to standard output");
        // A change was made all the same, and the status of findings counts more.
        return static_cast<int>(isChange(choice) || status != Status::Done ? status
                                                                           : Status::NotWritten);
    } catch (const Stop& stopped) {
        giveFailure(stopped, choice.options.json);
        return static_cast<int>(stopped.status);
    } catch (const std::exception& error) { // no memory, or a fault of this program
        giveFailure({Status::OwnFault, error.what()}, choice.options.json);
        return static_cast<int>(Status::OwnFault);
    }
}
