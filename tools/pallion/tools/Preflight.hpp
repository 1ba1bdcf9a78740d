// A look at the first rows before a conversion: every token of a column that
// the parse string reads is checked as the library will convert it, and what
// the standard conversion would store quietly is told.  A token cut short
// ("11,5" read as 11, "6abc" as 6) and an integer outside its type's range
// (300 stored in a uint8_t as 44, -1 as 255) are the cases.  The library's
// own conversion does not change: a host warns, or refuses to start.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pallion/Pallion.hpp"

namespace Pallion::Tools {

struct PreflightWarning {
    std::string file;
    std::uint64_t lineNumber = 0;  // 1-based, in the file
    std::uint32_t column = 0;      // as counted in the parse string, from 0
    std::string token;             // as shown: control bytes visible, long tokens cut
    std::string stored;            // the value the conversion will store, as text
    bool cutShort = false;         // else: out of its type's range
    std::string range;             // out of range: the type and its range, "uint8_t (0 to 255)"
    std::string text() const;      // one line for a person
};

struct Preflight {
    std::vector<PreflightWarning> warnings;  // the first ones, at most MaxWarnings
    std::uint64_t count = 0;                 // all found
    std::uint64_t rowsChecked = 0;
    static constexpr std::size_t MaxWarnings = 20;
};

// Checks the first `rows` data rows of each regular file of `parameter`
// (a FIFO, a pipe or standard input is not read ahead) against its parse
// string and dialect (delimiter or runs of blanks, header lines, comment and
// empty lines skipped, a decimal comma); lines are numbered as in the file.
Preflight preflight(const Parameter& parameter, std::uint64_t rows = 1000);

}  // namespace Pallion::Tools
