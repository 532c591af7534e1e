#include "system/LargeFilesAndDates.h"

#include "maps/LineReader.h"

#include "system/RegularFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr std::size_t FirstBufferSize = std::size_t{128} * 1024;

// Room for a list of half a million members. The buffer doubles from its first size, so this is
// that size times a power of two.
constexpr std::size_t LongestLine = std::size_t{16} * 1024 * 1024;
constexpr int LineTooLong = EMSGSIZE;

} // namespace

LineReader::LineReader(const std::string& path)
    : m_descriptor(openRegular(path, O_RDONLY)), m_error(m_descriptor < 0 ? errno : 0),
      m_buffer(m_descriptor < 0 ? 0 : FirstBufferSize)
{
}

LineReader::LineReader(const std::string& path, const std::string& text, std::size_t from)
    : LineReader(path)
{
    if (isOpen() && from > 0 && lseek(m_descriptor, static_cast<off_t>(from), SEEK_SET) < 0)
        m_error = errno;
    m_text = text;
    m_mark = markOf(m_text);
    // No line contains a line end.
    m_finished = text.find('\n') != std::string::npos;
}

LineReader::~LineReader()
{
    if (isOpen())
        close(m_descriptor);
}

std::string LineReader::reason() const
{
    if (m_error == NotRegular)
        return "it is no regular file; put the file itself there";
    if (m_error == LineTooLong)
        return "it has a line of more than 16 MiB; bring it back from a copy";
    return strerror(m_error);
}

bool LineReader::nextLine(std::string_view& line)
{
    if (!isOpen() || m_finished || (!m_text.empty() && !skipToText()))
        return false;

    std::size_t searched = 0;
    for (;;) {
        const char* const start = m_buffer.data() + m_begin;
        const std::size_t available = m_end - m_begin;
        const void* const lineEnd = memchr(start + searched, '\n', available - searched);
        if (lineEnd != nullptr) {
            const std::size_t length = static_cast<const char*>(lineEnd) - start;
            line = std::string_view(start, length);
            m_begin += length + 1;
            return true;
        }
        searched = available;
        if (!readMore()) {
            line = std::string_view(m_buffer.data() + m_begin, available);
            m_finished = true;
            return m_error == 0;
        }
    }
}

// Moves on to the start of the next line that contains the text. False when there is none.
bool LineReader::skipToText()
{
    for (;;) {
        const char* const start = m_buffer.data() + m_begin;
        const char* const end = m_buffer.data() + m_end;
        const std::size_t hit = placeOf(m_text, m_mark, std::string_view(start, end - start));
        const std::size_t searched = std::min<std::size_t>(hit, end - start);
        const void* const lineEndBefore = memrchr(start, '\n', searched);
        if (lineEndBefore != nullptr)
            m_begin += static_cast<const char*>(lineEndBefore) - start + 1;
        if (hit != std::string_view::npos)
            return true;
        if (!readMore()) {
            m_finished = true;
            return false;
        }
    }
}

// Reads on behind what is there, which moves to the front; a line longer than the buffer makes the
// buffer grow. False at the end of the file.
bool LineReader::readMore()
{
    const std::size_t kept = m_end - m_begin;
    memmove(m_buffer.data(), m_buffer.data() + m_begin, kept);
    m_begin = 0;
    m_end = kept;
    if (m_end == LongestLine) {
        m_error = LineTooLong;
        return false;
    }
    if (m_end == m_buffer.size())
        m_buffer.resize(2 * m_buffer.size());

    ssize_t count;
    do
        count = read(m_descriptor, m_buffer.data() + m_end, m_buffer.size() - m_end);
    while (count < 0 && errno == EINTR);
    if (count < 0)
        m_error = errno;
    if (count <= 0)
        return false;
    m_end += count;
    return true;
}
