// Loading a list of trajectory files (.txt, .pof, .pofx) into one grid.
#pragma once

#include "pallion/Pallion.hpp"
#include "tessel/Grid.hpp"
