// Where a conversion stopped, told for a person: the file, the line number
// in that file, the line itself and the token that failed, then hints where
// they fit.  Worked out from what the Parameter holds after the run and a
// re-read of that one line.  The command-line host prints it; the Python
// module puts it into the exception it raises.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pallion/Pallion.hpp"
#include "pallion/tools/TableOptions.hpp"

namespace Pallion::Tools {

struct FailurePlace {
    std::string file;
    std::uint64_t lineNumber = 0;  // 1-based, in the file; 0 when unknown
    std::string line;              // as read, line end not included, its first 64 KiB at most
    bool lastLines = false;        // nothing but empty lines follow it
    std::size_t length = 0;        // the line's full length
};

// The file and line at which a conversion over `files` stopped, after
// `rowsStored` rows; an empty file name when the rows do not lead to one, or
// lead through a file that is not a regular file (it is not read twice).
FailurePlace findFailingLine(const std::vector<std::string>& files, std::uint32_t headerLines,
                             std::uint64_t rowsStored);

// How a hint names the option that mends a cause.
enum class OptionWords {
    CommandLine,  // --header 1, --delimiter comma
    Keywords,     // header=1, delimiter="comma"
};

struct FailureReport {
    std::string file;                     // empty: the failure is not about a line
    std::uint64_t lineNumber = 0;         // 1-based, in the file
    std::string line;                     // as shown: control bytes visible, long lines cut
    std::optional<std::uint32_t> column;  // the failing token's column, where one failed
    std::string token;                    // that token, as shown
    std::string detail;                   // the context line about the token or the missing tokens
    std::vector<std::string> hints;       // "hint: ..." lines, the likeliest cause first

    bool aboutALine() const { return !file.empty(); }
    // The lines as the command-line host prints them, each ending with a line
    // feed; only the hints where the failure is not about a line.
    std::string text() const;
};

// The context of a conversion that stopped with `failure` (the library's
// text, or the text of the exception it threw); no file when the failure is
// not about a line.  The line is read again from a regular file only, with
// no more than its first 64 KiB kept, and its tokens are not cut again: the
// library's own tokens and counts are used.
FailureReport describeFailure(const Parameter& parameter, const std::string& failure, bool exception,
                              OptionWords words = OptionWords::CommandLine);

// For a trajectory conversion that stopped: what is wrong with the name of
// the first listed file whose name does not fit the six-piece layout (the
// piece, what it stands for, the layout); empty where every name fits.
std::string trajectoryNameFailure(const std::vector<std::string>& files);

}  // namespace Pallion::Tools
