// Reading a file as lines, from large blocks.
//
// A line is exactly what std::getline with '\n' gives on a stream opened in
// text mode on this platform: the bytes up to the next line feed, which is
// taken and dropped; a last line without a line feed counts like any other;
// nothing is translated, so a carriage return or a NUL stays in the line.
// The end of the file, or a read error, ends the lines, as failbit or badbit
// end a getline loop.
//
// A line may not grow without bound: one longer than the reader's line limit
// (a file without any line feed, /dev/zero) ends the lines as well, with
// lineTooLong() set, once that many bytes have been read into it.  The reader
// then holds at most about one and a half times the limit.
//
// The file is opened once, as a Source (the library's plain one, or a host's).
// Whatever it is (a FIFO, a pipe, a device, a compressed stream), the reader
// only reads it from front to back; only a regular file has a size.
// An open or a read that waits (a FIFO without a writer, a pipe without data)
// and is interrupted by a signal asks `stillWanted` whether to go on waiting;
// without one, or when it says yes, it waits again.  A no ends the reading,
// with interrupted() set.  A Source that fails ends the lines with failed() set.
//
// A byte range: startAt(offset) drops the bytes before the first line that
// starts at or after `offset` (a line starts at byte 0 and after every line
// feed), and stopAt(offset) ends the lines before the first one that starts at
// or after `offset`; a line that starts before it is read to its end.  Ranges
// that meet ([a, b) and [b, c)) thus hand out every line exactly once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "pallion/convert/Source.hpp"

namespace Pallion {

// The longest line read unless a caller says otherwise: 256 MiB.
inline constexpr std::uint64_t DefaultLineSizeLimit = std::uint64_t{1} << 28;

class LineReader {
public:
    static constexpr std::size_t DefaultBlockSize = std::size_t{1} << 20;

    // Opens `name` for reading; isOpen() tells whether that worked.  Lines of
    // more than `lineLimit` bytes, their line end not counted, are refused.
    // With `nonBlocking`, an open that would wait for a FIFO's writer fails.
    explicit LineReader(const std::string& name, std::uint64_t lineLimit = DefaultLineSizeLimit,
                        std::size_t blockSize = DefaultBlockSize, bool nonBlocking = false,
                        std::function<bool()> stillWanted = {});
    // Reads `name` through the Source that `factory` opens (the plain one where it is empty).
    LineReader(const SourceFactory& factory, const std::string& name, std::uint64_t lineLimit, std::size_t blockSize,
               std::function<bool()> stillWanted);
    ~LineReader() = default;
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    bool isOpen() const { return !source_.isNull() && source_->isOpen(); }

    // The size of the file in bytes when it is a regular file, else -1.
    std::int64_t fileSize() const { return size_; }

    // Before any other reading: begins at the first line that starts at or
    // after byte `offset`.  The bytes before it are skipped by a seek where the
    // Source allows one, else read and dropped.
    void startAt(std::uint64_t offset);
    // Hands out no line that starts at or after byte `offset`.
    void stopAt(std::uint64_t offset) { stopAt_ = offset; }

    // Skips up to `count` lines, as that many ignore(max, '\n') calls would;
    // stops as soon as the file has run out, or at a line over the limit.
    void skipLines(std::uint64_t count);

    // The next line, its line end not included, in [begin, end).  The bytes
    // stay valid until the next call.  False when no line is left, or when
    // the next line is longer than the limit.
    bool nextLine(const char*& begin, const char*& end);

    // The lines left, counted without being handed out: those that start
    // before the stop and hold a byte.  A count of line feeds; the line limit
    // is not looked at.  With `marks` (up to MarkCount bytes), `marked` also
    // gets the number of those lines that begin with one of them.  A
    // `keepGoing` that says no, asked after each block, ends the count there.
    static constexpr std::size_t MarkCount = 6;
    std::uint64_t countLines(const std::string& marks = {}, std::uint64_t* marked = nullptr,
                             const std::function<bool()>& keepGoing = {});

    // The length of the next line, read without being kept; 0 when no line is
    // left.  Stops counting a little beyond the limit.
    std::uint64_t nextLineLength();

    // Whether any byte read so far was a NUL, so that a line may hold one.
    bool sawNul() const { return nulSeen_; }

    // Whether the lines ended at a line longer than the limit.
    bool lineTooLong() const { return tooLong_; }
    // Whether the open or the reading ended because `stillWanted` said no.
    bool interrupted() const { return interrupted_; }
    // Whether the Source failed part-way; failure() says why.
    bool failed() const { return failed_; }
    std::string failure() const { return source_.isNull() ? std::string() : source_->failure(); }
    // Lines taken so far, skipped ones included; the number of the line being
    // read is one more.
    std::uint64_t linesTaken() const { return linesTaken_; }

private:
    // Reads more bytes behind those not yet handed out; false at the end.
    bool refill();
    // Drops every byte read but not handed out.
    void discard() {
        offset_ += filled_;
        start_ = filled_ = 0;
    }
    // Marks the lines as ended by a line over the limit.
    bool refuse() {
        tooLong_ = true;
        atEnd_ = true;
        discard();
        return false;
    }

    // Whether to wait again after a signal; sets interrupted_ when not.
    bool waitAgain();
    // Whether the line that begins at start_ begins at or after stopAt_.
    bool pastStop() const { return offset_ + start_ >= stopAt_; }
    // Fits the buffer to the Source once it is open.
    void prepare();

    std::function<bool()> stillWanted_;
    SourcePtr source_;
    std::int64_t size_ = -1;
    std::uint64_t lineLimit_;
    std::unique_ptr<char[]> buffer_;
    std::size_t capacity_;
    std::size_t start_ = 0;   // first byte not yet handed out
    std::size_t filled_ = 0;  // bytes in the buffer
    std::uint64_t linesTaken_ = 0;
    std::uint64_t offset_ = 0;  // the file's byte at the front of the buffer
    std::uint64_t stopAt_ = ~std::uint64_t{0};
    bool atEnd_ = false;
    bool failed_ = false;
    bool nulSeen_ = false;
    bool tooLong_ = false;
    bool interrupted_ = false;
};

// The value of estimateLines when a file's lines cannot be judged.
inline constexpr std::uint64_t UnknownLineCount = ~std::uint64_t{0};

// How many lines a file is taken to hold: its size over the length of its
// first line after `headerLines` lines.  A judgement for progress reports
// (and for a host's block size), read apart from any reading of the file.
//
// Only a regular file with a size is judged: what `name` is is looked at
// before it is opened, so that a FIFO, a pipe, a device or a file of /proc
// (which shows the size 0) is never opened for it, nor read ahead.  They give
// UnknownLineCount, as does a file that cannot be opened, has no line, or an
// empty one, after its header.  A first line is measured up to `lineLimit`.
std::uint64_t estimateLines(const std::string& name, std::uint32_t headerLines,
                            std::uint64_t lineLimit = DefaultLineSizeLimit);

}  // namespace Pallion
