// Reading a file as lines, from large blocks.
//
// A line is exactly what std::getline with '\n' gives on a stream opened in
// text mode on this platform: the bytes up to the next line feed, which is
// taken and dropped; a last line without a line feed counts like any other;
// nothing is translated, so a carriage return or a NUL stays in the line.
// The end of the file, or a read error, ends the lines, as failbit or badbit
// end a getline loop.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace Pallion {

class LineReader {
public:
    static constexpr std::size_t DefaultBlockSize = std::size_t{1} << 20;

    // Opens `name` for reading; isOpen() tells whether that worked.
    explicit LineReader(const std::string& name, std::size_t blockSize = DefaultBlockSize);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    bool isOpen() const { return descriptor_ >= 0; }

    // The size of the file in bytes when it is a regular file, else -1.
    std::int64_t fileSize() const { return size_; }

    // Skips up to `count` lines, as that many ignore(max, '\n') calls would;
    // stops as soon as the file has run out.
    void skipLines(std::uint64_t count);

    // The next line, its line end not included, in [begin, end).  The bytes
    // stay valid until the next call.  False when no line is left.
    bool nextLine(const char*& begin, const char*& end);

    // The length of the next line, read without being kept; 0 when no line is left.
    std::uint64_t nextLineLength();

    // Whether any byte read so far was a NUL, so that a line may hold one.
    bool sawNul() const { return nulSeen_; }

private:
    // Reads more bytes behind those not yet handed out; false at the end.
    bool refill();
    // Drops every byte read but not handed out.
    void discard() { start_ = filled_ = 0; }

    int descriptor_ = -1;
    std::int64_t size_ = -1;
    std::unique_ptr<char[]> buffer_;
    std::size_t capacity_;
    std::size_t start_ = 0;   // first byte not yet handed out
    std::size_t filled_ = 0;  // bytes in the buffer
    bool atEnd_ = false;
    bool nulSeen_ = false;
};

// The value of estimateLines when a file's lines cannot be judged.
inline constexpr std::uint64_t UnknownLineCount = ~std::uint64_t{0};

// How many lines a file is taken to hold: its size over the length of its
// first line after `headerLines` lines.  A judgement for progress reports
// (and for a host's block size), read apart from any reading of the file.
// UnknownLineCount where the file cannot be opened or measured, or has no
// line, or an empty one, after its header.
std::uint64_t estimateLines(const std::string& name, std::uint32_t headerLines);

}  // namespace Pallion
