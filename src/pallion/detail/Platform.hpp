// The operating system's services that the library uses, in one place, so
// that porting it means reading one file.  Each call is a thin wrapper that
// answers the library's question and hides the headers it needs.
#pragma once

#include <cstddef>

namespace Pallion::platform {

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
