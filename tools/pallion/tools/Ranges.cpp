#include "pallion/tools/Ranges.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

#include "pallion/Extensions.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/memory/Chunk.hpp"
#include "pallion/tools/CompressedSource.hpp"
#include "pallion/tools/Messages.hpp"
#include "pallion/tools/TableOptions.hpp"
#include "tessel/Grid.hpp"

namespace Pallion::Tools {

namespace {

// The text of nothing: what the conversion that builds the fields reads.
class EmptySource : public Source {
public:
    bool isOpen() const override { return true; }
    std::int64_t read(char* /*into*/, std::size_t /*count*/) override { return 0; }
};

std::uint64_t sizeOf(const std::string& name) {
    std::error_code error;
    const std::uint64_t size = std::filesystem::file_size(name, error);
    return error ? 0 : size;
}

// The byte at which the lines after the header of `name` begin; its size
// where it has no more lines.
std::uint64_t headerEnd(const Parameter& parameter, const std::string& name) {
    if (parameter.HeaderLines == 0) return 0;
    const SourcePtr source = openSource(parameter.OpenSource, name, SourceOpening{true, {}});
    if (source.isNull() || !source->isOpen()) return 0;
    std::vector<char> buffer(std::size_t{1} << 16);
    std::uint64_t offset = 0, feeds = 0;
    for (std::int64_t got; (got = source->read(buffer.data(), buffer.size())) > 0;
         offset += static_cast<std::uint64_t>(got))
        for (std::int64_t i = 0; i < got; ++i)
            if (buffer[static_cast<std::size_t>(i)] == '\n' && ++feeds == parameter.HeaderLines)
                return offset + static_cast<std::uint64_t>(i) + 1;
    return offset;
}

// The settings of `parameter` for one range of one file; no state, no hooks.
Parameter rangeParameter(const Parameter& settings, const std::string& file, const TableRange& range) {
    Parameter p;
    p.Files = new Ravelin::StringList;
    p.Files->push_back(file);
    p.HeaderLines = settings.HeaderLines;
    p.Parse = settings.Parse;
    p.Delimiter = settings.Delimiter;
    p.ChunkSize = settings.ChunkSize;
    p.LineSizeLimit = settings.LineSizeLimit;
    p.WholeTokens = settings.WholeTokens;
    p.Whitespace = settings.Whitespace;
    p.CommentPrefix = settings.CommentPrefix;
    p.SkipEmptyLines = settings.SkipEmptyLines;
    p.DecimalComma = settings.DecimalComma;
    p.OpenSource = settings.OpenSource;
    p.RangeBegin = range.begin;
    p.RangeEnd = range.end;
    return p;
}

// One range: what its count and its conversion gave.
struct Job {
    TableRange range;
    RangeRows counted;
    std::uint64_t firstRow = 0;   // in the sequential conversion
    std::uint64_t firstLine = 0;  // lines of its file before its first
    std::atomic<std::uint64_t> rows{0};
    bool failed = false;
    std::string text;
    std::exception_ptr thrown;
    std::uint64_t stored = 0;  // rows stored before the failure
    FailureRecord failure;
    std::vector<std::string> tokens;
};

// The blocks' chunks, each block's made when a range first asks for it, by
// that range's thread, at the rows the block will hold.  The first block's may
// be begun before the rows are counted, at fewer rows than it will hold, and
// is brought to its rows when it is first asked for.
class BlockChunks {
public:
    BlockChunks(std::vector<ContainerEntry> entries, std::uint32_t chunkSize)
        : entries_(std::move(entries)), chunkSize_(chunkSize) {}

    // Once the rows are counted, before any chunk() and while no begin() runs.
    void setRows(std::uint64_t rows) {
        rows_ = rows;
        count_ = rows / chunkSize_ + 1;
        std::unique_ptr<Slot[]> slots(new Slot[count_]);
        slots[0].chunks = std::move(first_);
        slots_ = std::move(slots);
    }

