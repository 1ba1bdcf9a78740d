#include "Progress.hpp"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>

#include "HostMessages.hpp"

namespace host {

namespace {
std::atomic<bool> stopRequested{false};
extern "C" void onInterrupt(int) { stopRequested = true; }
}  // namespace

BarProgress::BarProgress(const Pallion::Parameter* parameter, std::uint64_t rows, std::uint64_t bytes, bool terminal)
    : parameter_(parameter), rows_(std::max<std::uint64_t>(rows, 1)), bytes_(bytes), terminal_(terminal) {}

BarProgress::~BarProgress() {
    if (drawn_) std::fputc('\n', stderr);
}

void BarProgress::installInterruptHandler() { std::signal(SIGINT, onInterrupt); }

bool BarProgress::interrupted() { return stopRequested; }

bool BarProgress::report(const std::string&, std::uint32_t value, std::uint32_t total) {
    const std::uint64_t read = parameter_ != nullptr ? parameter_->LineCount : value;
    const double share = parameter_ != nullptr ? static_cast<double>(read) / static_cast<double>(rows_)
                                               : (total == 0 ? 0.0 : static_cast<double>(value) / total);
    // The rows are judged; until the end the bar stays short of full.
    draw(std::min(share, 0.99), read);
    return !stopRequested;
}

void BarProgress::finish() { draw(1.0, parameter_ != nullptr ? parameter_->LineCount : rows_); }

void BarProgress::draw(double share, std::uint64_t rowsRead) {
    const int permille = static_cast<int>(share * 1000);
    if (!terminal_ || permille == lastPermille_) return;
    lastPermille_ = permille;
    const double seconds =
        std::max(1e-6, std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count());
    constexpr int Width = 30;
    const int filled = static_cast<int>(share * Width);
    std::fprintf(stderr, "\r%s [%.*s%*s] %3d%%  %.2f M rows/s  %.1f MB/s ", std::string(messages::Reading).c_str(),
                 filled, "##############################", Width - filled, "", permille / 10,
                 static_cast<double>(rowsRead) / seconds / 1e6, share * static_cast<double>(bytes_) / seconds / 1e6);
    std::fflush(stderr);
    drawn_ = true;
}

}  // namespace host
