// A file written under a temporary name in its own folder and renamed to its
// final name once complete: a failed write (a missing folder, a full disk, no
// permission) leaves nothing under the final name, and the failure names it.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace Pallion::Tools {

class OutputFile {
public:
    explicit OutputFile(std::string path);
    ~OutputFile();  // removes the temporary file unless it was committed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Makes the temporary file; with `stream` also opens it for write().
    bool open(bool stream = true);
    const std::string& temporaryPath() const { return temporary_; }
    void write(const char* data, std::size_t size);
    // Closes the file and gives it its final name; the empty text, or the failure.
    std::string commit();
    // What went wrong so far, naming the final file; empty when nothing did.
    const std::string& failure() const { return failure_; }

private:
    void fail(int error);

    std::string path_, temporary_, failure_;
    std::FILE* stream_ = nullptr;
    bool committed_ = false;
};

}  // namespace Pallion::Tools
