#ifndef QV_MAPREADER_H
#define QV_MAPREADER_H

#include "maps/LineReader.h"

#include <cerrno>

// MapReader - the lines of a map, wherever it is now
//
// In a plain call that is the map itself. In a transaction it is the staged copy, once the
// transaction has changed the map; empty lines are then passed over, and a map that is missing or
// cannot be read to its end makes the commit refuse.
class MapReader
{
public:
    explicit MapReader(const std::string& map);

    // Reads only the lines that contain text anywhere.
    MapReader(const std::string& map, const std::string& text);

    bool isOpen() const { return m_lines.isOpen(); }

    // The next line, without its line end. False when there is none.
    bool nextLine(std::string_view& line);

    // Whether everything could be read. A missing map counts as read: it has nothing to read.
    bool succeeded() const { return m_lines.error() == 0 || m_lines.error() == ENOENT; }

private:
    void noteFailure() const;

    std::string m_map;
    LineReader m_lines;
};

// Whether the map is there. In a transaction a missing map makes the commit refuse.
bool mapExists(const std::string& map);

#endif
