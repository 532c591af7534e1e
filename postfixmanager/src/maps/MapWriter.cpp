#include "system/LargeFilesAndDates.h"

#include "maps/MapWriter.h"

#include "system/RegularFile.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace
{
constexpr std::size_t BlockSize = std::size_t{64} * 1024;
}

MapWriter::MapWriter(const std::string& path, WorkFileUse use)
    : m_descriptor(
          openRegular(path, O_WRONLY | O_CREAT | (use == Appended ? O_APPEND : O_TRUNC), 0666))
{
    remember(m_descriptor < 0);
}

MapWriter::~MapWriter()
{
    close();
}

void MapWriter::writeLine(std::string_view line)
{
    m_pending.append(line).push_back('\n');
    if (m_pending.size() >= BlockSize)
        flush();
}

bool MapWriter::close()
{
    flush();
    if (isOpen())
        remember(::close(m_descriptor) != 0);
    m_descriptor = -1;
    errno = m_error;
    return m_error == 0;
}

void MapWriter::flush()
{
    std::string_view rest = m_pending;
    while (m_error == 0 && !rest.empty()) {
        const ssize_t count = write(m_descriptor, rest.data(), rest.size());
        if (count < 0 && errno == EINTR)
            continue;
        remember(count < 0);
        rest.remove_prefix(count < 0 ? 0 : count);
    }
    m_pending.clear();
}

void MapWriter::remember(bool failed)
{
    if (failed && m_error == 0)
        m_error = errno;
}
