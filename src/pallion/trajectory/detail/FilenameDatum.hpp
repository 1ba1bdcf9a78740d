// Reading a trajectory file's name: prefix_project_fileNr_date_xxxxSPATIAL_xxxxHEIGHT.
#pragma once

#include <filesystem>
#include <string>

#include "pallion/trajectory/detail/GeoReferenceSystem.hpp"

namespace Pallion {

// The number after the first `prefix` characters of `text`, read as std::stoi reads.
int stoiAfterPrefix(std::string text, int prefix);

// The GeoReferenceSystem of a stem of six pieces, or an empty pointer (with a
// console message) for any other count.  A number piece that is no number throws
// as std::stoi does.
Ravelin::StrongPtr<GeoReferenceSystem> parseFilenameForGeoDatum(const std::filesystem::path& stem);

// What is wrong with a stem, as a text, in the order in which
// parseFilenameForGeoDatum would meet it: a count of pieces other than six, or
// the first piece that it cannot read (5, 4 and 2 as numbers, then 3 as a
// date), named by its number, its meaning and its text, with the six-piece
// layout.  Empty when the stem gives a GeoReferenceSystem.  A host calls it to
// say which piece is wrong where the parser itself throws as std::stoi does.
std::string checkTrajectoryName(const std::filesystem::path& stem);

}  // namespace Pallion
