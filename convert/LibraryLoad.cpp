// What runs when the library is loaded: the table of type names is built,
// then the nine element types are announced to the grid library.
#include "array/Registration.hpp"
#include "convert/ColumnTypes.hpp"

namespace {
struct LibraryLoad {
    LibraryLoad() {
        Pallion::ColumnTypes();
        Tessel::registerArrayTypes();
    }
};
const LibraryLoad load;
}  // namespace
