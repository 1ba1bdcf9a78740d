// Noting a converter's info text in a grid.
#pragma once

#include "gridnotes/Export.hpp"

#include <string>

#include "tessel/Grid.hpp"

namespace Pallion::GridNotes {

// Keeps `info` with the converter's name among the grid's notes, where a host
// reads it through Grid::notes().  The source grid and the two numbers are
// accepted for the real component's sake and not used here.
GRIDNOTES_API void addInfoToGrid(const std::string& info, Tessel::Grid& grid, const std::string& converter,
                                 const Tessel::GridPtr& source, const int& first, const int& second);

}  // namespace Pallion::GridNotes
