#include "pallion/tools/OutputFile.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "pallion/tools/Messages.hpp"

namespace Pallion::Tools {

namespace {

std::atomic<int> stopAsked{0};

// The temporary files being written, where a signal handler can reach them
// without taking a lock: a slot is free (0), being filled (1) or live (2).
constexpr int Slots = 16;
constexpr std::size_t SlotBytes = 4096;
char slotPaths[Slots][SlotBytes];
std::atomic<int> slotStates[Slots];

int registerTemporary(const std::string& path) {
    if (path.size() >= SlotBytes) return -1;
    for (int slot = 0; slot < Slots; ++slot) {
        int expected = 0;
        if (!slotStates[slot].compare_exchange_strong(expected, 1)) continue;
        std::memcpy(slotPaths[slot], path.c_str(), path.size() + 1);
        slotStates[slot] = 2;
        return slot;
    }
    return -1;
}

void releaseTemporary(int slot) {
    if (slot >= 0) slotStates[slot] = 0;
}

// The part of a temporary name taken from the final name: short enough that
// the whole name stays within the 255 bytes a file name may have.
constexpr std::size_t KeptNameBytes = 200;

}  // namespace

void requestStop(int signal) noexcept {
    int none = 0;
    stopAsked.compare_exchange_strong(none, signal);
}

int stopSignal() noexcept { return stopAsked.load(); }

void clearStop() noexcept { stopAsked = 0; }

void removeTemporaries() noexcept {
    for (int slot = 0; slot < Slots; ++slot)
        if (slotStates[slot].load() == 2) ::unlink(slotPaths[slot]);
}

std::string writtenPath(const std::string& path) {
    std::filesystem::path at(path);
    for (int hops = 0; hops < 40; ++hops) {  // as many as the system follows
        std::error_code error;
        if (!std::filesystem::is_symlink(at, error)) break;
        const std::filesystem::path target = std::filesystem::read_symlink(at, error);
        if (error) break;
        at = target.is_absolute() ? target : at.parent_path() / target;
    }
    return at.string();
}

std::string outputProblem(const std::string& output) {
    namespace m = messages;
    const std::filesystem::path target(writtenPath(output));
    struct stat status {};
    if (::stat(target.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) return m::fill(m::IsAFolder, output.c_str());
        if (S_ISREG(status.st_mode) && status.st_nlink > 1)
            return m::fill(m::HardLinks, output.c_str(), static_cast<unsigned long long>(status.st_nlink));
    }
    const std::string folder = target.has_parent_path() ? target.parent_path().string() : ".";
    if (::stat(folder.c_str(), &status) != 0)
        return m::fill(m::FolderProblem, output.c_str(), folder.c_str(), std::strerror(errno));
    if (!S_ISDIR(status.st_mode))
        return m::fill(m::FolderProblem, output.c_str(), folder.c_str(), std::strerror(ENOTDIR));
    if (::access(folder.c_str(), W_OK | X_OK) != 0)
        return m::fill(m::FolderProblem, output.c_str(), folder.c_str(), std::strerror(errno));
    return {};
}

bool sameFile(const std::string& a, const std::string& b) {
    struct stat first {
    }, second{};
    if (::stat(a.c_str(), &first) == 0 && ::stat(b.c_str(), &second) == 0)
        return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
    std::error_code error, error2;
    const auto resolvedA = std::filesystem::weakly_canonical(writtenPath(a), error);
    const auto resolvedB = std::filesystem::weakly_canonical(writtenPath(b), error2);
    return !error && !error2 && resolvedA == resolvedB;
}

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {}

OutputFile::~OutputFile() {
    if (stream_ != nullptr) std::fclose(stream_);
    if (!temporary_.empty() && !committed_) ::unlink(temporary_.c_str());
    releaseTemporary(slot_);
}

void OutputFile::failWith(int error) { fail(std::strerror(error)); }

void OutputFile::fail(const std::string& what) {
    if (failure_.empty()) failure_ = messages::fill(messages::CannotWriteFile, path_.c_str(), what.c_str());
}

bool OutputFile::good() {
    if (failure_.empty() && stopSignal() != 0)
        failure_ = messages::fill(messages::StoppedBySignal, path_.c_str(), stopSignal());
    return failure_.empty();
}

bool OutputFile::open(bool stream) {
    // Written where a symlink leads, so that the link stays and its target gets the new contents.
    target_ = writtenPath(path_);
    struct stat replaced {};
    const bool replacing = ::stat(target_.c_str(), &replaced) == 0 && S_ISREG(replaced.st_mode);
    if (replacing && replaced.st_nlink > 1) {
        failure_ =
            messages::fill(messages::HardLinks, path_.c_str(), static_cast<unsigned long long>(replaced.st_nlink));
        return false;
    }
    if (!good()) return false;
    const std::filesystem::path final(target_);
    const std::filesystem::path folder = final.has_parent_path() ? final.parent_path() : ".";
    const std::string kept = final.filename().string().substr(0, KeptNameBytes);
    static std::atomic<unsigned> serial{0};
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        std::string name(1, '.');
        name.append(kept).append(1, '.').append(std::to_string(::getpid()));
        name.append(1, '.').append(std::to_string(serial++)).append(".tmp");
        temporary_ = (folder / name).string();
        fd = ::open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && errno != EEXIST) break;
    }
    if (fd < 0) {
        failWith(errno);
        temporary_.clear();
        return false;
    }
    slot_ = registerTemporary(temporary_);
    // A file replaced keeps its permission bits (and, for root, its owner); a new one has the umask's.
    if (replacing) {
        if (::geteuid() == 0 && ::fchown(fd, replaced.st_uid, replaced.st_gid) != 0) failWith(errno);
        if (::fchmod(fd, replaced.st_mode & 07777) != 0) failWith(errno);
    }
    if (!stream) {
        if (::close(fd) != 0) failWith(errno);
        return good();
    }
    stream_ = ::fdopen(fd, "wb");
    if (stream_ == nullptr) {
        failWith(errno);
        ::close(fd);
        return false;
    }
    return good();
}

