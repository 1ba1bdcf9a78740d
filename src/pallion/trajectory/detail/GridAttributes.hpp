// Writing what a file's name said into the grid's attributes, and holding the
// files of one grid against each other.
#pragma once

#include <string>

#include "pallion/trajectory/detail/GeoReferenceSystem.hpp"
#include "tessel/Grid.hpp"

namespace Pallion {

// append true: the attribute collects one value per file; false: every file must
// have the value of the first.  Gives the empty text, or the mismatch.
std::string addAttributeToGrid(Tessel::Grid& grid, const std::string& name, unsigned int value, const bool& append);
std::string addAttributeToGrid(Tessel::Grid& grid, const std::string& name, const std::string& value,
                               const bool& append);

// The five attributes EPSG_SPATIAL, EPSG_HEIGHT, WeekDay, Date and NameOfProject, in that order.
std::string addGeoReferenceToGrid(const GeoReferenceSystem& geo, Tessel::Grid& grid);

}  // namespace Pallion
