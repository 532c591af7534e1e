#include "LargeFilesAndDates.h"

#include "MapReader.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace
{
constexpr std::size_t FirstBufferSize = 128 * 1024;
}

MapReader::MapReader(const std::string& path)
    : m_descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)),
      m_buffer(m_descriptor < 0 ? 0 : FirstBufferSize)
{
}

MapReader::~MapReader()
{
    if (isOpen())
        close(m_descriptor);
}

bool MapReader::nextLine(std::string_view& line)
{
    if (!isOpen() || m_finished)
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
            return true;
        }
    }
}

bool MapReader::nextLineWith(std::string_view text, std::string_view& line)
{
    // A match across line ends would be no match of one line.
    if (!isOpen() || m_finished || text.find('\n') != std::string_view::npos)
        return false;

    for (;;) {
        const char* const start = m_buffer.data() + m_begin;
        const std::size_t available = m_end - m_begin;
        const void* const hit = memmem(start, available, text.data(), text.size());
        const std::size_t searched =
            hit == nullptr ? available : static_cast<const char*>(hit) - start;
        const void* const lineEndBefore = memrchr(start, '\n', searched);
        if (lineEndBefore != nullptr)
            m_begin += static_cast<const char*>(lineEndBefore) - start + 1;
        if (hit != nullptr)
            return nextLine(line);
        if (!readMore()) {
            m_finished = true;
            return false;
        }
    }
}

// Reads on behind what is there, which moves to the front; a line longer than the buffer makes the
// buffer grow. False at the end of the file.
bool MapReader::readMore()
{
    const std::size_t kept = m_end - m_begin;
    memmove(m_buffer.data(), m_buffer.data() + m_begin, kept);
    m_begin = 0;
    m_end = kept;
    if (m_end == m_buffer.size())
        m_buffer.resize(2 * m_buffer.size());

    ssize_t count;
    do
        count = read(m_descriptor, m_buffer.data() + m_end, m_buffer.size() - m_end);
    while (count < 0 && errno == EINTR);
    if (count <= 0)
        return false;
    m_end += count;
    return true;
}
