// One conversion run as many: each large regular file cut into byte ranges,
// the ranges' rows counted and then converted side by side on several
// threads, each range straight into the blocks of the sequential conversion,
// so that the grid ends up equal to the one a single conversion makes.  The
// library starts no thread: these helpers do, one conversion per range.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "pallion/Pallion.hpp"
#include "pallion/tools/Driver.hpp"

namespace Tessel {
class Grid;
}

namespace Pallion::Tools {

// A file's share of the conversion: the lines that start in [begin, end) of
// file number `file` of the Parameter's list.
struct TableRange {
    std::size_t file = 0;
    std::uint64_t begin = 0;
    std::uint64_t end = WholeFileEnd;
};

// A file smaller than this is one range.
inline constexpr std::uint64_t SmallestSplitFile = std::uint64_t{4} << 20;
// About the bytes of one range.  Ranges are handed to the threads one at a
// time as each thread gets free, so that a thread that runs slower (a core
// shared with other work, a virtual CPU the host holds back) takes fewer of
// them instead of holding up the end; a range costs an open and a seam, so
// they are not cut much finer than this.
inline constexpr std::uint64_t RangeBytes = std::uint64_t{16} << 20;

// The ranges of `parameter`'s files for `threads` threads: every file a plain
// regular one, the large ones cut into ranges of equal bytes, a multiple of
// `threads` of them, each about `rangeBytes` or smaller.  Empty where the
// conversion stays whole and sequential: one thread, a file that is no regular
// file (standard input, a pipe, a FIFO, a device) or is compressed, or no
// file large enough to be cut.
std::vector<TableRange> planRanges(const Parameter& parameter, unsigned threads, std::uint64_t rangeBytes = RangeBytes);

// A block sink's refusal, on its way out of a conversion to runTable.
struct SinkRefused {
    std::string text;
};

// Converts `parameter` (filled as for ascii2z9) into `grid` with the ranges
// `ranges` on `threads` threads, and gives what ascii2z9 would give: the
// empty text, the first failure in file order (its line counted from the
// start of its file), or the standard exception that the first failing row
// throws, rethrown on the caller's thread.  The blocks before the failure stay,
// as in a sequential run.  A range that begins inside the header lines
// begins after them.  Progress: `parameter.Progress` hears, on the caller's
// thread, of the rows of all ranges (also in parameter.LineCount), and a
// false answer stops every range.  The blocks go to `route.onBlock` in file
// order on the caller's thread, each as soon as the ranges that hold its rows
// are done, also while later ranges are converted; without keepBlocks a range
// is begun only while fewer than four per thread are under way from the
// first unfinished one, each block is let go once it is taken, and the grid
// keeps no block; a sink's refusal is thrown as SinkRefused once the
// grid has its fields.  `parameter` keeps the state of a
// sequential run: the container, the counters, the failure record.
std::string convertRanges(Tessel::Grid& grid, Parameter& parameter, const std::vector<TableRange>& ranges,
                          unsigned threads, const BlockRoute& route = {});

// Builds in `grid` what a conversion of `parameter` leaves there besides its
// blocks (the representation, the fields in their order, the EPSG attribute,
// the notes) by a conversion that reads no byte of any file and stores no
// block, and gives its text.  `parameter` then holds the counters of a
// conversion that stored `rows` rows.
std::string buildFields(Tessel::Grid& grid, Parameter& parameter, std::uint64_t rows);

// The machine's cores where `threads` is 0, else `threads`.
unsigned threadCount(unsigned threads);

// Runs part(0) to part(parts - 1) side by side: part 0 on the caller's
// thread, each other on a thread of its own, or on the caller's where no
// thread can be started; returns when all are done.
void splitAmongThreads(std::size_t parts, const std::function<void(std::size_t)>& part);

}  // namespace Pallion::Tools
