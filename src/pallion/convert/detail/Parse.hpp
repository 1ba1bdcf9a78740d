// The parse string: "Field:type:c0+c1+c2,Field2:type:c3" into ContainerEntry records.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "pallion/Extensions.hpp"
#include "pallion/convert/Parameter.hpp"

namespace Pallion {

// Cuts `text` at `delimiter` and appends the pieces to `out`, which it does not
// clear.  The text ends at its first NUL byte.  Every delimiter closes a piece,
// an empty one too; what follows the last delimiter is a piece only if it is
// not empty.
// Exported, though no host sees it: the trajectory library cuts file names
// with it across the boundary between the two shared libraries.
PALLION_API void split(const char* text, std::size_t length, std::vector<std::string>& out, char delimiter);
// The same, but stops after appending `atMost` pieces; the rest of the text is
// not split.  Gives the number of pieces appended.
std::size_t split(const char* text, std::size_t length, std::vector<std::string>& out, char delimiter,
                  std::size_t atMost);

// Parses `Parse` into `Container` and raises `HighestColumnIndex`.  Gives the
// empty text, or the failure; a column that is no number throws as std::stoi does.
std::string parseUserInputToContainer(Parameter& parameter);

// checkParseString and parseEntries (pallion/Extensions.hpp) judge a column
// that the parser takes as std::stoi does (no digits: an exception; beyond
// 2147483647: an exception; below 0: a column near 2^32) as a text instead.

}  // namespace Pallion
