// What runs when the library is loaded: the table of type names is built,
// then the nine element types are announced to the grid library.
#include "pallion/array/detail/Registration.hpp"
#include "pallion/convert/detail/ColumnTypes.hpp"

namespace {
struct LibraryLoad {
    LibraryLoad() {
        Pallion::ColumnTypes();
        Tessel::registerArrayTypes();
    }
};
const LibraryLoad load;
}  // namespace
