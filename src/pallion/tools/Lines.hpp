// Reading a line of a text file with a bound on what is kept: the host
// helpers look at lines (a failing one, the first rows) and must not hold a
// line of gigabytes to do so.
#pragma once

#include <cstddef>
#include <ios>
#include <istream>
#include <string>

namespace Pallion::Tools {

// Reads the next line (its line end removed) into `line`, keeping at most
// `keep` bytes of it; `length` gets its full length, or stops at `stopAfter`
// bytes where the line is longer (the rest stays unread).  False at the end
// of the input.
inline bool readLine(std::istream& in, std::string& line, std::size_t keep, std::size_t& length,
                     std::size_t stopAfter = static_cast<std::size_t>(-1)) {
    line.clear();
    length = 0;
    std::streambuf* buffer = in.rdbuf();
    bool any = false;
    for (int c = buffer->sbumpc(); c != std::char_traits<char>::eof(); c = buffer->sbumpc()) {
        any = true;
        if (c == '\n') return true;
        if (line.size() < keep) line += static_cast<char>(c);
        if (++length == stopAfter) return true;
    }
    in.setstate(std::ios::eofbit);
    return any;
}

// Skips the next line; false at the end of the input.
inline bool skipLine(std::istream& in) {
    std::streambuf* buffer = in.rdbuf();
    int c = buffer->sbumpc();
    if (c == std::char_traits<char>::eof()) return false;
    while (c != '\n' && c != std::char_traits<char>::eof()) c = buffer->sbumpc();
    return true;
}

}  // namespace Pallion::Tools
