// What a host asks of a text-table conversion, in the words a user gives
// (a delimiter by name, a block size or none), and the one way it becomes the
// library's Parameter.  Shared by the command-line host and the Python module.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pallion/Pallion.hpp"

namespace Pallion::Tools {

struct TableOptions {
    std::vector<std::string> files;
    std::uint32_t headerLines = 0;
    char delimiter = ' ';
    std::optional<std::uint32_t> block;  // none: judged from the files' sizes
    std::int32_t epsg = -1;              // -1: none, no attribute stored
    std::string parse = "Positions:point:0+1+2";
};

// The delimiter a user names: one character, or tab (t, \t), comma, semicolon, space.
std::optional<char> delimiterFromName(const std::string& name);

// The name a user would give for `delimiter`: tab, comma, semicolon, space, or the character quoted.
std::string delimiterName(char delimiter);

// The rows these files are judged to hold, by the library's own estimate:
// each file's size over the length of its first data line.  Judged, not
// counted: lines may differ in length.  A file that cannot be judged adds none.
std::uint64_t judgedRows(const std::vector<std::string>& files, std::uint32_t headerLines);

// A block size for a table of `judgedRows` rows: a quarter more, so that one
// block usually takes them all, never more than the library's default.
std::uint32_t blockSizeFor(std::uint64_t judgedRows);

// The Parameter for `options`, with the block size judged where none is given
// (from `judgedRows` rows).  No progress object is set.
void fillParameter(Parameter& parameter, const TableOptions& options, std::uint64_t judgedRows);

}  // namespace Pallion::Tools
