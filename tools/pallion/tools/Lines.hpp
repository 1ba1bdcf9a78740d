// Lines of a text file as the host helpers look at them: read with a bound on
// what is kept (a failing line, the first rows; never a line of gigabytes
// held whole) and shown to a person.
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

// A byte for a terminal: a CR, a tab and a NUL as \r, \t and \0, any
// other byte below 0x20 and 0x7f (DEL) as \x and two hex digits, so that
// bytes taken from a file never reach a terminal as control sequences (ESC
// starts one, BEL ends one); any other byte as it is.
inline void appendShown(std::string& out, char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\r') {
        out += "\\r";
    } else if (c == '\t') {
        out += "\\t";
    } else if (c == '\0') {
        out += "\\0";
    } else if (byte < 0x20 || byte == 0x7f) {
        static constexpr char Hex[] = "0123456789abcdef";
        out += "\\x";
        out += Hex[byte >> 4];
        out += Hex[byte & 15];
    } else {
        out += c;
    }
}

// `text` for a person, each byte as appendShown gives it, and a text longer
// than `length` bytes cut there, with "..." behind.
inline std::string shown(const std::string& text, std::size_t length) {
    std::string out;
    for (char c : text.substr(0, length)) appendShown(out, c);
    if (text.size() > length) out += "...";
    return out;
}

// A message of one or more lines for a terminal: its line feeds and tabs
// kept, every other byte as appendShown gives it.
inline std::string shownLines(const std::string& text) {
    std::string out;
    for (char c : text)
        if (c == '\n' || c == '\t')
            out += c;
        else
            appendShown(out, c);
    return out;
}

}  // namespace Pallion::Tools
