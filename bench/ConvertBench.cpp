// End-to-end conversion speed against a parse-only loop, in one run on the
// same generated tables:
//   - xyz: 10 million rows of three coordinates with three decimals,
//     blank-delimited (about 310 MB), "Positions:point:0+1+2";
//   - trajectory: 2 million rows of seven columns, the trajectory parse string;
//   - lidar: 5 million rows "x y z r g b intensity class return" read as
//     point, rgb, float, uint8_t and int;
//   - a 3-row table with the default ChunkSize.
// The parse-only loop is the floor for any reader of a table: the file read
// with read() in 1 MiB blocks, every number converted by the library's fast
// number conversion (integers by std::stoi's rules, low bits kept) and stored
// one after the other into fresh anonymous memory advised to use huge pages;
// no rows, no checks, no fallback.  Each measurement runs in a child process
// of its own, so that its peak memory (maximum resident set) is its own.
//
//   - the opt-in readings on the xyz numbers, each against the plain reading
//     of the single-blank table: whole tokens on that table; whitespace on
//     the same numbers aligned in columns of 14 (45 bytes a row, 45 % more
//     than the single-blank table of 31), and as numpy.savetxt(fmt="%12.3f")
//     writes them (39 bytes a row), each the whitespace target (at most
//     1.10); whitespace on the single-blank table, and whole tokens with
//     whitespace on the aligned one, beside them; and whole tokens against
//     the plain reading on the lidar table, whose integer columns the check
//     holds to their types' ranges.  Both files of a pair are read once
//     before the clock runs, so that they come from the page cache; the two
//     readings take turns (A B, B A, ...) --runs times (11 unless given), and
//     the ratio of the best runs is printed with the spread of the rounds'
//     ratios and the ratio of the best CPU times, which other work on the
//     machine disturbs less than the wall clock.
//
//   convert_bench [--scale F (1)] [--runs N (5; 11 for the readings)] [--keep DIR]
//                 [--only SHAPE --reader parse|ascii2z9]  (one run in this process, for callgrind)
//                 [--only readings [--reader plain|whole|whitespace[-aligned|-savetxt]|whole-whitespace-aligned|
//                                             lidar|whole-lidar]]
//                   (the opt-in readings alone; with --reader one conversion in this process)
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "pallion/convert/detail/Ascii2Z9.hpp"
#include "pallion/convert/detail/FastNumbers.hpp"
#include "pallion/trajectory/detail/Messages.hpp"

