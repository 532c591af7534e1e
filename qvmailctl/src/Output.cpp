#include "system/LargeFilesAndDates.h"

#include "Output.h"

#include "Programs.h"
#include "maps/MapLines.h"

#include <array>
#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

int answers = STDOUT_FILENO;
int messages = STDERR_FILENO;

bool isWarning(std::string_view line)
{
    return (contains(line, "postmap") || contains(line, "postfix")) &&
           (contains(line, "fatal:") || contains(line, "error:") || contains(line, "warning:") ||
            contains(line, "not found"));
}

// Writes control characters, which could make a terminal do things, as a backslash, "x" and two
// digits. Those of UTF-8 (0x80 to 0x9f behind 0xc2) and of 8-bit character sets count too.
std::string printable(std::string_view text)
{
    constexpr const char* Digits = "0123456789abcdef";
    std::string line;
    unsigned char before = 0;
    for (const unsigned char c : text) {
        const bool isHighControl = c >= 0x80 && c < 0xa0 && (before < 0x80 || before == 0xc2);
        if (isHighControl && before == 0xc2)
            line.replace(line.size() - 1, 1, "\\xc2");
        if (c < ' ' || c == 0x7f || isHighControl)
            line.append({'\\', 'x', Digits[c >> 4U], Digits[c & 15U]});
        else
            line.push_back(static_cast<char>(c));
        before = c;
    }
    return line;
}

// In ASCII, because it may go to a terminal.
std::string documentOf(const Json& document)
{
    constexpr int OneLine = -1;
    return document.dump(OneLine, ' ', true, Json::error_handler_t::replace) + "\n";
}

Json errorOf(Status status, const std::string& sentence)
{
    return {{"name", nameOf(status)}, {"status", static_cast<int>(status)}, {"message", sentence}};
}

} // namespace

QuietLibrary::QuietLibrary(bool verbose) : m_isVerbose(verbose)
{
    answers = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    messages = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (answers < 0 || messages < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0)
        stop(Status::NotFit,
             "standard output and standard error must be open, and /dev/null must exist");
    m_complaints = memfd_create("complaints", MFD_CLOEXEC);
    if (m_complaints < 0)
        return;
    dup2(m_complaints, STDERR_FILENO);
    if (verbose)
        dup2(m_complaints, STDOUT_FILENO);
}

QuietLibrary::~QuietLibrary()
{
    // What the library left in its buffers must not reach standard output later.
    dup2(messages, STDERR_FILENO);
    if (m_isVerbose)
        for (const std::string& line : linesOf(complaints()))
            writeAll(messages, printable(line) + "\n");
}

std::string QuietLibrary::complaints() const
{
    std::string text;
    std::array<char, 4096> piece{};
    off_t offset = 0;
    ssize_t count;
    while ((count = pread(m_complaints, piece.data(), piece.size(), offset)) > 0) {
        text.append(piece.data(), count);
        offset += count;
    }
    return text;
}

void QuietLibrary::showComplaints(bool all) const
{
    if (!m_isVerbose)
        for (const std::string& line : linesOf(complaints()))
            if (all || isWarning(line))
                tell(line);
}

bool give(Answer answer, bool asJson)
{
    const bool isDone = answer.status == Status::Done;
    std::string text;
    if (asJson) {
        Json document = {{"ok", isDone}};
        if (!isDone)
            document["error"] = errorOf(answer.status, answer.sentence);
        document["result"] = std::move(answer.result);
        text = documentOf(document);
    } else {
        for (const std::string& line : answer.lines)
            text += printable(line) + "\n";
    }
    if (!writeAll(answers, text))
        return false;
    if (!isDone)
        tell(answer.sentence);
    return true;
}

void giveFailure(const Stop& stop, bool asJson)
{
    tell(stop.sentence);
    if (asJson)
        writeAll(answers,
                 documentOf({{"ok", false}, {"error", errorOf(stop.status, stop.sentence)}}));
}

void tell(const std::string& line)
{
    writeAll(messages, "qvmailctl: " + printable(line) + "\n");
}

void prompt(const std::string& question)
{
    writeAll(messages, question);
}

Progress::Progress(std::size_t steps, bool isWanted)
    : m_steps(steps), m_isShown(isWanted && isatty(messages) == 1)
{
}

Progress::~Progress()
{
    prompt(m_line.empty() ? "" : "\r" + std::string(m_line.size(), ' ') + "\r");
}

void Progress::step()
{
    constexpr std::size_t Width = 40;
    ++m_done;
    const std::size_t filled = Width * m_done / m_steps;
    if (!m_isShown || filled == Width * (m_done - 1) / m_steps)
        return;
    m_line = "[" + std::string(filled, '#') + std::string(Width - filled, '.') + "] " +
             std::to_string(m_done) + " of " + std::to_string(m_steps);
    prompt("\r" + m_line);
}

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

bool mayOthersReadAnswer()
{
    struct stat entry {
    };
    constexpr mode_t Others = 044;
    return fstat(answers, &entry) == 0 && S_ISREG(entry.st_mode) && (entry.st_mode & Others) != 0;
}

std::string shown(std::string_view text)
{
    constexpr std::size_t Longest = 80;
    return text.size() > Longest ? printable(text.substr(0, Longest)) + "..." : printable(text);
}

std::string inQuotes(std::string_view text)
{
    return "\"" + shown(text) + "\"";
}
