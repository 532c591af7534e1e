#include "Shell.h"

#include <cstdlib>

void runInShell(const std::string& command)
{
    [[maybe_unused]] const int ignored = system(command.c_str());
}

void rebuildLookupTable(const std::string& map)
{
    runInShell("postmap " + map);
}

void reloadPostfix()
{
    runInShell("postfix reload");
}