namespace {

using Clock = std::chrono::steady_clock;

enum class Shape { Xyz, Trajectory, Lidar, AlignedXyz, SavetxtXyz };

void writeTable(const std::filesystem::path& file, std::uint64_t rows, Shape shape) {
    std::FILE* out = std::fopen(file.c_str(), "wb");
    std::mt19937_64 random(42);
    std::uniform_int_distribution<long> metres(0, 99999999);
    char line[256];
    for (std::uint64_t i = 0; i < rows; ++i) {
        int n;
        if (shape == Shape::Trajectory)
            n = std::snprintf(line, sizeof line, "%.6f %ld.%03ld %ld.%03ld %ld.%03ld %.5f %.5f %.4f\n",
                              172800.0 + static_cast<double>(i) * 0.005, 512000 + metres(random) % 100000,
                              metres(random) % 1000, 5403000 + metres(random) % 100000, metres(random) % 1000,
                              300 + metres(random) % 50, metres(random) % 1000, (metres(random) % 20000) / 1e4 - 1,
                              (metres(random) % 20000) / 1e4 - 1, (metres(random) % 3600000) / 1e4);
        else if (shape == Shape::Lidar)
            n = std::snprintf(line, sizeof line, "%ld.%03ld %ld.%03ld %ld.%03ld %ld %ld %ld %ld.%02ld %ld %ld\n",
                              512000 + metres(random) % 100000, metres(random) % 1000,
                              5403000 + metres(random) % 100000, metres(random) % 1000, 300 + metres(random) % 50,
                              metres(random) % 1000, metres(random) % 256, metres(random) % 256, metres(random) % 256,
                              metres(random) % 4096, metres(random) % 100, metres(random) % 20, 1 + metres(random) % 5);
        else if (shape == Shape::SavetxtXyz)  // the numbers of Xyz as numpy.savetxt(fmt="%12.3f") writes them
            n = std::snprintf(line, sizeof line, "%8ld.%03ld %8ld.%03ld %8ld.%03ld\n", 512000 + metres(random) % 100000,
                              metres(random) % 1000, 5403000 + metres(random) % 100000, metres(random) % 1000,
                              300 + metres(random) % 50, metres(random) % 1000);
        else if (shape == Shape::AlignedXyz)  // the numbers of Xyz in columns, as printf("%14.3f") aligns them
            n = std::snprintf(line, sizeof line, "%10ld.%03ld %10ld.%03ld %10ld.%03ld\n",
                              512000 + metres(random) % 100000, metres(random) % 1000,
                              5403000 + metres(random) % 100000, metres(random) % 1000, 300 + metres(random) % 50,
                              metres(random) % 1000);
        else
            n = std::snprintf(line, sizeof line, "%ld.%03ld %ld.%03ld %ld.%03ld\n", 512000 + metres(random) % 100000,
                              metres(random) % 1000, 5403000 + metres(random) % 100000, metres(random) % 1000,
                              300 + metres(random) % 50, metres(random) % 1000);
        std::fwrite(line, 1, static_cast<std::size_t>(n), out);
    }
    std::fclose(out);
}

// What the parse-only loop makes of each column of a row.
enum class Kind { Double, Float, Byte, Int };

// Where the parse-only loop leaves a sum of what it stored, so that its stores cannot be left out.
volatile unsigned sink = 0;

// Converts one number at p into `out` and moves both on; false if the number is no plain one.
template <class C>
bool parseInto(const char*& p, const char* stop, unsigned char*& out) {
    C value;
    const char* end;
    if (!Pallion::detail::fastNumber(p, stop, value, end)) return false;
    std::memcpy(out, &value, sizeof value);
    out += sizeof value;
    p = end;
    return true;
}

// Reads the file in 1 MiB blocks and parses every number, the columns of a
// row as `kinds` says; gives the count.
std::uint64_t parseOnly(const std::filesystem::path& file, const std::vector<Kind>& kinds) {
    const int fd = open(file.c_str(), O_RDONLY);
    struct stat st {};
    if (fd < 0 || fstat(fd, &st) != 0) return 0;
    const auto capacity = static_cast<std::size_t>(st.st_size / 2 + 64) * sizeof(double);  // a value per two bytes
    void* memory = mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return 0;
    madvise(memory, capacity, MADV_HUGEPAGE);
    auto* out = static_cast<unsigned char*>(memory);
    std::vector<char> block(std::size_t{1} << 20);
    std::size_t kept = 0, column = 0;
    std::uint64_t count = 0;
    for (;;) {
        const ssize_t got = read(fd, block.data() + kept, block.size() - kept);
        if (got < 0) return 0;
        const std::size_t filled = kept + static_cast<std::size_t>(got);
        const char* p = block.data();
        const char* const end = p + filled;
        // Parse up to the last line end; the part behind it waits for the next block.
        const char* last = got == 0 ? end : static_cast<const char*>(memrchr(p, '\n', filled));
        if (last == nullptr) {
            block.resize(block.size() * 2);
            kept = filled;
            continue;
        }
        const char* const stop = got == 0 ? end : last + 1;
        while (p < stop) {
            while (p < stop && (*p == ' ' || *p == '\n')) {
                if (*p == '\n') column = 0;
                ++p;
            }
            if (p >= stop) break;
            bool parsed = false;
            switch (kinds[column]) {
                case Kind::Double:
                    parsed = parseInto<double>(p, stop, out);
                    break;
                case Kind::Float:
                    parsed = parseInto<float>(p, stop, out);
                    break;
                case Kind::Byte:
                    parsed = parseInto<std::uint8_t>(p, stop, out);
                    break;
                case Kind::Int:
                    parsed = parseInto<int>(p, stop, out);
                    break;
            }
            if (!parsed) return count;
            ++count;
            if (++column == kinds.size()) column = 0;
        }
        if (got == 0) break;
        kept = static_cast<std::size_t>(end - stop);
        std::memmove(block.data(), stop, kept);
    }
    close(fd);
    // Read the values back sparsely, so that their stores cannot be left out.
    unsigned sum = 0;
    for (auto* q = static_cast<unsigned char*>(memory); q < out; q += 4096) sum += *q;
    sink = sum;
    munmap(memory, capacity);
    return count;
}

// The opt-in readings a conversion is measured with.
struct Readings {
    bool whole = false, whitespace = false;
};

std::uint64_t convert(const std::filesystem::path& file, const std::string& parse, Readings readings = {}) {
    Tessel::Grid grid;
    Pallion::Parameter parameter;
    parameter.Files = new Ravelin::StringList{file.string()};
    parameter.Parse = parse;
    parameter.WholeTokens = readings.whole;
    parameter.Whitespace = readings.whitespace;
    const std::string result = Pallion::ascii2z9(grid, parameter);
    if (!result.empty()) {
        std::fprintf(stderr, "conversion failed: %s\n", result.c_str());
        std::exit(1);
    }
    return parameter.LineCount;
}

struct Measure {
    double seconds;
    double peakMB;
    double cpuSeconds = 0;  // the CPU time of `work`, user and system: what other work on the machine delays
};

// The CPU time this process has used so far.
double cpuNow() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Runs `work` in a child process; gives its time and its peak memory.  The
// child exits 1 unless `work` gives `expected`.
Measure inChild(const std::function<std::uint64_t()>& work, std::uint64_t expected) {
    int channel[2];
    if (pipe(channel) != 0) std::exit(1);
    const pid_t child = fork();
    if (child == 0) {
        const auto start = Clock::now();
        const double cpuStart = cpuNow();
        const std::uint64_t got = work();
        const double times[2] = {std::chrono::duration<double>(Clock::now() - start).count(), cpuNow() - cpuStart};
        if (write(channel[1], times, sizeof times) != sizeof times) _exit(1);
        _exit(got == expected ? 0 : 1);
    }
    close(channel[1]);
    double times[2] = {};
    const bool heard = read(channel[0], times, sizeof times) == sizeof times;
    close(channel[0]);
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    if (!heard || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "a measurement failed or counted wrong\n");
        std::exit(1);
    }
    return {times[0], static_cast<double>(usage.ru_maxrss) / 1024.0, times[1]};
}

