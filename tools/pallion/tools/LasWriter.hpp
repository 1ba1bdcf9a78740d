// A grid written as a LAS 1.4 point file, the format of lidar and surveying
// tools.  Coordinates are stored as 32-bit integers with a scale and an
// offset per axis; the scale is chosen from the decimals of the values so that
// every coordinate reads back as the number it was in the text.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "tessel/Grid.hpp"

namespace Pallion::Tools {

struct LasOptions {
    // The scale of x, y and z instead of the one chosen from the values.
    std::optional<std::array<double, 3>> scale;
    // That option in the words of the host, for the hint of a refusal.
    std::string scaleOption = "--las-scale";
};

struct LasWritten {
    std::string failure;             // empty when the file was written
    std::vector<std::string> notes;  // what the file holds otherwise than the grid: rounding, no WKT
};

// Point format 6, or 7 where the grid has an rgb field (8-bit colours stored
// as v * 257, so that 255 is 65535).  The first point field gives X, Y, Z;
// scalar fields named after a standard dimension (any case, '_' ignored:
// Intensity, ReturnNumber, NumberOfReturns, Classification, GpsTime, ScanAngle
// in degrees, UserData, PointSourceId) fill it; every other field goes into
// the extra bytes of each record, a three-component field as three columns
// <name>_<component>.  The grid's EPSG attribute (or EPSG_SPATIAL) becomes a
// WKT record.  Refuses a grid without a point field, fields of different
// element counts, and a value outside its dimension.
LasWritten writeLas(const Tessel::Grid& grid, const std::string& file, const LasOptions& options = {});

// Whether this build turns EPSG codes into WKT (it was built with PROJ).
bool canWriteLasWkt();

// The fewest decimals, 0 to 9, whose decimal number is `value` as a double
// (std::stod of the text gives it back); -1 where none of them is.
int decimalsOf(double value);

// "0.001" for the three axes, or "0.01,0.01,0.001"; nothing for a text that
// is not one or three positive finite numbers.
std::optional<std::array<double, 3>> parseLasScale(const std::string& text);

}  // namespace Pallion::Tools
