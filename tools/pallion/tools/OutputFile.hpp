// A file written under a temporary name in its own folder and renamed to its
// final name once complete: a failed write (a missing folder, a full disk, no
// permission, a stop by a signal) leaves nothing under the final name, and the
// failure names it.  Every output of the hosts (PLY, HDF5, PNG) goes through it.
//
// Overwriting: a symlink is followed and its target replaced; the replaced
// file's permission bits are kept.  A file with more than one hard link is
// refused, since renaming a new file over one of its names would leave the
// other names with the old contents.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace Pallion::Tools {

// A stop asked for by a signal: its number, 0 while none was asked for.
// requestStop is safe in a signal handler; an OutputFile stops writing and
// commits nothing once a stop was asked for.
void requestStop(int signal) noexcept;
int stopSignal() noexcept;
// Forgets a stop, for a process that goes on writing after one (a test).
void clearStop() noexcept;
// Unlinks the temporary files being written now; safe in a signal handler
// that ends the process at once.
void removeTemporaries() noexcept;

// The file that writing `path` replaces or makes: its symlinks followed.
std::string writtenPath(const std::string& path);

// Why `output` cannot be written, found before anything is converted: its
// folder is missing or not writable, it is a folder, or it has other hard
// links.  Empty when it can be.
std::string outputProblem(const std::string& output);

// Whether two names lead to one file: the same device and inode, or the same
// path once resolved (for files that do not exist yet).
bool sameFile(const std::string& a, const std::string& b);

class OutputFile {
public:
    explicit OutputFile(std::string path);
    ~OutputFile();  // removes the temporary file unless it was committed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Makes the temporary file; with `stream` also opens it for write() and stream().
    bool open(bool stream = true);
    const std::string& temporaryPath() const { return temporary_; }
    std::FILE* stream() const { return stream_; }
    void write(const char* data, std::size_t size);
    // What was written, read back and overwritten in place (the stream flushed
    // first; the stream goes on at its end): a header patched at the end, or
    // records rewritten.  Bytes past the end make the file longer.
    bool readAt(std::uint64_t offset, char* data, std::size_t size);
    void writeAt(std::uint64_t offset, const char* data, std::size_t size);
    // Moves the `bytes` bytes at `begin` by `by` bytes (a header that grew or
    // shrank before them), a megabyte at a time; the file ends after them.
    void move(std::uint64_t begin, std::uint64_t bytes, std::int64_t by);
    // Records a failure of a writer that writes the temporary file itself
    // (`what` follows the file's name); the first failure is kept.
    void fail(const std::string& what);
    // False once a write failed or a stop was asked for.
    bool good();
    // Closes the file and gives it its final name; the empty text, or the failure.
    std::string commit();
    // What went wrong so far, naming the final file; empty when nothing did.
    const std::string& failure() const { return failure_; }

private:
    void failWith(int error);

    std::string path_, target_, temporary_, failure_;
    std::FILE* stream_ = nullptr;
    int slot_ = -1;
    bool committed_ = false;
};

}  // namespace Pallion::Tools
