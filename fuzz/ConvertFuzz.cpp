// Whole-file conversion, the differential check of the fast reading path:
// the first bytes choose the parse string, the delimiter, the header count
// and the opt-in readings, a tiny block size, a progress stop and one or two files; the rest are the
// files' bytes (split at the first 0xFF for two files).  ascii2z9 and the
// plain getline/split/std::sto* reading must give the same outcome: result
// text or exception, counters, tokens, progress reports, hook calls and
// fragment bytes.
#include <sstream>

#include "FuzzSupport.hpp"
#include "ReferenceConversion.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 5) return 0;
    reference::Settings settings = reference::fuzzedSettings(data);
    settings.stopAtReport = (data[4] & 0x70) == 0 ? data[4] % 8 : 0;
    const bool twoFiles = data[4] & 0x80;
    const std::string bytes(reinterpret_cast<const char*>(data) + 5, size - 5);
    const auto& scratch = fuzzsupport::scratch();
    const std::size_t cut = twoFiles ? bytes.find('\xff') : std::string::npos;
    settings.files.push_back(scratch.write("first.v.txt", bytes.substr(0, cut)));
    if (twoFiles)
        settings.files.push_back(scratch.write("second", cut == std::string::npos ? "" : bytes.substr(cut + 1)));

    const reference::Outcome expected = reference::plainReading(settings);
    const reference::Outcome got = reference::libraryReading(settings);
    if (!(got == expected)) {
        std::ostringstream what;
        what << "ascii2z9 differs from the plain reading\n  plain:   " << expected << "\n  library: " << got;
        if (got.hookCalls != expected.hookCalls) what << "\n  (hook calls differ)";
        if (got.reports != expected.reports) what << "\n  (progress reports differ)";
        fuzzsupport::finding(what.str());
    }
    return 0;
}
