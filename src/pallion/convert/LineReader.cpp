#include "pallion/convert/detail/LineReader.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <utility>

#if defined(__SSE2__) && defined(__x86_64__)
#include <emmintrin.h>
#endif

#include "pallion/detail/Platform.hpp"

namespace Pallion {

LineReader::LineReader(const std::string& name, std::uint64_t lineLimit, std::size_t blockSize, bool nonBlocking,
                       std::function<bool()> stillWanted)
    : stillWanted_(std::move(stillWanted)), lineLimit_(lineLimit), capacity_(blockSize) {
    source_ = openFileSource(name, SourceOpening{nonBlocking, stillWanted_});
    prepare();
}

LineReader::LineReader(const SourceFactory& factory, const std::string& name, std::uint64_t lineLimit,
                       std::size_t blockSize, std::function<bool()> stillWanted)
    : stillWanted_(std::move(stillWanted)), lineLimit_(lineLimit), capacity_(blockSize) {
    source_ = openSource(factory, name, SourceOpening{false, stillWanted_});
    prepare();
}

void LineReader::prepare() {
    if (!source_.isNull() && source_->openInterrupted()) interrupted_ = true;
    if (isOpen()) {
        size_ = source_->size();
        // A small file needs no block larger than itself (and one byte to see
        // its end); a file that shows no size (as those of /proc do) keeps the block.
        if (size_ > 0 && static_cast<std::uint64_t>(size_) < capacity_) capacity_ = static_cast<std::size_t>(size_) + 1;
    }
    buffer_.reset(new char[capacity_]);
}

void LineReader::startAt(std::uint64_t offset) {
    if (offset == 0 || !isOpen()) return;
    // The first line that starts at or after `offset` follows the first line
    // feed at or after the byte before it.
    const std::uint64_t before = offset - 1;
    if (source_->seek(before)) {
        offset_ = before;
    } else {
        while (offset_ + filled_ <= before) {
            discard();
            if (!refill()) return;
        }
        start_ = static_cast<std::size_t>(before - offset_);
    }
    skipLines(1);
    linesTaken_ = 0;  // lines are counted from the range's first one
}

bool LineReader::waitAgain() {
    if (!stillWanted_ || stillWanted_()) return true;
    interrupted_ = true;
    return false;
}

bool LineReader::refill() {
    if (atEnd_) return false;
    // Keep the bytes not yet handed out at the front; a line longer than the
    // buffer makes it grow, as a getline buffer would, but never much beyond
    // the line limit: the callers refuse a line before it outgrows that.
    if (start_ > 0) {
        std::memmove(buffer_.get(), buffer_.get() + start_, filled_ - start_);
        filled_ -= start_;
        offset_ += start_;
        start_ = 0;
    }
    if (filled_ == capacity_) {
        std::size_t larger = capacity_ * 2;
        // Room to see one byte more than the limit, reached without a step beyond it.
        if (lineLimit_ <= larger) larger = static_cast<std::size_t>(lineLimit_) + 1;
        std::unique_ptr<char[]> grown(new char[larger]);
        std::memcpy(grown.get(), buffer_.get(), filled_);
        buffer_ = std::move(grown);
        capacity_ = larger;
    }
    if (!isOpen()) {
        atEnd_ = true;
        return false;
    }
    std::int64_t got;
    do got = source_->read(buffer_.get() + filled_, capacity_ - filled_);
    while (got == Source::Interrupted && waitAgain());
    if (got <= 0) {
        // The end of the file; the plain Source gives an error as an end, a
        // host's Source may tell it apart.
        failed_ = got == Source::Failed;
        atEnd_ = true;
        return false;
    }
    if (!nulSeen_ && std::memchr(buffer_.get() + filled_, '\0', static_cast<std::size_t>(got)) != nullptr)
        nulSeen_ = true;
    filled_ += static_cast<std::size_t>(got);
    return true;
}

bool LineReader::nextLine(const char*& begin, const char*& end) {
    if (pastStop()) return false;
    std::size_t searched = start_;  // bytes before this hold no line feed
    for (;;) {
        if (const void* feed = std::memchr(buffer_.get() + searched, '\n', filled_ - searched)) {
            begin = buffer_.get() + start_;
            end = static_cast<const char*>(feed);
            if (static_cast<std::uint64_t>(end - begin) > lineLimit_) return refuse();
            start_ = static_cast<std::size_t>(end - buffer_.get()) + 1;
            ++linesTaken_;
            return true;
        }
        if (filled_ - start_ > lineLimit_) return refuse();
        searched = filled_ - start_;  // counted from the front, where refill moves the line
        if (!refill()) {
            // A part of a line cut off by a stop or a failure is no line.
            if (filled_ == start_ || interrupted_ || failed_) return false;
            begin = buffer_.get() + start_;
            end = buffer_.get() + filled_;
            start_ = filled_;
            ++linesTaken_;
            return true;
        }
    }
}

void LineReader::skipLines(std::uint64_t count) {
    std::uint64_t length = 0;  // bytes of the line being skipped that lay in earlier blocks
    while (count > 0) {
        if (const void* feed = std::memchr(buffer_.get() + start_, '\n', filled_ - start_)) {
            const auto at = static_cast<std::size_t>(static_cast<const char*>(feed) - buffer_.get());
            if (length + (at - start_) > lineLimit_) {
                refuse();
                return;
            }
            start_ = at + 1;
            length = 0;
            --count;
            ++linesTaken_;
            continue;
        }
        length += filled_ - start_;
        if (length > lineLimit_) {
            refuse();
            return;
        }
        discard();
        if (!refill()) return;
    }
}

namespace {

// The bytes that mark a line, as a table: 1 for a mark, looked up with no
// branch.
using MarkTable = std::array<std::uint8_t, 256>;

std::uint8_t markOf(const MarkTable& marks, char c) { return marks[static_cast<unsigned char>(c)]; }

// The line feeds among `count` bytes; with `marks`, also adds to `found` the
// feeds that a byte of `marks` follows (the byte behind the last one is not
// looked at).  Lines run some tens of bytes, so a feed is rare among the
// bytes: sixteen bytes are compared at once into a byte counter per lane,
// summed before a lane can overflow, and only the byte after a feed is held
// against the marks.
std::uint64_t lineFeedsIn(const char* bytes, std::size_t count, const MarkTable* marks, std::uint64_t& found) {
    std::uint64_t feeds = 0;
    std::size_t i = 0;
#if defined(__SSE2__) && defined(__x86_64__)
    constexpr std::size_t Lanes = 16;
    const __m128i feed = _mm_set1_epi8('\n');
    while (count - i >= Lanes) {
        // 255 vectors at most before a lane's counter could wrap.
        const std::size_t end = i + std::min<std::size_t>((count - i) / Lanes, 255) * Lanes;
        __m128i perLane = _mm_setzero_si128();
        for (; i < end; i += Lanes) {
            const __m128i isFeed = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i)), feed);
            perLane = _mm_sub_epi8(perLane, isFeed);
            if (marks == nullptr) continue;
            for (auto bits = static_cast<unsigned>(_mm_movemask_epi8(isFeed)); bits != 0; bits &= bits - 1) {
                const std::size_t after = i + static_cast<std::size_t>(__builtin_ctz(bits)) + 1;
                if (after < count) found += markOf(*marks, bytes[after]);
            }
        }
        const __m128i sums = _mm_sad_epu8(perLane, _mm_setzero_si128());
        feeds += static_cast<std::uint64_t>(_mm_cvtsi128_si64(sums)) +
                 static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(sums, sums)));
    }
