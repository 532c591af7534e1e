#ifndef QV_MAPREADER_H
#define QV_MAPREADER_H

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// MapReader - the lines of a map file, in constant memory
//
// The line convention of all maps stands here: after the last line end one more, empty, line is
// seen (so an empty file has one empty line), and a last line without a line end is a line like any
// other with none after it. What readers and rewriters do with that empty line is theirs to say.
// A read error ends the file. A line is valid until the next call.
class MapReader
{
public:
    // Reads all lines.
    explicit MapReader(const std::string& path);

    // Reads only the lines that contain text anywhere, and skips what lies between a block at a
    // time. Every line contains the empty text.
    MapReader(const std::string& path, const std::string& text);

    ~MapReader();
    MapReader(const MapReader&) = delete;
    MapReader& operator=(const MapReader&) = delete;

    bool isOpen() const { return m_descriptor >= 0; }

    // The next line, without its line end. False when there is none.
    bool nextLine(std::string_view& line);

private:
    bool skipToText();
    const char* findText(const char* from, const char* to) const;
    bool readMore();

    int m_descriptor;
    std::vector<char> m_buffer;
    std::size_t m_begin = 0; // what is read and not yet handed out is [m_begin, m_end)
    std::size_t m_end = 0;
    bool m_finished = false;
    std::string m_text; // empty: all lines
    std::optional<std::boyer_moore_horspool_searcher<std::string::const_iterator>> m_longText;
};

#endif
