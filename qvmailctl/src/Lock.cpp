#include "Lock.h"

#include "Results.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace
{

constexpr const char* File = "/run/lock/qvmailctl.lock";
constexpr std::chrono::seconds Patience(5);
constexpr std::chrono::milliseconds Pause(50);

// The holder leaves its process number in the file.
std::string holder(int descriptor)
{
    std::array<char, 32> text{};
    const ssize_t count = pread(descriptor, text.data(), text.size() - 1, 0);
    return count > 0 ? std::string(text.data(), count) : "unknown";
}

} // namespace

// Not handed on to the commands that the library runs: a server started by hand from one of them
// must not keep the lock.
Lock::Lock() : m_descriptor(open(File, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600))
{
    if (m_descriptor < 0)
        refuse("the lock " + std::string(File) + " cannot be opened: " + strerror(errno));

    const auto end = std::chrono::steady_clock::now() + Patience;
    while (flock(m_descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (std::chrono::steady_clock::now() > end) {
            const std::string process = holder(m_descriptor);
            close(m_descriptor);
            throw Stop{Status::Busy, "another qvmailctl is at work (process " + process +
                                         "); nothing was done, try again when it has ended"};
        }
        std::this_thread::sleep_for(Pause);
    }
    const std::string process = std::to_string(getpid());
    if (ftruncate(m_descriptor, 0) != 0 ||
        pwrite(m_descriptor, process.data(), process.size(), 0) < 0)
        refuse("the lock " + std::string(File) + " cannot be written: " + strerror(errno));
}

Lock::~Lock()
{
    close(m_descriptor);
}
