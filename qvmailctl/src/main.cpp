// qvmailctl - administers the virtual mail hosting of a Postfix server from the command line
#include "Commands.h"
#include "Output.h"
#include "Results.h"

#include <CLI/CLI.hpp>

#include <cstring>
#include <iostream>

namespace
{

constexpr const char* Examples = R"(Examples:
  qvmailctl domain add example.com postmaster        (asks for the password)
  echo 'secret' | qvmailctl mailbox add bob@example.com --quota 500M
  qvmailctl alias add info@example.com bob@example.com
  qvmailctl list add staff@example.com bob@example.com ann@example.org
  qvmailctl catchall set example.com postmaster
  qvmailctl domain delete example.com --yes

Exit status: 0 done, 1 failed, 2 refused, 3 busy, 4 not there. See qvmailctl(8).)";

struct Choice {
    const Action* action = nullptr;
    Given given;
    Options options;
};

void addArgument(CLI::App& command, const char* name, std::size_t place, Given& given)
{
    if (strchr(name, '.') != nullptr)
        command.add_option("MEMBER", given.members)->required()->option_text("...");
    else
        command.add_option(name, place == 0 ? given.name : given.value)
            ->required()
            ->option_text(" ");
}

void addObject(CLI::App& app, const Object& object, Choice& choice)
{
    CLI::App* const group = app.add_subcommand(object.name, object.help)->require_subcommand(1);
    group->fallthrough();
    for (const Action& action : object.actions) {
        CLI::App* const command = group->add_subcommand(action.name, action.help)->fallthrough();
        for (std::size_t i = 0; i < action.arguments.size(); ++i)
            addArgument(*command, action.arguments[i], i, choice.given);
        if (action.takesQuota)
            command
                ->add_option("--quota", choice.given.quota,
                             "Bytes, or with K, M or G; no limit without it")
                ->option_text("SIZE");
        command->callback([&choice, &action] { choice.action = &action; });
    }
}

int run(const Choice& choice)
{
    Status status = Status::Done;
    try {
        Host host(choice.options);
        const QuietLibrary quiet(choice.options.verbose);
        try {
            choice.action->run(host, choice.given);
            finishChange(host);
        } catch (const Stop& stop) {
            status = stop.status;
            tell(stop.sentence);
            // What was found may be for want of what could not be read.
            if (stop.status != Status::Failed && !host.transaction.failure().empty()) {
                status = Status::Failed;
                tell(host.transaction.failure() + "; nothing was changed");
            }
        }
        if (status == Status::Failed || !host.settings.onTables) // tables need no postmap
            quiet.showComplaints(status == Status::Failed);
    } catch (const Stop& stop) {
        status = stop.status;
        tell(stop.sentence);
    }
    return static_cast<int>(status);
}

int parseAndRun(int argc, char** argv)
{
    const Object objects[] = {domainCommands(), mailboxCommands(), quotaCommands(),
                              aliasCommands(),  listCommands(),    catchAllCommands()};
    Choice choice;
    CLI::App app("Administers the virtual mail hosting of a Postfix server.", "qvmailctl");
    app.set_version_flag("--version", "qvmailctl " QVMAILCTL_VERSION);
    app.add_flag("--verbose", choice.options.verbose,
                 "Show the library's progress lines on standard error (password hashes too)");
    app.add_flag("--yes", choice.options.yes, "Do not ask before a deletion");
    app.add_option("--wait", choice.options.wait,
                   "How long to wait for another change to end (default: 5)")
        ->option_text("SECONDS")
        ->check(CLI::NonNegativeNumber);
    app.footer(Examples);
    app.require_subcommand(1);
    for (const Object& object : objects)
        addObject(app, object, choice);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(Status::Refused);
    }
    return run(choice);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return parseAndRun(argc, argv);
    } catch (const std::exception& error) { // no memory, or none of ours
        std::cerr << "qvmailctl: " << error.what() << '\n';
        return static_cast<int>(Status::Failed);
    }
}
