#include "maps/MapReader.h"

#include "stage/Stage.h"

#include <unistd.h>

namespace
{

std::string whereToRead(const std::string& map)
{
    Stage* const stage = openStage();
    return stage == nullptr ? map : stage->mapToRead(map);
}

} // namespace

MapReader::MapReader(const std::string& map) : m_map(map), m_lines(whereToRead(map))
{
    noteFailure();
}

MapReader::MapReader(const std::string& map, const std::string& text)
    : m_map(map), m_lines(whereToRead(map), text)
{
    noteFailure();
}

bool MapReader::nextLine(std::string_view& line)
{
    Stage* const stage = openStage();
    while (m_lines.nextLine(line))
        if (stage == nullptr || !line.empty())
            return true;
    noteFailure();
    return false;
}

void MapReader::noteFailure() const
{
    if (Stage* const stage = succeeded() ? nullptr : openStage())
        stage->fail(m_map + " cannot be read: " + m_lines.reason());
}

bool mapExists(const std::string& map)
{
    return access(whereToRead(map).c_str(), F_OK) == 0;
}
