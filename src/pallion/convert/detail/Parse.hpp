// The parse string: "Field:type:c0+c1+c2,Field2:type:c3" into ContainerEntry records.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "pallion/convert/Parameter.hpp"

namespace Pallion {

// Cuts `text` at `delimiter` and appends the pieces to `out`, which it does not
// clear.  The text ends at its first NUL byte.  Every delimiter closes a piece,
// an empty one too; what follows the last delimiter is a piece only if it is
// not empty.
void split(const char* text, std::size_t length, std::vector<std::string>& out, char delimiter);
// The same, but stops after appending `atMost` pieces; the rest of the text is
// not split.  Gives the number of pieces appended.
std::size_t split(const char* text, std::size_t length, std::vector<std::string>& out, char delimiter,
                  std::size_t atMost);

// Cuts `text` at runs of blanks and tabs, blanks at its start and end
// ignored, and appends up to `atMost` pieces to `out`; the text ends at its
// first NUL byte.  Gives the number of pieces appended.
std::size_t splitBlanks(const char* text, std::size_t length, std::vector<std::string>& out, std::size_t atMost);

// Parses `Parse` into `Container` and raises `HighestColumnIndex`.  Gives the
// empty text, or the failure; a column that is no number throws as std::stoi does.
std::string parseUserInputToContainer(Parameter& parameter);

// The first fault of a parse string, found before anything is converted, as a
// text: the parser's own three texts, and where the parser takes a column
// number that is none as std::stoi does (no digits: an exception; beyond
// 2147483647: an exception; below 0: a column near 2^32), a text that names
// the column as it stands in the string, its entry and the whole string.
// Empty when the parser accepts the string and every column is a number from
// 0 to 2147483647.  A host calls it to tell a wrong parse string as such,
// apart from a failure in a file.
std::string checkParseString(const std::string& parse);

}  // namespace Pallion