    // The first block's chunks at `rows` rows (with room for a whole block), before the rows are counted.
    // Memory that runs out here is left to the first range, which fails with it where it runs out again.
    // The chunks are made empty first, and their pages put in place by `threads` threads, each a share,
    // so that the kernel's zeroing of hundreds of megabytes of fresh pages does not all fall on one thread;
    // the chunks are then zeroed to their rows over pages that are there.
    void begin(std::uint64_t rows, unsigned threads) noexcept {
        rows = std::min<std::uint64_t>(rows, chunkSize_);
        try {
            std::vector<ChunkPtr> made;
            for (const ContainerEntry& each : entries_) made.push_back(makeBlockChunk(each.TypeId, 0, chunkSize_));
            std::vector<std::pair<char*, std::size_t>> memory;
            for (const ChunkPtr& chunk : made)
                if (chunk->rawData() != nullptr)
                    memory.emplace_back(static_cast<char*>(chunk->rawData()), rows * chunk->elementSize());
            populate(memory, threads);
            for (const ChunkPtr& chunk : made) resize(chunk, rows);
            first_ = std::move(made);
        } catch (const std::exception&) {}
    }

    std::uint64_t count() const { return count_; }

    // Null for a block beyond the counted rows.
    ChunkPtr chunk(std::size_t entry, std::uint64_t block) {
        if (block >= count_ || entry >= entries_.size()) return {};
        Slot& slot = slots_[block];
        const std::lock_guard<std::mutex> lock(locks_[block % LockCount]);
        const std::uint64_t rows = std::min<std::uint64_t>(chunkSize_, rows_ - block * chunkSize_);
        if (slot.chunks.empty()) {
            for (const ContainerEntry& each : entries_) slot.chunks.push_back(makeBlockChunk(each.TypeId, rows));
        } else if (!slot.sized) {
            for (const ChunkPtr& chunk : slot.chunks) resize(chunk, rows);
        }
        slot.sized = true;
        return slot.chunks[entry];
    }

    // The block as a host takes it: each entry's chunk in the order of a flush.
    FlushedBlock flushed(std::uint64_t block, const std::string& file) {
        FlushedBlock out{file, block, {}};
        for (std::size_t entry : flushOrder()) out.columns.emplace_back(entries_[entry].FieldName, chunk(entry, block));
        return out;
    }

    void release(std::uint64_t block) {
        Slot& slot = slots_[block];
        const std::lock_guard<std::mutex> lock(locks_[block % LockCount]);
        slot.chunks.clear();
        slot.chunks.shrink_to_fit();
    }

private:
    std::vector<std::size_t> flushOrder() const {
        std::vector<std::size_t> order;
        Tessel::forEachElementType([&]<class T>() {
            for (std::size_t e = 0; e < entries_.size(); ++e)
                if (entries_[e].TypeId == Tessel::typeIndexOf<T>()) order.push_back(e);
        });
        return order;
    }

    // Puts the pages of `memory` in place, the bytes shared among `threads` threads, this one of them; where
    // the kernel cannot be asked to (before Linux 5.14), the zeroing faults them in as it goes.
    static void populate(const std::vector<std::pair<char*, std::size_t>>& memory, unsigned threads) {
#if defined(__linux__)
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        std::size_t total = 0;
        for (const auto& [data, bytes] : memory) total += bytes;
        if (total < PopulateBytes || threads < 2) return;
        const std::size_t share = (total / threads + page - 1) / page * page;
        // The pages of byte range [from, to) of the chunks' memory taken as one.
        const auto pages = [&memory, page](std::size_t from, std::size_t to) {
            std::size_t at = 0;
            for (const auto& [data, bytes] : memory) {
                const std::size_t begin = std::max(from, at), end = std::min(to, at + bytes);
                at += bytes;
                if (begin >= end) continue;
                // Whole pages: from the page that holds the first byte to the one that holds the last.
                const auto pageOf = [page](char* byte) { return byte - reinterpret_cast<std::uintptr_t>(byte) % page; };
                char* const first = pageOf(data + (begin - (at - bytes)));
                char* const last = pageOf(data + (end - (at - bytes)) - 1);
                madvise(first, static_cast<std::size_t>(last - first) + page, PopulateWrite);
            }
        };
        splitAmongThreads((total + share - 1) / share,
                          [&](std::size_t t) { pages(share * t, std::min(total, share * (t + 1))); });
#else
        (void)memory;
        (void)threads;
#endif
    }

