#include "Interruption.h"

#include "Results.h"

#include <cerrno>
#include <csignal>

#include <poll.h>

namespace
{

constexpr int Interruptions[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE};
volatile std::sig_atomic_t interrupted = 0;

void note(int /*signal*/)
{
    interrupted = 1;
}

void handleWith(void (*handler)(int))
{
    for (const int interruption : Interruptions)
        signal(interruption, handler);
}

} // namespace

void watchInterruptions()
{
    handleWith(note);
}

bool isInterrupted()
{
    return interrupted != 0;
}

void stopIfInterrupted()
{
    if (isInterrupted())
        stop(Status::Interrupted, "interrupted; nothing was changed");
}

void waitForInput(int descriptor)
{
    sigset_t interruptions;
    sigset_t unblocked;
    sigemptyset(&interruptions);
    for (const int interruption : Interruptions)
        sigaddset(&interruptions, interruption);
    // Signals are let through during ppoll only: none is lost between the check and the waiting.
    sigprocmask(SIG_BLOCK, &interruptions, &unblocked);
    pollfd input = {descriptor, POLLIN, 0};
    while (!isInterrupted() && ppoll(&input, 1, nullptr, &unblocked) < 0 && errno == EINTR) {
    }
    sigprocmask(SIG_SETMASK, &unblocked, nullptr);
    stopIfInterrupted();
}

void ignoreInterruptions()
{
    handleWith(SIG_IGN);
}
