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

// Parses `Parse` into `Container` and raises `HighestColumnIndex`.  Gives the
// empty text, or the failure; a column that is no number throws as std::stoi does.
std::string parseUserInputToContainer(Parameter& parameter);

}  // namespace Pallion
