#include "LargeFilesAndDates.h"

#include "MapWriter.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace
{
constexpr std::size_t BlockSize = std::size_t{64} * 1024;
}

MapWriter::MapWriter(const std::string& path, Mode mode)
    : m_descriptor(open(path.c_str(),
                        O_WRONLY | O_CREAT | O_CLOEXEC | (mode == Append ? O_APPEND : O_TRUNC),
                        0666))
{
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

void MapWriter::close()
{
    flush();
    if (isOpen())
        ::close(m_descriptor);
    m_descriptor = -1;
}

void MapWriter::flush()
{
    std::string_view rest = m_pending;
    while (isOpen() && !rest.empty()) {
        const ssize_t count = write(m_descriptor, rest.data(), rest.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            break;
        rest.remove_prefix(count);
    }
    m_pending.clear();
}