void OutputFile::write(const char* data, std::size_t size) {
    if (stream_ == nullptr || !good() || size == 0) return;
    if (std::fwrite(data, 1, size, stream_) != size) failWith(errno);
}

bool OutputFile::readAt(std::uint64_t offset, char* data, std::size_t size) {
    if (stream_ == nullptr || !good()) return false;
    if (std::fflush(stream_) != 0) {
        failWith(errno);
        return false;
    }
    for (std::size_t done = 0; done < size;) {
        const ssize_t n = ::pread(::fileno(stream_), data + done, size - done, static_cast<off_t>(offset + done));
        if (n <= 0) {
            failWith(n == 0 ? EIO : errno);
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

void OutputFile::writeAt(std::uint64_t offset, const char* data, std::size_t size) {
    if (stream_ == nullptr || !good()) return;
    if (std::fflush(stream_) != 0) return failWith(errno);
    for (std::size_t done = 0; done < size;) {
        const ssize_t n = ::pwrite(::fileno(stream_), data + done, size - done, static_cast<off_t>(offset + done));
        if (n <= 0) return failWith(n == 0 ? EIO : errno);
        done += static_cast<std::size_t>(n);
    }
}

void OutputFile::move(std::uint64_t begin, std::uint64_t bytes, std::int64_t by) {
    // From the end when they move on, from the start when they move back, so
    // that nothing is overwritten before it is read.
    std::vector<char> piece(static_cast<std::size_t>(std::min<std::uint64_t>(bytes, 1u << 20)));
    for (std::uint64_t done = 0; done < bytes && good();) {
        const auto n = static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), bytes - done));
        const std::uint64_t from = by > 0 ? begin + bytes - done - n : begin + done;
        if (!readAt(from, piece.data(), n)) return;
        writeAt(static_cast<std::uint64_t>(static_cast<std::int64_t>(from) + by), piece.data(), n);
        done += n;
    }
    const auto end = static_cast<off_t>(static_cast<std::int64_t>(begin + bytes) + by);
    if (stream_ != nullptr && good() &&
        (std::fflush(stream_) != 0 || ::ftruncate(::fileno(stream_), end) != 0 ||
         std::fseek(stream_, 0, SEEK_END) != 0))
        failWith(errno);
}

std::string OutputFile::commit() {
    if (stream_ != nullptr) {
        if (std::fflush(stream_) != 0 || std::ferror(stream_) != 0) failWith(errno != 0 ? errno : EIO);
        // On disk before it takes the final name, so that a crash leaves the old file or the whole new one.
        if (failure_.empty() && ::fsync(::fileno(stream_)) != 0) failWith(errno);
        if (std::fclose(stream_) != 0) failWith(errno);
        stream_ = nullptr;
    } else if (!temporary_.empty() && failure_.empty()) {
        const int fd = ::open(temporary_.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0 || ::fsync(fd) != 0) failWith(errno);
        if (fd >= 0) ::close(fd);
    }
    if (good() && !temporary_.empty()) {
        if (std::rename(temporary_.c_str(), target_.c_str()) != 0)
            failWith(errno);
        else
            committed_ = true;
    }
    return failure_;
}

}  // namespace Pallion::Tools