    static void resize(const ChunkPtr& chunk, std::uint64_t rows) {
        Tessel::forEachElementType([&]<class T>() {
            if (auto* typed = dynamic_cast<Ravelin::Chunk<T>*>(chunk.get())) typed->resize(rows);
        });
    }

    // A lock for every block would cost more than a block of one row: blocks share a few.
    static constexpr std::size_t LockCount = 64;
    // Below this, the first block's pages are left to the zeroing.
    static constexpr std::size_t PopulateBytes = std::size_t{16} << 20;
#if defined(__linux__)
    // madvise's MADV_POPULATE_WRITE, which older C libraries do not name.
#if defined(MADV_POPULATE_WRITE)
    static constexpr int PopulateWrite = MADV_POPULATE_WRITE;
#else
    static constexpr int PopulateWrite = 23;
#endif
#endif
    std::mutex locks_[LockCount];
    struct Slot {
        std::vector<ChunkPtr> chunks;
        bool sized = false;  // at the block's rows
    };
    std::vector<ContainerEntry> entries_;
    std::uint64_t chunkSize_, rows_ = 0, count_ = 1;
    std::vector<ChunkPtr> first_;
    std::unique_ptr<Slot[]> slots_;
};

// What every range's conversion looks at: whether to stop.
struct Stops {
    std::atomic<bool> user{false};                                 // the host's progress said stop
    std::atomic<std::size_t> after{static_cast<std::size_t>(-1)};  // ranges after this one (a failure) stop
    std::atomic<bool> refused{false};                              // a sink did not take a block

    bool stop(std::size_t job) const { return user.load() || refused.load() || job > after.load(); }
    void failedAt(std::size_t job) {
        std::size_t seen = after.load();
        while (job < seen && !after.compare_exchange_weak(seen, job)) {}
    }
};

// The progress object of one range: its rows for the host's sum, and the stop.
class RangeProgress : public Ravelin::LoaderProgress {
public:
    RangeProgress(const Parameter& parameter, Job& job, std::size_t index, const Stops& stops)
        : parameter_(parameter), job_(job), index_(index), stops_(stops) {}
    bool report(const std::string& /*message*/, std::uint32_t /*value*/, std::uint32_t /*total*/) override {
        job_.rows.store(parameter_.LineCount, std::memory_order_relaxed);
        return !stops_.stop(index_);
    }

private:
    const Parameter& parameter_;
    Job& job_;
    std::size_t index_;
    const Stops& stops_;
};

// Runs work(i) for i in [first, last), in order of i, on up to `threads`
// threads, while the caller's thread calls tick() at once, after each work
// done and otherwise every fiftieth of a second.  Without a thread the caller
// does the work itself, with a tick after each.
template <class Work, class Tick>
void onThreads(unsigned threads, std::size_t first, std::size_t last, Work&& work, Tick&& tick) {
    std::atomic<std::size_t> next{first};
    std::mutex mutex;
    std::condition_variable finished;
    unsigned running = 0;
    std::size_t done = 0;
    const auto worker = [&] {
        for (std::size_t i; (i = next.fetch_add(1)) < last;) {
            work(i);
            const std::lock_guard<std::mutex> lock(mutex);
            ++done;
            finished.notify_all();
        }
        const std::lock_guard<std::mutex> lock(mutex);
        --running;
        finished.notify_all();
    };
    std::vector<std::thread> pool;
    const auto wanted = static_cast<unsigned>(std::min<std::size_t>(threads, last - first));
    for (unsigned t = 0; t < wanted; ++t) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            ++running;
        }
        try {
            pool.emplace_back(worker);
        } catch (const std::system_error&) {  // no more threads: those that started do the work
            const std::lock_guard<std::mutex> lock(mutex);
            --running;
            break;
        }
    }
    if (pool.empty()) {
        for (std::size_t i; (i = next.fetch_add(1)) < last;) {
            work(i);
            tick();
        }
        return;
    }
    tick();  // at once, so that a stop asked for before the work began is heard
    std::unique_lock<std::mutex> lock(mutex);
    for (std::size_t seen = 0;;) {
        finished.wait_for(lock, std::chrono::milliseconds(20), [&] { return running == 0 || done != seen; });
        if (running == 0) break;
        seen = done;
        lock.unlock();
        tick();
        lock.lock();
    }
    lock.unlock();
    for (std::thread& thread : pool) thread.join();
}

}  // namespace

