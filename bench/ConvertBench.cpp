// End-to-end conversion speed.  Generates, in a temporary directory, a table of
// 10 million rows of three coordinates with three decimals, blank-delimited
// (about 310 MB), and a 2-million-row seven-column trajectory table, converts
// each with ascii2z9 and reports MB/s and rows/s.
//
//   convert_bench [--rows N] [--trajectory-rows N]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>

#include "convert/Ascii2Z9.hpp"
#include "convert/Messages.hpp"

namespace {

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

void run(const std::string& label, const std::filesystem::path& file, const std::string& parse, std::uint64_t rows) {
    const auto bytes = std::filesystem::file_size(file);
    Tessel::Grid grid;
    Pallion::Parameter parameter;
    parameter.Files = new Ravelin::StringList{file.string()};
    parameter.Parse = parse;
    const auto start = std::chrono::steady_clock::now();
    const std::string result = Pallion::ascii2z9(grid, parameter);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!result.empty() || parameter.LineCount != rows) {
        std::cerr << label << ": conversion failed: " << result << '\n';
        std::exit(1);
    }
    std::printf("%-12s %10llu rows %8.1f MB %7.2f s %8.1f MB/s %12.0f rows/s\n", label.c_str(),
                static_cast<unsigned long long>(rows), bytes / 1e6, seconds, bytes / 1e6 / seconds, rows / seconds);
}

}  // namespace

int main(int argc, char** argv) {
    std::uint64_t rows = 10000000, trajectoryRows = 2000000;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--rows") rows = std::strtoull(argv[i + 1], nullptr, 10);
        if (option == "--trajectory-rows") trajectoryRows = std::strtoull(argv[i + 1], nullptr, 10);
    }
    const auto dir = std::filesystem::temp_directory_path() / ("pallion-bench-" + std::to_string(std::random_device()()));
    std::filesystem::create_directory(dir);
    const auto points = dir / "points.txt";
    const auto trajectory = dir / "trajectory.txt";
    writeTable(points, rows, false);
    writeTable(trajectory, trajectoryRows, true);
    run("points", points, "Positions:point:0+1+2", rows);
    run("trajectory", trajectory, std::string(Pallion::Messages::TrajectoryParse), trajectoryRows);
    std::filesystem::remove_all(dir);
    return 0;
}
