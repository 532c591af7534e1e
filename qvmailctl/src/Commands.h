// The commands: OBJECT ACTION, or one word alone. Each object has one source file, which hands out
// a table of its actions.
#ifndef QVMAILCTL_COMMANDS_H
#define QVMAILCTL_COMMANDS_H

#include "Session.h"

#include <optional>
#include <string>
#include <vector>

// The words of the command line behind the action.
struct Given {
    std::string name;                 // first argument
    std::string value;                // second
    std::vector<std::string> members; // all further ones
    std::optional<std::string> quota; // of --quota
    bool repair = false;
    bool servers = false;
    std::string config; // of --config
};

// The options that an action takes beside those of every command.
enum Takes : unsigned {
    Nothing = 0,
    ChangeOptions = 1, // --dry-run, --wait
    IfMissing = 2,
    IfThere = 4,
    Yes = 8,
    QuotaOption = 16,
    TakeOver = 32,
    Repair = 64,
    Servers = 128,
    Creation = ChangeOptions | IfMissing,
    Deletion = ChangeOptions | IfThere | Yes
};

struct Action {
    const char* name; // empty: the object's name is the whole command
    const char* help;
    std::vector<const char*> arguments; // at most two; "[X]" may be left out, "X..." takes the rest
    unsigned takes;
    const char* examples;
    Answer (*run)(Session& session,
                  const Given& given); // null result: session.changes is the answer
};

struct Object {
    const char* name;
    const char* help;
    std::vector<Action> actions;
};

Object domainCommands();
Object mailboxCommands();
Object quotaCommands();
Object aliasCommands();
Object listCommands();
Object catchAllCommands();
Object searchCommand();
Object initCommand();
Object checkCommand();
Object exportCommand();
Object importCommand();

#endif