unsigned threadCount(unsigned threads) {
    if (threads != 0) return threads;
    const unsigned cores = std::thread::hardware_concurrency();
    return cores == 0 ? 1 : cores;
}

void splitAmongThreads(std::size_t parts, const std::function<void(std::size_t)>& part) {
    std::vector<std::thread> helpers;
    helpers.reserve(parts);  // so that only a thread's start can fail once one runs
    std::size_t p = 1;
    for (; p < parts; ++p) {
        try {
            helpers.emplace_back(part, p);
        } catch (const std::system_error&) {  // no more threads: this one does the rest
            break;
        }
    }
    part(0);
    for (; p < parts; ++p) part(p);
    for (std::thread& helper : helpers) helper.join();
}

std::vector<TableRange> planRanges(const Parameter& parameter, unsigned threads, std::uint64_t rangeBytes) {
    std::vector<TableRange> ranges;
    // A byte range the caller asked for is read as asked, on one thread.
    if (threads <= 1 || parameter.Files.isNull() || parameter.Files->empty() || parameter.ChunkSize == 0 ||
        !checkParseString(parameter.Parse).empty() || parameter.RangeBegin != 0 || parameter.RangeEnd != WholeFileEnd)
        return ranges;
    bool cut = false;
    const std::vector<std::string> files(parameter.Files->begin(), parameter.Files->end());
    for (std::size_t f = 0; f < files.size(); ++f) {
        const std::string& name = files[f];
        if (!isRegularFile(name) || compressionOf(name) != Compression::None) return {};
        const std::uint64_t size = sizeOf(name);
        std::uint64_t parts = 1;
        if (size >= SmallestSplitFile) {
            // As many rounds of one range per thread as keep each range within rangeBytes.
            const std::uint64_t round = std::max<std::uint64_t>(1, std::uint64_t{threads} * rangeBytes);
            parts = std::uint64_t{threads} * std::max<std::uint64_t>(1, (size + round - 1) / round);
        }
        cut = cut || parts > 1;
        for (std::uint64_t i = 0; i < parts; ++i)
            ranges.push_back({f, size / parts * i, i + 1 == parts ? WholeFileEnd : size / parts * (i + 1)});
    }
    if (!cut) ranges.clear();
    return ranges;
}

std::string buildFields(Tessel::Grid& grid, Parameter& parameter, std::uint64_t rows) {
    const SourceFactory reading = parameter.OpenSource;
    parameter.OpenSource = [](const std::string&, const SourceOpening&) { return SourcePtr(new EmptySource); };
    parameter.FirstRow = rows;
    parameter.BlockChunks = [](std::size_t, std::uint64_t) { return ChunkPtr(); };
    struct Restore {
        Parameter& parameter;
        const SourceFactory& reading;
        ~Restore() {
            parameter.OpenSource = reading;
            parameter.FirstRow = 0;
            parameter.BlockChunks = {};
        }
    } restore{parameter, reading};
    std::string text = ascii2z9(grid, parameter);
    parameter.LineCount = rows;
    return text;
}

