#include "Output.h"

#include "Results.h"
#include "maps/MapLines.h"

#include <array>
#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

int answers = STDOUT_FILENO;
int messages = STDERR_FILENO;

bool writeAll(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = write(descriptor, text.data(), text.size());
        if (count < 0 && errno != EINTR)
            return false;
        text.remove_prefix(count < 0 ? 0 : count);
    }
    return true;
}

bool isWarning(std::string_view line)
{
    return (contains(line, "postmap") || contains(line, "postfix")) &&
           (contains(line, "fatal:") || contains(line, "error:") || contains(line, "warning:") ||
            contains(line, "not found"));
}

} // namespace

QuietLibrary::QuietLibrary(bool verbose)
{
    answers = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    messages = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    const int nowhere = verbose ? messages : open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (answers < 0 || messages < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0)
        refuse("standard output and standard error must be open, and /dev/null must exist");
    if (!verbose && (m_complaints = memfd_create("complaints", MFD_CLOEXEC)) >= 0)
        dup2(m_complaints, STDERR_FILENO);
}

QuietLibrary::~QuietLibrary()
{
    // What the library still has in its buffers must not follow to standard output.
    dup2(messages, STDERR_FILENO);
}

void QuietLibrary::showComplaints(bool all) const
{
    std::string text;
    std::array<char, 4096> piece{};
    off_t offset = 0;
    ssize_t count;
    while ((count = pread(m_complaints, piece.data(), piece.size(), offset)) > 0) {
        text.append(piece.data(), count);
        offset += count;
    }
    for (std::size_t begin = 0; begin < text.size();) {
        const std::string line(textBefore(std::string_view(text).substr(begin), '\n'));
        if (all || isWarning(line))
            tell(line);
        begin += line.size() + 1;
    }
}

void answer(const std::string& line)
{
    if (!writeAll(answers, line + "\n"))
        throw Stop{Status::Failed, "the answer could not be written to standard output"};
}

void tell(const std::string& line)
{
    writeAll(messages, "qvmailctl: " + line + "\n");
}

void prompt(const std::string& question)
{
    writeAll(messages, question);
}
