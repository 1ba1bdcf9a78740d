#include "pallion/convert/detail/ColumnTypes.hpp"

#include "pallion/array/ElementTraits.hpp"

namespace Pallion {

const std::unordered_map<std::string, Tessel::TesselTypeIndex>& ColumnTypes() {
    static const auto table = [] {
        std::unordered_map<std::string, Tessel::TesselTypeIndex> names;
        Tessel::forEachElementType(
            [&]<class T>() { names.emplace(Tessel::ElementTraits<T>::parseName, Tessel::typeIndexOf<T>()); });
        return names;
    }();
    return table;
}

}  // namespace Pallion