#endif
    for (; i < count; ++i) {
        if (bytes[i] != '\n') continue;
        ++feeds;
        if (marks != nullptr && i + 1 < count) found += markOf(*marks, bytes[i + 1]);
    }
    return feeds;
}

}  // namespace

std::uint64_t LineReader::countLines(const std::string& marks, std::uint64_t* marked,
                                     const std::function<bool()>& keepGoing) {
    // Every line that starts before the stop counts: the one at hand, and one
    // after each line feed before the byte in front of the stop, unless that
    // feed is the last byte of the file.
    if (pastStop()) return 0;
    if (start_ == filled_ && !refill()) return 0;
    MarkTable set{};
    for (std::size_t m = 0; m < std::min(marks.size(), MarkCount); ++m) set[static_cast<unsigned char>(marks[m])] = 1;
    std::uint64_t found = 0;
    const auto isMarked = [&](char c) { return markOf(set, c) != 0; };
    std::uint64_t lines = 1;
    bool endsInFeed = false;
    if (isMarked(buffer_[start_])) ++found;
    for (;;) {
        const std::uint64_t front = offset_ + start_;
        std::size_t count = filled_ - start_;
        bool atStop = false;
        if (stopAt_ - 1 <= front + count) {
            count = static_cast<std::size_t>(stopAt_ - 1 - front);
            atStop = true;
        }
        const char* bytes = buffer_.get() + start_;
        if (count > 0 && endsInFeed && isMarked(bytes[0])) ++found;
        lines += lineFeedsIn(bytes, count, marks.empty() ? nullptr : &set, found);
        if (count > 0) endsInFeed = bytes[count - 1] == '\n';
        start_ += count;
        if (atStop) {
            // A feed right before the stop begins a line only if a byte follows it.
            if (endsInFeed && start_ == filled_) {
                discard();
                if (!refill()) --lines;
            }
            if (endsInFeed && start_ < filled_ && isMarked(buffer_[start_])) ++found;
            linesTaken_ += lines;
            if (marked != nullptr) *marked = found;
            return lines;
        }
        discard();
        if ((keepGoing && !keepGoing()) || !refill()) break;
    }
    if (marked != nullptr) *marked = found;
    if (endsInFeed) --lines;
    linesTaken_ += lines;
    return lines;
}

std::uint64_t LineReader::nextLineLength() {
    std::uint64_t length = 0;
    for (;;) {
        if (const void* feed = std::memchr(buffer_.get() + start_, '\n', filled_ - start_)) {
            const auto at = static_cast<std::size_t>(static_cast<const char*>(feed) - buffer_.get());
            length += at - start_;
            start_ = at + 1;
            return length;
        }
        length += filled_ - start_;
        discard();
        if (length > lineLimit_ || !refill()) return length;
    }
}

std::uint64_t estimateLines(const std::string& name, std::uint32_t headerLines, std::uint64_t lineLimit) {
    // Looked at before any open: a FIFO opened here would wait for a writer, or
    // take away the bytes that the reading of the file is to see.
    const platform::FileStatus status = platform::statusOf(name);
    if (status.kind != platform::FileKind::Regular || status.size <= 0) return UnknownLineCount;
    // Should the name have become something else since, the open does not wait
    // and the reader's own look at the descriptor shows no size.
    LineReader reader(name, lineLimit, std::size_t{1} << 16, true);
    if (!reader.isOpen() || reader.fileSize() <= 0) return UnknownLineCount;
    reader.skipLines(headerLines);
    const std::uint64_t length = reader.nextLineLength();
    if (length == 0) return UnknownLineCount;  // nothing to divide by
    const auto bytes = static_cast<std::uint64_t>(reader.fileSize());
    return bytes < length ? 1 : bytes / length;
}

}  // namespace Pallion
