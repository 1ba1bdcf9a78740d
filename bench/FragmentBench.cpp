// Many fragments: a table converted with one row per block, so that every
// row becomes a fragment of its field, for 10^5 and then 10^6 rows.  Adding a
// fragment should cost the same however many the field holds already: the
// time then grows tenfold from the first count to the second (a growth near
// 100 would mean that each fragment looks at all that came before it).
// Each count runs in a child process of its own and reports its peak memory.
//
//   fragment_bench [--counts N,N,...] (default 100000,1000000)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "pallion/convert/detail/Ascii2Z9.hpp"

namespace {

using Clock = std::chrono::steady_clock;

// Converts `rows` one-byte rows, one fragment each; the seconds it took, or -1.
double convertRows(const std::filesystem::path& dir, std::uint64_t rows) {
    const std::filesystem::path file = dir / ("rows" + std::to_string(rows) + ".txt");
    {
        std::FILE* out = std::fopen(file.c_str(), "wb");
        if (out == nullptr) return -1;
        for (std::uint64_t i = 0; i < rows; ++i) std::fputs(i % 2 == 0 ? "1\n" : "2\n", out);
        std::fclose(out);
    }
    const auto start = Clock::now();
    Tessel::Grid grid;
    Pallion::Parameter p;
    p.Files = new Ravelin::StringList{file.string()};
    p.Parse = "V:uint8_t:0";
    p.ChunkSize = 1;
    const std::string result = Pallion::ascii2z9(grid, p);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::filesystem::remove(file);
    // The last block, empty here, is flushed too: one fragment more than rows.
    if (!result.empty() || grid.field("V")->fragments().size() != rows + 1) {
        std::fprintf(stderr, "fragment_bench: %s (%zu fragments)\n", result.c_str(),
                     grid.field("V")->fragments().size());
        return -1;
    }
    return seconds;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::uint64_t> counts{100000, 1000000};
    if (argc == 3 && std::strcmp(argv[1], "--counts") == 0) {
        counts.clear();
        for (char* piece = std::strtok(argv[2], ","); piece != nullptr; piece = std::strtok(nullptr, ","))
            counts.push_back(std::strtoull(piece, nullptr, 10));
    } else if (argc != 1) {
        std::fprintf(stderr, "usage: fragment_bench [--counts N,N,...]\n");
        return 2;
    }
    char pattern[] = "/tmp/fragment_bench.XXXXXX";
    if (::mkdtemp(pattern) == nullptr) return 1;
    const std::filesystem::path dir(pattern);

    // Wall-clock seconds of the conversion alone, and the child's CPU seconds
    // (the table's writing included), which a loaded machine distorts less.
    std::printf("%12s %10s %10s %14s %12s %8s\n", "fragments", "seconds", "cpu s", "fragments/s", "peak MiB", "growth");
    double previous = 0;
    std::uint64_t previousCount = 0;
    int status = 0;
    for (const std::uint64_t count : counts) {
        int pipeEnds[2];
        if (::pipe(pipeEnds) != 0) return 1;
        const pid_t child = ::fork();
        if (child == 0) {
            ::close(pipeEnds[0]);
            const double seconds = convertRows(dir, count);
            const ssize_t wrote = ::write(pipeEnds[1], &seconds, sizeof seconds);
            std::_Exit(wrote == sizeof seconds && seconds >= 0 ? 0 : 1);
        }
        ::close(pipeEnds[1]);
        double seconds = -1;
        if (::read(pipeEnds[0], &seconds, sizeof seconds) != sizeof seconds) seconds = -1;
        ::close(pipeEnds[0]);
        int childStatus = 0;
        struct rusage usage {};
        ::wait4(child, &childStatus, 0, &usage);
        if (seconds < 0 || childStatus != 0) {
            std::printf("%12llu failed\n", static_cast<unsigned long long>(count));
            status = 1;
            continue;
        }
        const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
        std::printf("%12llu %10.3f %10.3f %14.0f %12.1f", static_cast<unsigned long long>(count), seconds, cpu,
                    static_cast<double>(count) / seconds, usage.ru_maxrss / 1024.0);
        if (previous > 0)
            std::printf(" %7.1fx for %.1fx the fragments", seconds / previous,
                        static_cast<double>(count) / static_cast<double>(previousCount));
        std::printf("\n");
        previous = seconds;
        previousCount = count;
    }
    std::filesystem::remove_all(dir);
    return status;
}
