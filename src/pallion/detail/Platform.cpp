#include "pallion/detail/Platform.hpp"

#include <cerrno>
#include <cstdint>

#include <fcntl.h>
#include <langinfo.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace Pallion::platform {

namespace {

FileStatus fromStat(const struct stat& status) {
    if (S_ISREG(status.st_mode)) return {FileKind::Regular, static_cast<std::int64_t>(status.st_size)};
    if (S_ISDIR(status.st_mode)) return {FileKind::Directory, -1};
    return {FileKind::Other, -1};
}

}  // namespace

FileStatus statusOf(const std::string& name) {
    struct stat status {};
    if (::stat(name.c_str(), &status) != 0) return {};
    return fromStat(status);
}

FileStatus statusOf(int descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) return {};
    return fromStat(status);
}

int openForReading(const std::string& name, bool nonBlocking) {
    const int descriptor = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | (nonBlocking ? O_NONBLOCK : 0));
    return descriptor < 0 && errno == EINTR ? Interrupted : descriptor;
}

void adviseSequential([[maybe_unused]] int descriptor) {
#if defined(POSIX_FADV_SEQUENTIAL)
    ::posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
#endif
}

std::int64_t readSome(int descriptor, char* into, std::size_t count) {
    const ssize_t got = ::read(descriptor, into, count);
    return got < 0 && errno == EINTR ? Interrupted : static_cast<std::int64_t>(got);
}

void closeFile(int descriptor) { ::close(descriptor); }

bool seekTo(int descriptor, std::uint64_t offset) {
    return ::lseek(descriptor, static_cast<off_t>(offset), SEEK_SET) == static_cast<off_t>(offset);
}

void adviseHugePages(void* data, std::size_t bytes) noexcept {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    if (data == nullptr || bytes < HugePageThreshold) return;
    // madvise takes whole pages: the first page boundary inside the block, and
    // the last one.
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    auto* const first = static_cast<char*>(data);
    const std::size_t head = (page - reinterpret_cast<std::uintptr_t>(first) % page) % page;
    if (bytes < head + page) return;
    madvise(first + head, (bytes - head) / page * page, MADV_HUGEPAGE);
#else
    (void)data;
    (void)bytes;
#endif
}

bool decimalPointIsDot() noexcept {
    const char* radix = nl_langinfo(RADIXCHAR);
    return radix != nullptr && radix[0] == '.' && radix[1] == '\0';
}

}  // namespace Pallion::platform
