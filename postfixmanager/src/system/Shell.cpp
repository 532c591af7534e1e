#include "system/Shell.h"

#include <cstdlib>

bool runInShell(const std::string& command)
{
    return system(command.c_str()) == 0;
}
