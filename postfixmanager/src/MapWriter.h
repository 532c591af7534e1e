#ifndef QV_MAPWRITER_H
#define QV_MAPWRITER_H

#include <string>
#include <string_view>

// MapWriter - writes lines to a map or work file, in constant memory
//
// What goes wrong while writing is not reported: the operations do not check it, and the backup
// copy is there for the administrator. Closes on leaving.
class MapWriter
{
public:
    // Append: a file that is there keeps its content, which stays in front. Truncate: it is
    // emptied. A file that is not there is made, with the mode that the process's umask leaves of
    // 0666.
    enum Mode { Append, Truncate };

    MapWriter(const std::string& path, Mode mode);
    ~MapWriter();
    MapWriter(const MapWriter&) = delete;
    MapWriter& operator=(const MapWriter&) = delete;

    bool isOpen() const { return m_descriptor >= 0; }

    // Writes the line and a line end.
    void writeLine(std::string_view line);

    void close();

private:
    void flush();

    int m_descriptor;
    std::string m_pending;
};

#endif
