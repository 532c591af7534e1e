#ifndef QV_MAPWRITER_H
#define QV_MAPWRITER_H

#include "maps/MapVariants.h"

#include <string>
#include <string_view>

// MapWriter - writes lines to a map or work file, in constant memory; closes it on leaving
class MapWriter
{
public:
    // Appended: a file that is there keeps its content, and lines are added behind it. Emptied: it
    // loses its content. A file that is not there is made, with the mode that the process's umask
    // leaves of 0666. What is no regular file is not opened (RegularFile.h).
    MapWriter(const std::string& path, WorkFileUse use);
    ~MapWriter();
    MapWriter(const MapWriter&) = delete;
    MapWriter& operator=(const MapWriter&) = delete;

    bool isOpen() const { return m_descriptor >= 0; }

    // Writes the line and a line end.
    void writeLine(std::string_view line);

    // Closes the file. Whether it was opened and took all lines; errno says why not.
    bool close();

private:
    void flush();
    void remember(bool failed);

    int m_descriptor;
    int m_error = 0;
    std::string m_pending;
};

#endif
