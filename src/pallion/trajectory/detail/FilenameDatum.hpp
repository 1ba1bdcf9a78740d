// Reading a trajectory file's name: prefix_project_fileNr_date_xxxxSPATIAL_xxxxHEIGHT.
#pragma once

#include <filesystem>
#include <string>

#include "pallion/Extensions.hpp"
#include "pallion/trajectory/detail/GeoReferenceSystem.hpp"

namespace Pallion {

// The number after the first `prefix` characters of `text`, read as std::stoi reads.
int stoiAfterPrefix(std::string text, int prefix);

// The GeoReferenceSystem of a stem of six pieces, or an empty pointer (with a
// console message) for any other count.  A number piece that is no number throws
// as std::stoi does.
Ravelin::StrongPtr<GeoReferenceSystem> parseFilenameForGeoDatum(const std::filesystem::path& stem);

// checkTrajectoryName (pallion/Extensions.hpp) meets the pieces in the order in
// which parseFilenameForGeoDatum does: 5, 4 and 2 as numbers, then 3 as a date.

}  // namespace Pallion