std::string convertRanges(Tessel::Grid& grid, Parameter& parameter, const std::vector<TableRange>& ranges,
                          unsigned threads, const BlockRoute& route) {
    ParsedEntries parsed;
    if (ranges.empty() || parameter.Files.isNull() || parameter.ChunkSize == 0 ||
        !parseEntries(parameter.Parse, parsed).empty() || parsed.Entries.empty())
        return ascii2z9(grid, parameter);
    const std::vector<std::string> files(parameter.Files->begin(), parameter.Files->end());
    Ravelin::LoaderProgress* const progress = parameter.Progress.get();
    const std::string reportText(messages::RangesProgress);
    Stops stops;

    // The ranges, in file order, none beginning inside a header.
    std::vector<std::unique_ptr<Job>> jobs;
    std::vector<std::uint64_t> dataStart(files.size(), WholeFileEnd);
    for (const TableRange& range : ranges) {
        if (range.file >= files.size()) continue;
        std::uint64_t& start = dataStart[range.file];
        if (start == WholeFileEnd) start = headerEnd(parameter, files[range.file]);
        auto job = std::make_unique<Job>();
        job->range = range;
        jobs.push_back(std::move(job));
    }
    std::stable_sort(jobs.begin(), jobs.end(), [](const auto& a, const auto& b) {
        return a->range.file != b->range.file ? a->range.file < b->range.file : a->range.begin < b->range.begin;
    });
    // Only a file's first range reads its header: the others begin after it.
    for (std::size_t i = 1; i < jobs.size(); ++i)
        if (jobs[i]->range.file == jobs[i - 1]->range.file)
            jobs[i]->range.begin = std::max(jobs[i]->range.begin, dataStart[jobs[i]->range.file]);
    const auto report = [&](std::uint64_t value, std::uint64_t total) {
        if (progress == nullptr || stops.user.load()) return;
        if (!progress->report(reportText, static_cast<std::uint32_t>(std::min(value, total)),
                              static_cast<std::uint32_t>(total)))
            stops.user = true;
    };

    // Counted side by side: where each range's rows and lines begin.  Meanwhile
    // the first block's memory is zeroed up to somewhat fewer rows than the
    // files are judged to hold, which is all of it where no block size was
    // given: zeroing hundreds of megabytes is no work to wait for.
    BlockChunks blocks(parsed.Entries, parameter.ChunkSize);
    std::thread zeroing;
    if (const auto judged = judgedRows(files)) {
        try {
            zeroing = std::thread([&blocks, rows = *judged / 10 * 9, threads] { blocks.begin(rows, threads); });
        } catch (const std::system_error&) {  // no thread: the first range makes the block
        }
    }
    struct JoinAtExit {
        std::thread& thread;
        ~JoinAtExit() {
            if (thread.joinable()) thread.join();
        }
    } joinZeroing{zeroing};
    onThreads(
        threads, 0, jobs.size(),
        [&](std::size_t i) {
            Job& job = *jobs[i];
            Parameter p = rangeParameter(parameter, files[job.range.file], job.range);
            p.Progress = new RangeProgress(p, job, i, stops);
            job.counted = countRows(p, files[job.range.file]);
        },
        [&] { report(0, ~std::uint64_t{0}); });
    std::uint64_t rows = 0;
    std::vector<std::uint64_t> rowsBefore(files.size() + 1, 0);  // rows of the files before each
    for (std::size_t i = 0, lines = 0; i < jobs.size(); ++i) {
        Job& job = *jobs[i];
        if (i > 0 && jobs[i - 1]->range.file != job.range.file) lines = 0;
        job.firstRow = rows;
        job.firstLine = lines;
        rows += job.counted.Rows;
        lines += job.counted.Lines;
        rowsBefore[job.range.file + 1] = rows;
    }
    for (std::size_t f = 1; f <= files.size(); ++f) rowsBefore[f] = std::max(rowsBefore[f], rowsBefore[f - 1]);
    const std::uint64_t chunkSize = parameter.ChunkSize;
    if (zeroing.joinable()) zeroing.join();
    blocks.setRows(rows);
    // A full block is named after the file of its last row, the last block after the last file.
    const auto nameOf = [&](std::uint64_t block) -> const std::string& {
        if (block + 1 == blocks.count()) return files.back();
        const std::uint64_t last = (block + 1) * chunkSize - 1;
        std::size_t f = 0;
        while (f + 1 < files.size() && rowsBefore[f + 1] <= last) ++f;
        return files[f];
    };

    // Converted side by side, in file order as the threads get free, while the
    // caller's thread hands on each block once the ranges that hold its rows
    // are done.  Where the blocks are not kept, a range waits at a gate until
    // it is among the ranges that hold rows of the first block not handed on,
    // or among `ahead` ranges from the first with such rows, so that the
    // blocks held at once stay few; no thread waits for the others to finish
    // a round.
    const std::size_t ahead = 4 * std::max<std::size_t>(threads, 1);
    std::unique_ptr<bool[]> done(new bool[jobs.size()]());
    std::mutex gateMutex;
    std::condition_variable gateMoved;
    std::atomic<std::size_t> unfinished{0};                             // the first range not done, all before it done
    std::atomic<std::size_t> gate{route.keepBlocks ? jobs.size() : 0};  // ranges below it may begin
    std::size_t pending = 0, blockEnd = 0;  // the first range with rows not handed on; the first after its block
    std::uint64_t emitted = 0;              // blocks handed to onBlock
    std::string refused;                    // the text of a sink that did not take a block
    const auto moveGate = [&] {
        if (route.keepBlocks) return;
        const std::uint64_t from = emitted * chunkSize;  // the first row not handed on
        while (pending < jobs.size() && jobs[pending]->firstRow + jobs[pending]->counted.Rows <= from) ++pending;
        blockEnd = std::max(blockEnd, pending);
        while (blockEnd < jobs.size() && jobs[blockEnd]->firstRow < from + chunkSize) ++blockEnd;
        const std::lock_guard<std::mutex> lock(gateMutex);
        gate = std::max({gate.load(), pending + ahead, blockEnd});
        gateMoved.notify_all();
    };
    moveGate();
    const auto convertOne = [&](std::size_t i) {
        Job& job = *jobs[i];
        const auto unwanted = [&] { return stops.after.load() < i || stops.refused.load(); };
        {
            std::unique_lock<std::mutex> lock(gateMutex);
            gateMoved.wait(lock, [&] { return i < gate.load() || unwanted(); });
        }
        // Not wanted after a failure before it or a sink's refusal; a stop by the user is heard by its progress.
        if (!unwanted()) {
            Parameter p = rangeParameter(parameter, files[job.range.file], job.range);
            p.FirstRow = job.firstRow;
            p.FirstLine = job.firstLine;
            p.BlockChunks = [&blocks](std::size_t entry, std::uint64_t block) { return blocks.chunk(entry, block); };
            p.Progress = new RangeProgress(p, job, i, stops);
            Tessel::Grid scratch;
            try {
                job.text = ascii2z9(scratch, p);
                job.failed = !job.text.empty();
            } catch (...) {
                job.thrown = std::current_exception();
                job.failed = true;
            }
            job.rows.store(p.LineCount);
            if (job.failed) {
                job.stored = p.LineCount;
                job.failure = p.Failure;
                job.tokens = p.Tokens;
                stops.failedAt(i);
            }
        }
        const std::lock_guard<std::mutex> lock(gateMutex);
        done[i] = true;
        std::size_t first = unfinished.load();
        while (first < jobs.size() && done[first]) ++first;
        unfinished.store(first);
        gateMoved.notify_all();  // ranges after a failure need not wait
    };
    const auto emitUpTo = [&](std::uint64_t end) {
        for (; emitted < end && refused.empty(); ++emitted) {
            const FlushedBlock block = blocks.flushed(emitted, nameOf(emitted));
            if (route.onBlock) refused = route.onBlock(block);
            blocks.release(emitted);
        }
        if (!refused.empty()) {
            const std::lock_guard<std::mutex> lock(gateMutex);
            stops.refused = true;
            gateMoved.notify_all();
        }
    };
    onThreads(threads, 0, jobs.size(), convertOne, [&] {
        std::uint64_t sum = 0;
        for (const auto& job : jobs) sum += job->rows.load(std::memory_order_relaxed);
        parameter.LineCount = sum;
        report(sum, rows);
        // The blocks whose rows all lie in finished ranges, none of which failed.
        const std::size_t first = unfinished.load();
        if (route.keepBlocks || stops.after.load() < first) return;  // the hand-on after the run stops at a failure
        emitUpTo(first == jobs.size() ? blocks.count() : jobs[first]->firstRow / chunkSize);
        moveGate();
    });
    std::size_t failedJob = jobs.size();
    for (std::size_t i = 0; i < jobs.size() && failedJob == jobs.size(); ++i)
        if (jobs[i]->failed) failedJob = i;
    if (!route.keepBlocks) {
        if (failedJob < jobs.size())
            emitUpTo((jobs[failedJob]->firstRow + jobs[failedJob]->stored) / chunkSize);
        else
            emitUpTo(blocks.count());
    }

    // The grid: its fields, attributes and notes, then the blocks that a sequential run would have flushed.
    const Job* failed = failedJob < jobs.size() ? jobs[failedJob].get() : nullptr;
    const std::uint64_t endRow = failed != nullptr ? failed->firstRow + failed->stored : rows;
    const std::uint64_t kept = failed != nullptr ? endRow / chunkSize : blocks.count();
    const auto storeBlocks = [&] {
        if (!route.keepBlocks) return;
        parameter.BlockChunks = [&blocks](std::size_t entry, std::uint64_t block) {
            return blocks.chunk(entry, block);
        };
        for (std::uint64_t b = 0; b < kept; ++b) {
            storeBlock(grid, parameter, nameOf(b), b);
            if (route.onBlock && refused.empty()) refused = route.onBlock(blocks.flushed(b, nameOf(b)));
        }
        parameter.BlockChunks = {};
    };
    if (failed != nullptr && failed->thrown) {
        // The failing range once more, on the grid, alone: it throws as one
        // conversion would, after the fields, before the attribute and the notes.
        Parameter& p = parameter;
        const Ravelin::StringListPtr allFiles = p.Files;
        const Ravelin::ProgressPtr hostProgress = p.Progress;
        p.Files = new Ravelin::StringList;
        p.Files->push_back(files[failed->range.file]);
        p.Progress.reset();
        p.RangeBegin = failed->range.begin;
        p.RangeEnd = failed->range.end;
        p.FirstRow = failed->firstRow;
        p.FirstLine = failed->firstLine;
        p.BlockChunks = [&blocks](std::size_t entry, std::uint64_t block) { return blocks.chunk(entry, block); };
        std::exception_ptr thrown = failed->thrown;
        // Without the blocks, the grid keeps nothing of such a run, as on one thread.
        Tessel::Grid apart;
        try {
            (void)ascii2z9(route.keepBlocks ? grid : apart, p);
        } catch (...) {
            thrown = std::current_exception();
        }
        p.Files = allFiles;
        p.Progress = hostProgress;
        p.RangeBegin = 0;
        p.RangeEnd = WholeFileEnd;
        p.FirstRow = 0;
        p.FirstLine = 0;
        p.BlockChunks = {};
        p.LineCount = endRow;
        storeBlocks();
        std::rethrow_exception(thrown);
    }
    std::string text = buildFields(grid, parameter, endRow);
    if (!text.empty()) return text;
    storeBlocks();
    if (!refused.empty()) throw SinkRefused{std::move(refused)};
    if (failed == nullptr) return {};
    parameter.Failure = failed->failure;
    parameter.Tokens = failed->tokens;
    parameter.CurrentFile = files[failed->range.file];
    return failed->text;
}

}  // namespace Pallion::Tools
