// Asking the kernel to back a large block with huge pages.
//
// A chunk of 10 million points is 240 MB.  Made of 4 KiB pages, zeroing it
// takes one page fault per page, about 60000 of them, which costs more than
// reading a whole table.  Advised before its first touch, the same block is
// made of 2 MiB pages: some 120 faults.  The advice only changes speed; where
// the kernel refuses it or the platform lacks it, nothing else changes.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace Ravelin {

// Blocks below this size gain nothing from the advice: they hold at most one huge page.
inline constexpr std::size_t HugePageAdviceThreshold = std::size_t{4} << 20;

inline void adviseHugePages(void* data, std::size_t bytes) noexcept {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    if (data == nullptr || bytes < HugePageAdviceThreshold) return;
    constexpr std::size_t page = 4096;  // the advice needs a page-aligned start
    const std::size_t misalignment = reinterpret_cast<std::uintptr_t>(data) % page;
    const std::size_t skip = misalignment == 0 ? 0 : page - misalignment;
    if (bytes <= skip) return;
    const std::size_t length = (bytes - skip) / page * page;
    if (length > 0) madvise(static_cast<char*>(data) + skip, length, MADV_HUGEPAGE);
#else
    (void)data;
    (void)bytes;
#endif
}

}  // namespace Ravelin
