#include "pallion/detail/Platform.hpp"

#include <cstdint>

#include <langinfo.h>
#include <unistd.h>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace Pallion::platform {

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
