#include "system/Shell.h"

#include <csignal>
#include <cstdlib>

bool runInShell(const std::string& command)
{
    // A host that ignores its children's ends would not be told of this one's either.
    struct sigaction ofHost {
    };
    struct sigaction standard {
    };
    standard.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, nullptr, &ofHost);
    const bool isIgnored = ofHost.sa_handler == SIG_IGN;
    if (isIgnored)
        sigaction(SIGCHLD, &standard, nullptr);
    const bool isDone = system(command.c_str()) == 0;
    if (isIgnored)
        sigaction(SIGCHLD, &ofHost, nullptr);
    return isDone;
}
