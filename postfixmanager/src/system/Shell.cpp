#include "system/Shell.h"

#include <csignal>
#include <cstdlib>

bool runInShell(const std::string& command)
{
    // A host may ignore SIGCHLD; system() could then not learn how this command ended.
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
