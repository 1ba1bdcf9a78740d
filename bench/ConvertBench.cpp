// End-to-end conversion speed against a parse-only loop, in one run on the
// same generated tables:
//   - points: 10 million rows of three coordinates with three decimals,
//     blank-delimited (about 310 MB), "Positions:point:0+1+2";
//   - trajectory: 2 million rows of seven columns, the trajectory parse string;
//   - a 3-row table with the default ChunkSize.
// The parse-only loop reads the file once in blocks and turns every number
// into a double with std::from_chars, into a zeroed vector advised to use huge
// pages: the floor for any reader of the table.  Each measurement runs in a
// child process of its own, so that its peak memory (maximum resident set)
// is its own; the chunks that the conversion must make are shown beside it.
//
//   convert_bench [--rows N] [--trajectory-rows N] [--runs N (5)] [--keep DIR]
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "pallion/convert/Ascii2Z9.hpp"
#include "pallion/trajectory/Messages.hpp"

namespace {

using Clock = std::chrono::steady_clock;

std::uint64_t writeTable(const std::filesystem::path& file, std::uint64_t rows, bool trajectory) {
    std::FILE* out = std::fopen(file.c_str(), "wb");
    std::mt19937_64 random(42);
    std::uniform_int_distribution<long> metres(0, 99999999);
    char line[256];
    for (std::uint64_t i = 0; i < rows; ++i) {
        int n;
        if (trajectory)
            n = std::snprintf(line, sizeof line, "%.6f %ld.%03ld %ld.%03ld %ld.%03ld %.5f %.5f %.4f\n",
                              172800.0 + static_cast<double>(i) * 0.005, 512000 + metres(random) % 100000,
                              metres(random) % 1000, 5403000 + metres(random) % 100000, metres(random) % 1000,
                              300 + metres(random) % 50, metres(random) % 1000, (metres(random) % 20000) / 1e4 - 1,
                              (metres(random) % 20000) / 1e4 - 1, (metres(random) % 3600000) / 1e4);
        else
            n = std::snprintf(line, sizeof line, "%ld.%03ld %ld.%03ld %ld.%03ld\n", 512000 + metres(random) % 100000,
                              metres(random) % 1000, 5403000 + metres(random) % 100000, metres(random) % 1000,
                              300 + metres(random) % 50, metres(random) % 1000);
        std::fwrite(line, 1, static_cast<std::size_t>(n), out);
    }
    std::fclose(out);
    return std::filesystem::file_size(file);
}

// Reads the file in 1 MiB blocks and parses every number; gives the count.
std::uint64_t parseOnly(const std::filesystem::path& file, std::uint64_t numbers) {
    std::vector<double> values;
    values.reserve(numbers);
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const std::uintptr_t first = (reinterpret_cast<std::uintptr_t>(values.data()) + page - 1) / page * page;
    madvise(reinterpret_cast<void*>(first), numbers * sizeof(double) - page, MADV_HUGEPAGE);
    values.resize(numbers);
    std::FILE* in = std::fopen(file.c_str(), "rb");
    std::vector<char> block(std::size_t{1} << 20);
    std::size_t kept = 0;
    std::uint64_t count = 0;
    for (;;) {
        const std::size_t got = std::fread(block.data() + kept, 1, block.size() - kept, in);
        const std::size_t filled = kept + got;
        // Parse up to the last line end; the part behind it waits for the next block.
        std::size_t usable = filled;
        if (got > 0)
            while (usable > 0 && block[usable - 1] != '\n') --usable;
        const char* p = block.data();
        const char* end = block.data() + usable;
        while (p < end) {
            while (p < end && (*p == ' ' || *p == '\n')) ++p;
            if (p == end) break;
            double value;
            const auto parsed = std::from_chars(p, end, value);
            if (parsed.ec != std::errc() || count == numbers) break;
            values[count++] = value;
            p = parsed.ptr;
        }
        kept = filled - usable;
        std::memmove(block.data(), block.data() + usable, kept);
        if (got == 0) break;
    }
    std::fclose(in);
    return count;
}

std::uint64_t convert(const std::filesystem::path& file, const std::string& parse) {
    Tessel::Grid grid;
    Pallion::Parameter parameter;
    parameter.Files = new Ravelin::StringList{file.string()};
    parameter.Parse = parse;
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
};

// Runs `work` in a child process; gives its time and its peak memory.  The
// child exits 1 unless `work` gives `expected`.
Measure inChild(const std::function<std::uint64_t()>& work, std::uint64_t expected) {
    int channel[2];
    if (pipe(channel) != 0) std::exit(1);
    const pid_t child = fork();
    if (child == 0) {
        const auto start = Clock::now();
        const std::uint64_t got = work();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        if (write(channel[1], &seconds, sizeof seconds) != sizeof seconds) _exit(1);
        _exit(got == expected ? 0 : 1);
    }
    close(channel[1]);
    double seconds = 0;
    const bool heard = read(channel[0], &seconds, sizeof seconds) == sizeof seconds;
    close(channel[0]);
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    if (!heard || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "a measurement failed or counted wrong\n");
        std::exit(1);
    }
    return {seconds, static_cast<double>(usage.ru_maxrss) / 1024.0};
}

