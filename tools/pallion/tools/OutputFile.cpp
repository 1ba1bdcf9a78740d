#include "pallion/tools/OutputFile.hpp"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

#include "pallion/tools/Messages.hpp"

namespace Pallion::Tools {

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {}

OutputFile::~OutputFile() {
    if (stream_ != nullptr) std::fclose(stream_);
    if (!temporary_.empty() && !committed_) ::unlink(temporary_.c_str());
}

void OutputFile::fail(int error) {
    if (failure_.empty()) failure_ = messages::fill(messages::CannotWriteFile, path_.c_str(), std::strerror(error));
}

bool OutputFile::open(bool stream) {
    const std::filesystem::path final(path_);
    const std::filesystem::path folder = final.has_parent_path() ? final.parent_path() : ".";
    // A name of its own in the same folder, made with the usual permissions (the umask's).
    static std::atomic<unsigned> serial{0};
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        std::string name(1, '.');
        name.append(final.filename().string()).append(1, '.').append(std::to_string(::getpid()));
        name.append(1, '.').append(std::to_string(serial++)).append(".tmp");
        temporary_ = (folder / name).string();
        fd = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && errno != EEXIST) break;
    }
    if (fd < 0) {
        fail(errno);
        temporary_.clear();
        return false;
    }
    if (!stream) {
        ::close(fd);
        return true;
    }
    stream_ = ::fdopen(fd, "wb");
    if (stream_ == nullptr) {
        fail(errno);
        ::close(fd);
        return false;
    }
    return true;
}

void OutputFile::write(const char* data, std::size_t size) {
    if (stream_ == nullptr || !failure_.empty() || size == 0) return;
    if (std::fwrite(data, 1, size, stream_) != size) fail(errno);
}

std::string OutputFile::commit() {
    if (stream_ != nullptr) {
        if (std::fflush(stream_) != 0) fail(errno);
        if (std::fclose(stream_) != 0) fail(errno);
        stream_ = nullptr;
    }
    if (failure_.empty() && !temporary_.empty()) {
        if (std::rename(temporary_.c_str(), path_.c_str()) != 0)
            fail(errno);
        else
            committed_ = true;
    }
    return failure_;
}

}  // namespace Pallion::Tools
