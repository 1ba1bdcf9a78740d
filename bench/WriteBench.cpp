// The output writers under many small fragments: a table of 1,000,000 points
// converted with 5 rows per block (200,000 fragments), then written as PLY and
// as HDF5.  The HDF5 file should stay within 1.5 times the points' bytes and
// its write within 1.5 times the PLY write's time; the run fails otherwise.
//
//   write_bench [--rows N] [--block N]
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "pallion/Pallion.hpp"
#include "pallion/tools/Writers.hpp"

namespace {

using Clock = std::chrono::steady_clock;

// The seconds one write took, and the file's size; -1 where it failed.
std::pair<double, double> timed(const Tessel::Grid& grid, const std::filesystem::path& file) {
    const auto start = Clock::now();
    const std::string failure = Pallion::Tools::writeGrid(grid, file.string());
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (!failure.empty()) {
        std::fprintf(stderr, "%s\n", failure.c_str());
        return {-1, -1};
    }
    return {seconds, static_cast<double>(std::filesystem::file_size(file))};
}

}  // namespace

int main(int argc, char** argv) {
    std::uint64_t rows = 1'000'000, block = 5;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--rows") == 0) rows = std::stoull(argv[i + 1]);
        if (std::strcmp(argv[i], "--block") == 0) block = std::stoull(argv[i + 1]);
    }
    const auto dir = std::filesystem::temp_directory_path() / ("write_bench." + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    const auto table = dir / "rows.txt";
    {
        std::FILE* out = std::fopen(table.c_str(), "wb");
        if (out == nullptr) return 1;
        for (std::uint64_t i = 0; i < rows; ++i)
            std::fprintf(out, "%llu 0.%llu 7.5\n", (unsigned long long)i, (unsigned long long)(i * 7919 % 1000003));
        if (std::fclose(out) != 0) return 1;
    }
    Tessel::Grid grid;
    Pallion::Parameter p;
    p.Files = new Ravelin::StringList{table.string()};
    p.Parse = "Positions:point:0+1+2";
    p.ChunkSize = static_cast<std::uint32_t>(block);
    if (!Pallion::ascii2z9(grid, p).empty()) return 1;
    const double dataBytes = static_cast<double>(rows) * 3 * sizeof(double);
    const auto [plySeconds, plyBytes] = timed(grid, dir / "out.ply");
    const auto [h5Seconds, h5Bytes] = timed(grid, dir / "out.h5");
    std::filesystem::remove_all(dir);
    if (plySeconds < 0 || h5Seconds < 0) return 1;
    const double sizeRatio = h5Bytes / dataBytes, timeRatio = h5Seconds / plySeconds;
    std::printf("%llu rows in %llu fragments: %.1f MB of points\n", (unsigned long long)rows,
                (unsigned long long)((rows + block - 1) / block), dataBytes / 1e6);
    std::printf("PLY   %.2f s  %.1f MB\nHDF5  %.2f s  %.1f MB  (%.2fx the points' bytes, %.2fx the PLY time)\n",
                plySeconds, plyBytes / 1e6, h5Seconds, h5Bytes / 1e6, sizeRatio, timeRatio);
    return sizeRatio <= 1.5 && timeRatio <= 1.5 ? 0 : 1;
}
