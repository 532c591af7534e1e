#ifndef QV_LINEREADER_H
#define QV_LINEREADER_H

#include "maps/MapLines.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// LineReader - the lines of a file, in constant memory
//
// The line convention of all maps stands here: a file that ends in a line feed yields one more,
// empty, last line (so an empty file has one empty line), and a last line without a line feed is a
// line like any other with none after it. Whoever reads or rewrites a map says what becomes of that
// empty line. A line is valid until the next call.
//
// A read error ends the file: error() says which, and no part of a line is handed out. What is no
// regular file (RegularFile.h) counts as one; so does a line longer than any that people write,
// because a file with a hole would fill the memory.
class LineReader
{
public:
    // Reads all lines.
    explicit LineReader(const std::string& path);

    // Reads only the lines that contain text anywhere, and skips what lies between a block at a
    // time. Every line contains the empty text. from: how many bytes at the file's start are not
    // read.
    LineReader(const std::string& path, const std::string& text, std::size_t from = 0);

    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    bool isOpen() const { return m_descriptor >= 0; }

    // The errno of an open or a read that failed; 0 when none did.
    int error() const { return m_error; }

    // The same for people, to stand behind "FILE cannot be read: ".
    std::string reason() const;

    // The next line, without its line end. False when there is none.
    bool nextLine(std::string_view& line);

private:
    bool skipToText();
    bool readMore();

    int m_descriptor;
    int m_error;
    std::vector<char> m_buffer;
    std::size_t m_begin = 0; // what is read and not yet handed out is [m_begin, m_end)
    std::size_t m_end = 0;
    bool m_finished = false;
    std::string m_text; // empty: all lines
    Mark m_mark{};
};

#endif
