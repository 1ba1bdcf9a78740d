// The pages of a large block: huge pages advised, and zeros that cost nothing.
//
// A chunk is made at its full size and zeroed before its first row comes: 240 MB
// for a block of 10 million points, however short the table.  Two things keep
// that cheap.
//
// Huge pages: made of 4 KiB pages, a 240 MB block takes one page fault per
// page, some 60000 of them; advised before its first touch, it is made of
// 2 MiB pages, some 120 faults.  The advice only changes speed; where the
// kernel refuses it or the platform lacks it, nothing else changes.
//
// Released pages: the pages of a private anonymous mapping that are given back
// with madvise(MADV_DONTNEED) read as zero when next touched, and until then
// take neither time nor memory.  Zeroed that way, a chunk costs only the pages
// its rows are written into: a 2-million-row table in blocks of 10 million
// touches a fifth of each chunk, and an empty chunk made after a full block
// none.  This holds for private anonymous memory only (what malloc and operator
// new give on Linux); in a shared or a file mapping the released pages would
// come back with their old contents.  So the mapping is looked up in
// /proc/self/maps first, and wherever that cannot be made sure of, the caller
// writes the zeros itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

#if defined(__has_include)
#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#endif
#endif

namespace Ravelin {

// A smaller block is zeroed by writing, as std::vector does: it holds at most
// one huge page, and what releasing its pages could save is small beside the
// rest of a conversion.
inline constexpr std::size_t LargeBlockThreshold = std::size_t{4} << 20;

namespace LargeBlocks {

// Bytes [begin, end).
struct Span {
    char* begin;
    char* end;
};
// Addresses [begin, end), as /proc/self/maps gives them.
struct Range {
    std::uintptr_t begin;
    std::uintptr_t end;
};

#if defined(__linux__)
// The whole pages inside [data, data + bytes); empty if there are none.
inline Span wholePages(void* data, std::size_t bytes) noexcept {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    auto* const first = static_cast<char*>(data);
    const std::size_t head = (page - reinterpret_cast<std::uintptr_t>(first) % page) % page;
    if (bytes < head) return {first, first};
    return {first + head, first + head + (bytes - head) / page * page};
}

// True if one line of /proc/self/maps ("begin-end perms offset device inode
// path") describes private anonymous memory that the process may write:
// "rw-p" (the x of executable memory aside), no device, no inode, and a path
// that is empty, [heap] or [anon:name].  Gives the line's range in `range`.
inline bool privateAnonymous(const char* line, Range& range) noexcept {
    unsigned long begin = 0, end = 0, inode = 0;  // what %lx and %lu read
    char perms[5] = {}, device[6] = {};
    int path = -1;
    if (std::sscanf(line, "%lx-%lx %4s %*x %5s %lu %n", &begin, &end, perms, device, &inode, &path) < 5) return false;
    range = {begin, end};
    return perms[0] == 'r' && perms[1] == 'w' && perms[3] == 'p' && std::strcmp(device, "00:00") == 0 && inode == 0 &&
           path > 0 && (line[path] == '\0' || line[path] == '[');
}

// True if every page of `pages` lies in private anonymous memory.
inline bool allPrivateAnonymous(Span pages) noexcept {
    std::FILE* maps = std::fopen("/proc/self/maps", "re");
    if (maps == nullptr) return false;
    char* line = nullptr;
    std::size_t capacity = 0;
    // The pages below this address are known to be private anonymous.
    auto covered = reinterpret_cast<std::uintptr_t>(pages.begin);
    const auto end = reinterpret_cast<std::uintptr_t>(pages.end);
    bool answer = false;
    while (getline(&line, &capacity, maps) > 0) {
        Range range{};
        const bool anonymous = privateAnonymous(line, range);
        if (range.end <= covered) continue;
        if (range.begin > covered || !anonymous) break;  // a gap, or memory of another kind
        covered = range.end;
        if (covered >= end) {
            answer = true;
            break;
        }
    }
    std::free(line);  // NOLINT: getline's buffer comes from malloc
    std::fclose(maps);
    return answer;
}
#endif

}  // namespace LargeBlocks

// Advises the kernel to back the whole pages of a large block with huge pages.
inline void adviseHugePages(void* data, std::size_t bytes) noexcept {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    if (data == nullptr || bytes < LargeBlockThreshold) return;
    const LargeBlocks::Span pages = LargeBlocks::wholePages(data, bytes);
    if (pages.begin < pages.end) madvise(pages.begin, static_cast<std::size_t>(pages.end - pages.begin), MADV_HUGEPAGE);
#else
    (void)data;
    (void)bytes;
#endif
}

// Makes the `bytes` bytes at `data` zero, the whole pages among them by giving
// them back to the kernel and the ends by writing.  True if done.  False, with
// nothing changed, for a block below LargeBlockThreshold, one that does not lie
// wholly in private anonymous memory, and where the kernel refuses (memory
// locked with mlock, for one): the caller then writes the zeros.
inline bool zeroByReleasingPages(void* data, std::size_t bytes) noexcept {
#if defined(__linux__) && defined(MADV_DONTNEED)
    if (data == nullptr || bytes < LargeBlockThreshold) return false;
    const LargeBlocks::Span pages = LargeBlocks::wholePages(data, bytes);
    if (pages.begin == pages.end || !LargeBlocks::allPrivateAnonymous(pages)) return false;
    const auto length = static_cast<std::size_t>(pages.end - pages.begin);
    if (madvise(pages.begin, length, MADV_DONTNEED) != 0) return false;
    auto* const first = static_cast<char*>(data);
    std::memset(first, 0, static_cast<std::size_t>(pages.begin - first));
    std::memset(pages.end, 0, static_cast<std::size_t>(first + bytes - pages.end));
#if defined(VALGRIND_MAKE_MEM_DEFINED)
    // Memcheck cannot know that released pages read as zero.
    VALGRIND_MAKE_MEM_DEFINED(pages.begin, length);
#endif
    return true;
#else
    (void)data;
    (void)bytes;
    return false;
#endif
}

}  // namespace Ravelin
