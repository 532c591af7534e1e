// Reads the command line: which action is meant, with which arguments and options.
#ifndef QVMAILCTL_COMMANDLINE_H
#define QVMAILCTL_COMMANDLINE_H

#include "Commands.h"

struct Choice {
    const Action* action = nullptr; // null: only the text is to be printed
    std::string words;              // the command, without its options, for the system log
    Given given;
    Options options;
    std::string text; // of --help or --version
};

// Ends the command (64) when the words are no command.
void readCommandLine(int argc, char** argv, const std::vector<Object>& objects, Choice& choice);

#endif
