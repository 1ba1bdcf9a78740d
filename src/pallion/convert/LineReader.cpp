#include "pallion/convert/detail/LineReader.hpp"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Pallion {

LineReader::LineReader(const std::string& name, std::size_t blockSize) : capacity_(blockSize) {
    descriptor_ = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ >= 0) {
        // A small file needs no block larger than itself (and one byte to see its end).
        struct stat status {};
        if (::fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode)) {
            size_ = static_cast<std::int64_t>(status.st_size);
            if (static_cast<std::uint64_t>(size_) < capacity_) capacity_ = static_cast<std::size_t>(size_) + 1;
        }
#if defined(POSIX_FADV_SEQUENTIAL)
        ::posix_fadvise(descriptor_, 0, 0, POSIX_FADV_SEQUENTIAL);
#endif
    }
    buffer_.reset(new char[capacity_]);
}

LineReader::~LineReader() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

bool LineReader::refill() {
    if (atEnd_) return false;
    // Keep the bytes not yet handed out at the front; a line longer than the
    // buffer makes it grow, as a getline buffer would.
    if (start_ > 0) {
        std::memmove(buffer_.get(), buffer_.get() + start_, filled_ - start_);
        filled_ -= start_;
        start_ = 0;
    }
    if (filled_ == capacity_) {
        std::unique_ptr<char[]> larger(new char[capacity_ * 2]);
        std::memcpy(larger.get(), buffer_.get(), filled_);
        buffer_ = std::move(larger);
        capacity_ *= 2;
    }
    for (;;) {
        const ssize_t got = ::read(descriptor_, buffer_.get() + filled_, capacity_ - filled_);
        if (got > 0) {
            if (!nulSeen_ && std::memchr(buffer_.get() + filled_, '\0', static_cast<std::size_t>(got)) != nullptr)
                nulSeen_ = true;
            filled_ += static_cast<std::size_t>(got);
            return true;
        }
        if (got < 0 && errno == EINTR) continue;
        atEnd_ = true;  // the end of the file, or an error, which ends the lines the same way
        return false;
    }
}

bool LineReader::nextLine(const char*& begin, const char*& end) {
    std::size_t searched = start_;  // bytes before this hold no line feed
    for (;;) {
        if (const void* feed = std::memchr(buffer_.get() + searched, '\n', filled_ - searched)) {
            begin = buffer_.get() + start_;
            end = static_cast<const char*>(feed);
            start_ = static_cast<std::size_t>(end - buffer_.get()) + 1;
            return true;
        }
        searched = filled_ - start_;  // counted from the front, where refill moves the line
        if (!refill()) {
            if (filled_ == start_) return false;
            begin = buffer_.get() + start_;
            end = buffer_.get() + filled_;
            start_ = filled_;
            return true;
        }
    }
}

void LineReader::skipLines(std::uint64_t count) {
    while (count > 0) {
        if (const void* feed = std::memchr(buffer_.get() + start_, '\n', filled_ - start_)) {
            start_ = static_cast<std::size_t>(static_cast<const char*>(feed) - buffer_.get()) + 1;
            --count;
            continue;
        }
        discard();
        if (!refill()) return;
    }
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
        if (!refill()) return length;
    }
}

std::uint64_t estimateLines(const std::string& name, std::uint32_t headerLines) {
    LineReader reader(name, std::size_t{1} << 16);
    if (!reader.isOpen() || reader.fileSize() < 0) return UnknownLineCount;
    reader.skipLines(headerLines);
    const std::uint64_t length = reader.nextLineLength();
    if (length == 0) return UnknownLineCount;  // nothing to divide by
    const auto bytes = static_cast<std::uint64_t>(reader.fileSize());
    return bytes < length ? 1 : bytes / length;
}

}  // namespace Pallion
