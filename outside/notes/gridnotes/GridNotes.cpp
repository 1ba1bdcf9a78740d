#include "gridnotes/GridNotes.hpp"

namespace Pallion::GridNotes {

void addInfoToGrid(const std::string& info, Tessel::Grid& grid, const std::string& converter, const Tessel::GridPtr&,
                   const int&, const int&) {
    grid.addNote(converter, info);
}

}  // namespace Pallion::GridNotes
