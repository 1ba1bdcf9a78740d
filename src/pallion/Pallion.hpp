// What a host includes: the two conversions and the record that configures a
// text conversion.  It does not bring in the typed array model.  The grid is
// the host's own; its header comes from the grid library (tessel/Grid.hpp).
//
//   Tessel::Grid grid;
//   Pallion::Parameter parameter;
//   parameter.Files = new Ravelin::StringList{"points.txt"};
//   parameter.Parse = "Positions:point:0+1+2,Intensity:float:3";
//   const std::string failure = Pallion::ascii2z9(grid, parameter);
#pragma once

#include <string>

#include "pallion/Export.hpp"
#include "pallion/convert/Parameter.hpp"
#include "ravelin/LoaderProgress.hpp"
#include "ravelin/StringList.hpp"

namespace Tessel {
class Grid;
}

namespace Pallion {

// Converts every listed text file into the fields that the parse string names.
// Gives the empty text on success, or the failure.  A token that is no number
// throws the exception of std::stod, std::stof or std::stoi.  (Pallion::convert)
PALLION_API std::string ascii2z9(Tessel::Grid& grid, Parameter& parameter);

// Loads a list of trajectory files (.txt, .pof, .pofx) into one grid.  Gives
// the empty text when every file went through, else the failure of the first
// file that failed.  A null list is taken as an empty one.  (Pallion::trajectory)
PALLION_API std::string convertTrajectory2Z9(Tessel::Grid& grid, const Ravelin::StringListPtr& files,
                                             const Ravelin::ProgressPtr& progress);

}  // namespace Pallion
