// Loading a list of trajectory files (.txt, .pof, .pofx) into one grid.
#pragma once

#include <string>

#include "outside/core/LoaderProgress.hpp"
#include "outside/core/StringList.hpp"
#include "outside/grid/Grid.hpp"

namespace Pallion {

// Gives the empty text when every file went through, else the failure of the
// first file that failed.  A null list is taken as an empty one.
std::string convertTrajectory2Z9(Tessel::Grid& grid, const Ravelin::StrongPtr<Ravelin::StringList, Ravelin::StringList>& files,
                                 const Ravelin::StrongPtr<Ravelin::LoaderProgress, Ravelin::InterfaceBase>& progress);

}  // namespace Pallion
