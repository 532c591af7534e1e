#include "system/LargeFilesAndDates.h"

#include "Programs.h"

#include "maps/MapLines.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

pid_t start(const std::vector<std::string>& command, int output)
{
    std::vector<char*> words;
    words.reserve(command.size() + 1);
    for (const std::string& word : command)
        words.push_back(const_cast<char*>(word.c_str())); // posix_spawn does not write to them
    words.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    if (posix_spawnp(&child, words[0], &files, nullptr, words.data(), environ) != 0)
        child = -1;
    posix_spawn_file_actions_destroy(&files);
    return child;
}

// Reads until the other end is closed. False when that takes too long.
bool readAll(int input, int seconds, std::string& text)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
    std::array<char, 4096> piece{};
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        pollfd waiting = {input, POLLIN, 0};
        if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) <= 0)
            return false;
        const ssize_t count = read(input, piece.data(), piece.size());
        if (count <= 0)
            return count == 0;
        text.append(piece.data(), count);
    }
}

} // namespace

std::optional<std::string> outputOf(const std::vector<std::string>& command, int seconds)
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return std::nullopt;
    const pid_t child = start(command, ends[1]);
    close(ends[1]);
    std::string text;
    const bool hasEnded = child > 0 && readAll(ends[0], seconds, text);
    close(ends[0]);
    if (child <= 0)
        return std::nullopt;
    if (!hasEnded)
        kill(child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!hasEnded || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return std::nullopt;
    return text;
}

std::string searchPath()
{
    const char* const path = getenv("PATH");
    return std::string(path == nullptr ? "/usr/bin:/bin" : path) + ":/usr/sbin:/sbin";
}

bool isInstalled(const std::string& program)
{
    const std::string path = searchPath() + ":";
    std::size_t begin = 0;
    for (std::size_t end; (end = path.find(':', begin)) != std::string::npos; begin = end + 1)
        if (access((path.substr(begin, end - begin) + "/" + program).c_str(), X_OK) == 0)
            return true;
    return false;
}

void removeHalfTable(const std::string& map)
{
    const std::size_t name = map.rfind('/') + 1;
    unlink((map.substr(0, name) + "__db." + map.substr(name) + ".db").c_str());
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < text.size(); begin += lines.back().size() + 1)
        lines.emplace_back(textBefore(std::string_view(text).substr(begin), '\n'));
    return lines;
}