// How often each case runs; the best run counts.  The two readers take turns,
// so that a slow spell of the machine falls on both.
int runs = 5;
bool runsGiven = false;

struct Table {
    const char* label;
    Shape shape;
    std::string parse;
    std::vector<Kind> kinds;
    std::uint64_t rows;
    std::filesystem::path file;
};

void measure(const Table& t) {
    const double mb = static_cast<double>(std::filesystem::file_size(t.file)) / 1e6;
    const std::uint64_t numbers = t.rows * t.kinds.size();
    Measure floor{1e9, 0}, ours{1e9, 0};
    for (int i = 0; i < runs; ++i) {
        const Measure a = inChild([&] { return parseOnly(t.file, t.kinds); }, numbers);
        const Measure b = inChild([&] { return convert(t.file, t.parse); }, t.rows);
        if (a.seconds < floor.seconds) floor = a;
        if (b.seconds < ours.seconds) ours = b;
    }
    std::printf(
        "%-10s %9llu rows %7.1f MB | parse-only %6.3f s %6.0f MiB | ascii2z9 %6.3f s %6.0f MiB %7.1f MB/s | "
        "ratio %4.2f\n",
        t.label, static_cast<unsigned long long>(t.rows), mb, floor.seconds, floor.peakMB, ours.seconds, ours.peakMB,
        mb / ours.seconds, ours.seconds / floor.seconds);
    std::fflush(stdout);
}