// Bytes of the chunks a conversion makes: every column's first chunk, and a
// fresh one after each full block.
double chunkMB(std::uint64_t rows, std::uint64_t bytesPerRow) {
    const std::uint64_t chunkSize = Pallion::Parameter().ChunkSize;
    const std::uint64_t chunks = 1 + rows / chunkSize;
    return static_cast<double>(chunks * chunkSize * bytesPerRow) / 1048576.0;
}

// How often each case runs; the best run counts.  The two readers take turns,
// so that a slow spell of the machine falls on both.
int runs = 5;

void table(const char* label, const std::filesystem::path& file, const std::string& parse, std::uint64_t rows,
           std::uint64_t numbers, std::uint64_t bytesPerRow) {
    const double mb = static_cast<double>(std::filesystem::file_size(file)) / 1e6;
    Measure floor{1e9, 0}, ours{1e9, 0};
    for (int i = 0; i < runs; ++i) {
        const Measure a = inChild([&] { return parseOnly(file, numbers); }, numbers);
        const Measure b = inChild([&] { return convert(file, parse); }, rows);
        if (a.seconds < floor.seconds) floor = a;
        if (b.seconds < ours.seconds) ours = b;
    }
    std::printf(
        "%-10s %9llu rows %7.1f MB | parse-only %6.3f s | ascii2z9 %6.3f s %7.1f MB/s %5.1f M rows/s | "
        "ratio %4.2f | peak %6.0f MiB, chunks %6.0f MiB\n",
        label, static_cast<unsigned long long>(rows), mb, floor.seconds, ours.seconds, mb / ours.seconds,
        static_cast<double>(rows) / ours.seconds / 1e6, ours.seconds / floor.seconds, ours.peakMB,
        chunkMB(rows, bytesPerRow));
}

}  // namespace

int main(int argc, char** argv) {
    std::uint64_t rows = 10000000, trajectoryRows = 2000000;
    std::string keep;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--rows") rows = std::strtoull(argv[i + 1], nullptr, 10);
        if (option == "--trajectory-rows") trajectoryRows = std::strtoull(argv[i + 1], nullptr, 10);
        if (option == "--keep") keep = argv[i + 1];
        if (option == "--runs") runs = std::max(1, std::atoi(argv[i + 1]));
    }
    const auto dir = keep.empty() ? std::filesystem::temp_directory_path() /
                                        ("pallion-bench-" + std::to_string(std::random_device()()))
                                  : std::filesystem::path(keep);
    std::filesystem::create_directories(dir);
    const auto points = dir / "points.txt";
    const auto trajectory = dir / "trajectory.txt";
    const auto tiny = dir / "tiny.txt";
    writeTable(points, rows, false);
    writeTable(trajectory, trajectoryRows, true);
    writeTable(tiny, 3, false);

    table("points", points, "Positions:point:0+1+2", rows, rows * 3, 24);
    table("trajectory", trajectory, std::string(Pallion::messages::trajectory::TrajectoryParse), trajectoryRows,
          trajectoryRows * 7, 24 + 4 * 8);
    Measure small{1e9, 0};
    for (int i = 0; i < runs; ++i) {
        const Measure m = inChild([&] { return convert(tiny, "Positions:point:0+1+2"); }, 3);
        if (m.seconds < small.seconds) small = m;
    }
    std::printf("3 rows, default ChunkSize: ascii2z9 %6.3f s | peak %6.0f MiB, chunks %6.0f MiB\n", small.seconds,
                small.peakMB, chunkMB(3, 24));
    if (keep.empty()) std::filesystem::remove_all(dir);
    return 0;
}
