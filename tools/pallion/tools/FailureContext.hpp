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

// Line `lineNumber` (1-based, every line counted) of `file`, its first 64 KiB
// at most; an empty file name where the file is not a regular file (a pipe or
// a FIFO is never read twice) or has no such line.
FailurePlace lineOf(const std::string& file, std::uint64_t lineNumber);

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

// The context of a conversion that stopped, read from its failure record
// (parameter.Failure), never from its text: no file where the failure is not
// about a line.  The line is read again from a regular file only, with no more
// than its first 64 KiB kept; the token is the one the conversion refused.
FailureReport describeFailure(const Parameter& parameter, OptionWords words = OptionWords::CommandLine);

// A failure of a conversion of a byte range (Parameter::RangeBegin > 0) as
// one of the whole file: its record's line, and the line its text names, with
// the `linesBefore` lines before the range added (linesBeforeRange).  Called
// before describeFailure, which then reads the right line.
void countLinesFromFileStart(Parameter& parameter, std::string& failure, std::uint64_t linesBefore);

// For a trajectory conversion that stopped: what is wrong with the name of
// the first listed file whose name does not fit the six-piece layout (the
// piece, what it stands for, the layout); empty where every name fits.
std::string trajectoryNameFailure(const std::vector<std::string>& files);

// The errno of opening `name` for reading now, 0 where it opens: a directory
// opens but is no table (EISDIR).  The one look at why a file cannot be read,
// for the hints and for the OSError a Python caller gets.
int openErrorOf(const std::string& name);

}  // namespace Pallion::Tools
