// A progress bar on stderr, drawn only when stderr is a terminal: the share
// of the input read, rows/s and MB/s.  It answers false once the user pressed
// Ctrl-C, which stops the conversion through the library's own way.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "pallion/Pallion.hpp"
#include "pallion/tools/CompressedSource.hpp"

namespace host {

class BarProgress : public Ravelin::LoaderProgress {
public:
    // `rows` and `bytes`: what the whole input is judged to hold; no rows (0)
    // when it cannot be judged (a pipe), and then the bar shows the rows and
    // megabytes read without a share.  With a
    // Parameter, the rows read so far are its LineCount, which runs across
    // files; without one (trajectories), the values of the reports.  With
    // `compressed` (compressed files), the share is the compressed bytes read
    // of `bytes`, the files' sizes, whatever the rows.
    BarProgress(const Pallion::Parameter* parameter, std::uint64_t rows, std::uint64_t bytes, bool terminal,
                Pallion::Tools::CompressedBytesRead compressed = nullptr);
    ~BarProgress() override;

    bool report(const std::string& message, std::uint32_t value, std::uint32_t total) override;
    // Draws the bar full after a conversion that read everything.
    void finish();

    // Ctrl-C (and TERM, HUP) from now on asks the conversion to stop at its next report.
    static void installInterruptHandler();
    static bool interrupted();

private:
    void draw(double share, std::uint64_t rowsRead);
    void drawCount(std::uint64_t rowsRead, bool last = false);

    const Pallion::Parameter* parameter_;
    std::uint64_t rows_, bytes_;
    Pallion::Tools::CompressedBytesRead compressed_;
    bool terminal_;
    bool drawn_ = false;
    int lastPermille_ = -1;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now(), lastDraw_;
    std::uint64_t startBytes_ = 0;
};

}  // namespace host
