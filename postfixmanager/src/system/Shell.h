#ifndef QV_SHELL_H
#define QV_SHELL_H

#include <string>

// Runs a command through the shell. True when it ended with status 0. Plain calls ignore that: a
// map is written whether or not its backup copy or its lookup table could be made.
bool runInShell(const std::string& command);

#endif
