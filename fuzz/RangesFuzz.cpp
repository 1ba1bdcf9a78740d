// Conversion in byte ranges side by side: the first bytes choose the parse
// string, the delimiter, the header count, the opt-in readings, a tiny block
// size, one or two files and up to three seams with the threads; the rest are
// the files' bytes (split at the first 0xFF for two files).  Any split of the
// tables must give the grid of the one sequential conversion: fields,
// fragments, values, notes, attributes, counters, the failure record and its
// line, the result text or the exception.
#include <algorithm>
#include <sstream>

#include "FuzzSupport.hpp"
#include "RangedReading.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 8) return 0;
    reference::Settings settings = reference::fuzzedSettings(data);
    const bool twoFiles = data[3] & 0x80;
    const unsigned threads = 1 + data[4] % 4;
    const std::string bytes(reinterpret_cast<const char*>(data) + 8, size - 8);
    // Seams anywhere in the files, the byte after their ends included.
    std::vector<std::uint64_t> cuts;
    for (std::size_t i = 5; i < 8; ++i)
        if (data[i] != 0xFF) cuts.push_back(data[i] % (bytes.size() + 2));
    std::sort(cuts.begin(), cuts.end());
    const auto& scratch = fuzzsupport::scratch();
    const std::size_t cut = twoFiles ? bytes.find('\xff') : std::string::npos;
    settings.files.push_back(scratch.write("first.v.txt", bytes.substr(0, cut)));
    if (twoFiles)
        settings.files.push_back(scratch.write("second", cut == std::string::npos ? "" : bytes.substr(cut + 1)));

    const ranged::Shot expected = ranged::sequential(settings);
    const ranged::Shot got = ranged::inRanges(settings, cuts, threads);
    if (!(got == expected)) {
        std::ostringstream what;
        what << "the ranges differ from the sequential conversion\n  sequential: " << expected
             << "\n  ranges:     " << got;
        fuzzsupport::finding(what.str());
    }
    return 0;
}
