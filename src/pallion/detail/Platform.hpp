// Every call into the operating system that the library makes, in one place:
// what a file is, opening, reading and closing it, and the advice given on it.
// The rest of the library sees plain values and never an errno.
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

}  // namespace Pallion::platform
