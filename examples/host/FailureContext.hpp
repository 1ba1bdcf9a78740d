// Where a conversion stopped, told for a person: the file, the line number
// in that file, the line itself and the token that failed, then a hint where
// one fits.  Worked out from what the Parameter holds after the run and a
// re-read of that one line.
#pragma once

#include <string>

#include "Options.hpp"
#include "pallion/Pallion.hpp"

namespace host {

struct FailurePlace {
    std::string file;
    std::uint64_t lineNumber = 0;  // 1-based, in the file; 0 when unknown
    std::string line;              // as read, line end not included
    bool lastLines = false;        // nothing but empty lines follow it
};

// The file and line at which a conversion over `options.files` stopped, after
// `rowsStored` rows; an empty file name when the rows do not lead to one.
FailurePlace findFailingLine(const Options& options, std::uint64_t rowsStored);

// The context lines and hints for a conversion that stopped with `failure`
// (the library's text, or the text of the exception it threw); empty when
// the failure is not about a line.
std::string describeFailure(const Options& options, const Pallion::Parameter& parameter, const std::string& failure,
                            bool exception);

}  // namespace host
