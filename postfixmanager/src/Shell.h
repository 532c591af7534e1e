#ifndef QV_SHELL_H
#define QV_SHELL_H

#include <string>

// Runs a command through the shell. Its outcome is ignored, as everywhere in this library: a map is
// written whether or not its backup copy or its lookup table could be made.
void runInShell(const std::string& command);

// "postmap FILE": rebuilds the lookup table that Postfix reads in place of the file.
void rebuildLookupTable(const std::string& map);

// "postfix reload": makes a running Postfix read its settings and tables anew.
void reloadPostfix();

#endif
