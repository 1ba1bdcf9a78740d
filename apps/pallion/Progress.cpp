#include "Progress.hpp"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <utility>

#include <unistd.h>

#include "HostMessages.hpp"
#include "pallion/tools/OutputFile.hpp"

namespace host {

namespace {
// When the first signal came, in nanoseconds of the monotonic clock.
std::atomic<std::int64_t> firstSignalAt{0};

std::int64_t monotonicNanoseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);  // safe in a signal handler
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

// The first signal asks the conversion and the writers to stop (the
// temporary file is removed and nothing is committed); a second one, for a
// run that does not come to a stop, removes the temporary files and ends the
// process at once.  A second signal within a second of the first is the same
// request (timeout(1) and a terminal send one to the process and one to its
// group) and is let go.  Both exit with 128 and the first signal's number.
extern "C" void onSignal(int signal) {
    if (const int first = Pallion::Tools::stopSignal(); first != 0) {
        if (monotonicNanoseconds() - firstSignalAt < 1'000'000'000) return;
        Pallion::Tools::removeTemporaries();
        ::_exit(128 + first);
    }
    firstSignalAt = monotonicNanoseconds();
    Pallion::Tools::requestStop(signal);
}
}  // namespace

BarProgress::BarProgress(const Pallion::Parameter* parameter, std::uint64_t rows, std::uint64_t bytes, bool terminal,
                         Pallion::Tools::CompressedBytesRead compressed)
    : parameter_(parameter), rows_(rows), bytes_(bytes), compressed_(std::move(compressed)), terminal_(terminal) {}

BarProgress::~BarProgress() {
    if (drawn_) std::fputc('\n', stderr);
}

// INT, TERM and HUP, without SA_RESTART: a blocked open() or read() (a FIFO
// that has no writer yet, a pipe that is silent) returns with EINTR, so that
// the signal stops it.
void BarProgress::installInterruptHandler() {
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

bool BarProgress::interrupted() { return Pallion::Tools::stopSignal() != 0; }

bool BarProgress::report(const std::string&, std::uint32_t value, std::uint32_t total) {
    if (compressed_ && bytes_ > 0) {
        const auto read = static_cast<double>(compressed_->load(std::memory_order_relaxed));
        draw(std::min(read / static_cast<double>(bytes_), 0.99), parameter_ != nullptr ? parameter_->LineCount : value);
        return !interrupted();
    }
    if (rows_ == 0) {
        drawCount(parameter_ != nullptr ? parameter_->LineCount : value);
        return !interrupted();
    }
    const std::uint64_t read = parameter_ != nullptr ? parameter_->LineCount : value;
    const double share = parameter_ != nullptr ? static_cast<double>(read) / static_cast<double>(rows_)
                                               : (total == 0 ? 0.0 : static_cast<double>(value) / total);
    // The rows are judged; until the end the bar stays short of full.
    draw(std::min(share, 0.99), read);
    return !interrupted();
}

void BarProgress::finish() {
    if (compressed_ && bytes_ > 0)
        draw(1.0, parameter_ != nullptr ? parameter_->LineCount : 0);
    else if (rows_ == 0)
        drawCount(parameter_ != nullptr ? parameter_->LineCount : 0, true);
    else
        draw(1.0, parameter_ != nullptr ? parameter_->LineCount : rows_);
}

namespace {
// The bytes this process has read so far (Linux's /proc/self/io), 0 where unknown.
std::uint64_t bytesReadByProcess() {
    std::FILE* io = std::fopen("/proc/self/io", "r");
    if (io == nullptr) return 0;
    unsigned long long bytes = 0;
    if (std::fscanf(io, "rchar: %llu", &bytes) != 1) bytes = 0;
    std::fclose(io);
    return bytes;
}
}  // namespace

void BarProgress::drawCount(std::uint64_t rowsRead, bool last) {
    if (!terminal_) return;
    const auto now = std::chrono::steady_clock::now();
    if (drawn_ && !last && now - lastDraw_ < std::chrono::milliseconds(200)) return;
    lastDraw_ = now;
    if (startBytes_ == 0) startBytes_ = bytesReadByProcess() + 1;
    const double seconds = std::max(1e-6, std::chrono::duration<double>(now - start_).count());
    const double megabytes = static_cast<double>(bytesReadByProcess() + 1 - startBytes_) / 1e6;
    std::fprintf(stderr, "\r%s %llu rows  %.1f MB  %.2f M rows/s ", std::string(messages::Reading).c_str(),
                 static_cast<unsigned long long>(rowsRead), megabytes, static_cast<double>(rowsRead) / seconds / 1e6);
    std::fflush(stderr);
    drawn_ = true;
}

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
