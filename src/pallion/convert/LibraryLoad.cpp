// What runs when the library is loaded: the table of type names is built,
// then the nine element types are announced to the grid library.
#include "pallion/array/Registration.hpp"
#include "pallion/convert/ColumnTypes.hpp"

namespace {
struct LibraryLoad {
    LibraryLoad() {
        Pallion::ColumnTypes();
        Tessel::registerArrayTypes();
    }
};
const LibraryLoad load;
}  // namespace