// Reads a file once, so that the runs measured take it from the page cache.
void warm(const std::filesystem::path& file) {
    const int fd = open(file.c_str(), O_RDONLY);
    if (fd < 0) return;
    std::vector<char> block(std::size_t{1} << 20);
    while (read(fd, block.data(), block.size()) > 0) {}
    close(fd);
}

// Two conversions of the same numbers, taking turns, the first of each round
// alternating; the best run of each counts, and the spread of the rounds'
// ratios (B over A) tells how far to trust it.
void measurePair(const char* label, const char* target, const std::filesystem::path& fileA, Readings a,
                 const std::filesystem::path& fileB, Readings b, std::uint64_t rows,
                 const std::string& parse = "Positions:point:0+1+2") {
    warm(fileA);
    warm(fileB);
    Measure first{1e9, 0, 1e9}, second{1e9, 0, 1e9};
    std::vector<double> ratios;
    for (int i = 0; i < runs; ++i) {
        Measure x{}, y{};
        if (i % 2 == 0) {
            x = inChild([&] { return convert(fileA, parse, a); }, rows);
            y = inChild([&] { return convert(fileB, parse, b); }, rows);
        } else {
            y = inChild([&] { return convert(fileB, parse, b); }, rows);
            x = inChild([&] { return convert(fileA, parse, a); }, rows);
        }
        first.seconds = std::min(first.seconds, x.seconds);
        second.seconds = std::min(second.seconds, y.seconds);
        first.cpuSeconds = std::min(first.cpuSeconds, x.cpuSeconds);
        second.cpuSeconds = std::min(second.cpuSeconds, y.cpuSeconds);
        ratios.push_back(y.seconds / x.seconds);
    }
    std::sort(ratios.begin(), ratios.end());
    std::printf(
        "%-34s %9llu rows | %6.3f s against %6.3f s | ratio %5.3f (rounds %5.3f..%5.3f, median %5.3f; "
        "CPU time %5.3f) %s\n",
        label, static_cast<unsigned long long>(rows), second.seconds, first.seconds, second.seconds / first.seconds,
        ratios.front(), ratios.back(), ratios[ratios.size() / 2], second.cpuSeconds / first.cpuSeconds, target);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    double scale = 1;
    std::string keep, only, reader;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--scale") scale = std::strtod(argv[i + 1], nullptr);
        if (option == "--keep") keep = argv[i + 1];
        if (option == "--runs") {
            runs = std::max(1, std::atoi(argv[i + 1]));
            runsGiven = true;
        }
        if (option == "--only") only = argv[i + 1];
        if (option == "--reader") reader = argv[i + 1];
    }
    const auto dir = keep.empty() ? std::filesystem::temp_directory_path() /
                                        ("pallion-bench-" + std::to_string(std::random_device()()))
                                  : std::filesystem::path(keep);
    std::filesystem::create_directories(dir);
    const auto rows = [&](double n) { return static_cast<std::uint64_t>(n * scale); };
    using enum Kind;
    const std::vector<Table> tables = {
        {"xyz", Shape::Xyz, "Positions:point:0+1+2", {Double, Double, Double}, rows(10e6), dir / "xyz.txt"},
        {"trajectory", Shape::Trajectory, std::string(Pallion::messages::trajectory::TrajectoryParse),
         std::vector<Kind>(7, Double), rows(2e6), dir / "trajectory.txt"},
        {"lidar",
         Shape::Lidar,
         "Positions:point:0+1+2,Colours:rgb:3+4+5,Intensity:float:6,Class:uint8_t:7,Return:int:8",
         {Double, Double, Double, Byte, Byte, Byte, Float, Byte, Int},
         rows(5e6),
         dir / "lidar.txt"},
    };
    for (const Table& t : tables) {
        if (!only.empty() && only != t.label) continue;
        // A kept table of the right name is taken as it is, so that runs under callgrind skip the writing.
        if (keep.empty() || !std::filesystem::exists(t.file)) writeTable(t.file, t.rows, t.shape);
        if (!only.empty()) {
            const std::uint64_t got = reader == "parse" ? parseOnly(t.file, t.kinds) : convert(t.file, t.parse);
            std::printf("%s %s: %llu\n", t.label, reader.c_str(), static_cast<unsigned long long>(got));
            return 0;
        }
        measure(t);
    }
    if (only.empty() || only == "readings") {
        // The opt-in readings against the plain one, on the xyz table's numbers.
        const auto xyz = dir / "xyz.txt", aligned = dir / "aligned.txt", savetxt = dir / "savetxt.txt";
        const std::uint64_t n = rows(10e6);
        if (!std::filesystem::exists(xyz)) writeTable(xyz, n, Shape::Xyz);
        if (!std::filesystem::exists(aligned)) writeTable(aligned, n, Shape::AlignedXyz);
        if (!std::filesystem::exists(savetxt)) writeTable(savetxt, n, Shape::SavetxtXyz);
        const Table& lidar = tables[2];
        if (!std::filesystem::exists(lidar.file)) writeTable(lidar.file, lidar.rows, lidar.shape);
        if (!reader.empty()) {  // one conversion in this process, for perf or callgrind
            const Readings chosen{reader.find("whole") != std::string::npos,
                                  reader.find("whitespace") != std::string::npos};
            const bool mixed = reader.find("lidar") != std::string::npos;
            const auto& file = reader.find("aligned") != std::string::npos   ? aligned
                               : reader.find("savetxt") != std::string::npos ? savetxt
                               : mixed                                       ? lidar.file
                                                                             : xyz;
            const auto start = Clock::now();
            const double cpuStart = cpuNow();
            const std::uint64_t got = convert(file, mixed ? lidar.parse : "Positions:point:0+1+2", chosen);
            std::printf("readings %s: %llu rows in %.3f s, CPU %.3f s\n", reader.c_str(),
                        static_cast<unsigned long long>(got),
                        std::chrono::duration<double>(Clock::now() - start).count(), cpuNow() - cpuStart);
            return 0;
        }
        if (!runsGiven) runs = 11;
        std::printf(
            "the opt-in readings against the plain reading of the single-blank table, best of %d, "
            "taking turns\n",
            runs);
        measurePair("whole tokens / plain", "", xyz, {}, xyz, {.whole = true}, n);
        measurePair("whitespace aligned / plain", "target <= 1.10", xyz, {}, aligned, {.whitespace = true}, n);
        measurePair("whitespace savetxt / plain", "target <= 1.10", xyz, {}, savetxt, {.whitespace = true}, n);
        measurePair("whitespace / plain, same file", "", xyz, {}, xyz, {.whitespace = true}, n);
        measurePair("whole+whitespace aligned / plain", "", xyz, {}, aligned, {.whole = true, .whitespace = true}, n);
        measurePair("whole tokens / plain, lidar", "", lidar.file, {}, lidar.file, {.whole = true}, lidar.rows,
                    lidar.parse);
    }
    if (only.empty()) {
        const auto tiny = dir / "tiny.txt";
        writeTable(tiny, 3, Shape::Xyz);
        Measure small{1e9, 0};
        for (int i = 0; i < runs; ++i) {
            const Measure m = inChild([&] { return convert(tiny, "Positions:point:0+1+2"); }, 3);
            if (m.seconds < small.seconds) small = m;
        }
        std::printf("3 rows, default ChunkSize: ascii2z9 %6.3f s | peak %6.0f MiB\n", small.seconds, small.peakMB);
    }
    if (keep.empty()) std::filesystem::remove_all(dir);
    return 0;
}
