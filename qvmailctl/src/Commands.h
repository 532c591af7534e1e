// The commands, OBJECT ACTION: one source file per object, which hands out a table of its actions.
#ifndef QVMAILCTL_COMMANDS_H
#define QVMAILCTL_COMMANDS_H

#include "Host.h"

#include <string>
#include <vector>

// The words of the command line behind the action.
struct Given {
    std::string name;                 // first argument
    std::string value;                // second
    std::vector<std::string> members; // all further ones
    std::string quota;                // of --quota; empty: no limit
};

struct Action {
    const char* name;
    const char* help;
    std::vector<const char*> arguments; // at most two; one that ends with "..." takes the rest
    void (*run)(Host& host, const Given& given);
    bool takesQuota = false;
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

#endif
