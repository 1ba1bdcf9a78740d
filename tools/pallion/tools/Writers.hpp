// A grid written to a file that other tools open: PLY for point viewers and
// HDF5 for the whole grid without loss.  A file is written under a temporary
// name in its own folder and renamed when it is complete, so that a failed
// write never leaves a half-written file under the name the user gave.
#pragma once

#include <string>
#include <vector>

#include "tessel/Grid.hpp"

namespace Pallion::Tools {

// The formats, by the extension of the file name.
enum class OutputFormat { Unknown, Ply, Hdf5, Las };
OutputFormat outputFormatOf(const std::string& file);

// Why fields of these names cannot be written to `file` in its format, or
// empty: HDF5 group names hold no '/', are not empty nor ".", and leave
// "notes" to the notes.  PLY property names that repeat get a suffix instead
// (_2, _3, ...).  Asked before a conversion; the writers refuse the same names.
std::string fieldNamesProblem(const std::string& file, const std::vector<std::string>& fieldNames);

// Whether this build can write HDF5 files.
bool canWriteHdf5();

// Binary little-endian PLY, one vertex per row: the first point field as x,
// y, z (double), the first rgb field as red, green, blue (uchar), the first
// tvector field as nx, ny, nz (double), every scalar field as a property of
// its own type named after the field, any further three-component field as
// <name>_<component>; a name that repeats gets the suffix _2 (_3, ...).  Written fragment by fragment, without a copy
// of the grid.  Gives the empty text, or what went wrong, naming the file.
std::string writePly(const Tessel::Grid& grid, const std::string& file);

// The whole grid: a group per field, a dataset per fragment in its own type
// (n x 3 for three components), the grid's attributes as attributes of the
// root, the notes in the group "notes".  Gives the empty text, or what went
// wrong, naming the file.
std::string writeHdf5(const Tessel::Grid& grid, const std::string& file);

// By the extension, in any case: .ply, .h5 (.hdf5) or .las (with the default LasOptions).
std::string writeGrid(const Tessel::Grid& grid, const std::string& file);

}  // namespace Pallion::Tools
