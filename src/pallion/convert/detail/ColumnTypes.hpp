// The table from the type names of a parse string to their type indices.
#pragma once

#include <string>
#include <unordered_map>

#include "pallion/array/TesselTypeIndex.hpp"

namespace Pallion {

// Built once, when the library is loaded, and only read afterwards.
const std::unordered_map<std::string, Tessel::TesselTypeIndex>& ColumnTypes();

}  // namespace Pallion
