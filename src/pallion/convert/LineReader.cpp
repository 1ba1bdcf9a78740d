#include "pallion/convert/LineReader.hpp"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace Pallion {

LineReader::LineReader(const std::string& name, std::size_t blockSize)
    : buffer(new char[blockSize]), capacity(blockSize) {
    descriptor = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
#if defined(POSIX_FADV_SEQUENTIAL)
    if (descriptor >= 0) ::posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
#endif
}

LineReader::~LineReader() {
    if (descriptor >= 0) ::close(descriptor);
}

bool LineReader::refill() {
    if (atEnd) return false;
    // Keep the bytes not yet handed out at the front; a line longer than the
    // buffer makes it grow, as a getline buffer would.
    if (start > 0) {
        std::memmove(buffer.get(), buffer.get() + start, filled - start);
        filled -= start;
        start = 0;
    }
    if (filled == capacity) {
        std::unique_ptr<char[]> larger(new char[capacity * 2]);
        std::memcpy(larger.get(), buffer.get(), filled);
        buffer = std::move(larger);
        capacity *= 2;
    }
    for (;;) {
        const ssize_t got = ::read(descriptor, buffer.get() + filled, capacity - filled);
        if (got > 0) {
            if (!nulSeen && std::memchr(buffer.get() + filled, '\0', static_cast<std::size_t>(got)) != nullptr)
                nulSeen = true;
            filled += static_cast<std::size_t>(got);
            return true;
        }
        if (got < 0 && errno == EINTR) continue;
        atEnd = true;  // the end of the file, or an error, which ends the lines the same way
        return false;
    }
}

bool LineReader::nextLine(const char*& begin, const char*& end) {
    std::size_t searched = start;  // bytes before this hold no line feed
    for (;;) {
        if (const void* feed = std::memchr(buffer.get() + searched, '\n', filled - searched)) {
            begin = buffer.get() + start;
            end = static_cast<const char*>(feed);
            start = static_cast<std::size_t>(end - buffer.get()) + 1;
            return true;
        }
        searched = filled - start;  // counted from the front, where refill moves the line
        if (!refill()) {
            if (filled == start) return false;
            begin = buffer.get() + start;
            end = buffer.get() + filled;
            start = filled;
            return true;
        }
    }
}

void LineReader::skipLines(std::uint64_t count) {
    while (count > 0) {
        if (const void* feed = std::memchr(buffer.get() + start, '\n', filled - start)) {
            start = static_cast<std::size_t>(static_cast<const char*>(feed) - buffer.get()) + 1;
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
        if (const void* feed = std::memchr(buffer.get() + start, '\n', filled - start)) {
            const auto at = static_cast<std::size_t>(static_cast<const char*>(feed) - buffer.get());
            length += at - start;
            start = at + 1;
            return length;
        }
        length += filled - start;
        discard();
        if (!refill()) return length;
    }
}

}  // namespace Pallion
