// Every call into the operating system that the library makes, in one place,
// so that porting it means reading one file: what a file is, opening, reading
// and closing it, the advice given on files and memory, and the locale's
// decimal point.  The rest of the library sees plain values and never an errno.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Pallion::platform {

enum class FileKind : std::uint8_t {
    Missing,    // no such name, or it cannot be looked at
    Regular,    // a file with a size that can be read twice
    Directory,  // opens, but has no lines
    Other,      // a FIFO, a pipe, a device, a socket: read once, as it comes
};

struct FileStatus {
    FileKind kind = FileKind::Missing;
    std::int64_t size = -1;  // bytes, for a regular file only
};

// What `name` is, looked at without opening it (stat).
FileStatus statusOf(const std::string& name);
// What an open descriptor is (fstat).
FileStatus statusOf(int descriptor);

// What openForReading and readSome give when a signal interrupted them before
// anything happened (a handler installed without SA_RESTART): the caller
// decides whether to try again.
inline constexpr int Interrupted = -2;

// Opens `name` for reading: the descriptor, -1 where that fails, or
// Interrupted.  With `nonBlocking`, an open that would wait (a FIFO without a
// writer) fails at once instead.
int openForReading(const std::string& name, bool nonBlocking);
// Tells the kernel that the descriptor is read from front to back.
void adviseSequential(int descriptor);
// Reads up to `count` bytes; the number read, 0 at the end, -1 on an error,
// or Interrupted.
std::int64_t readSome(int descriptor, char* into, std::size_t count);
void closeFile(int descriptor);
// Moves the descriptor of a regular file to byte `offset`; false where it cannot.
bool seekTo(int descriptor, std::uint64_t offset);

// Blocks from this size on are worth backing with huge pages: below it a
// block holds at most one or two of them.
inline constexpr std::size_t HugePageThreshold = std::size_t{4} << 20;

// Advises the kernel to back the whole pages of [data, data + bytes) with huge
// pages, when the block is at least HugePageThreshold long and before its
// pages are first touched: a block of 240 MB then costs some 120 page faults
// instead of 60000.  Advice only: where the kernel refuses it or the platform
// lacks it, nothing else changes.
void adviseHugePages(void* data, std::size_t bytes) noexcept;

// True when the calling thread's locale writes the decimal point as '.'.
bool decimalPointIsDot() noexcept;

}  // namespace Pallion::platform
