// The element of one row from the tokens of its line, the standard way: each
// component through convertNumber, whose exceptions pass through unchanged.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pallion/array/ElementTraits.hpp"
#include "pallion/convert/detail/NumberConversion.hpp"

namespace Pallion {

// Writes the element of one row: the first column for a scalar, the first
// three, in order, for a point, vector or colour.
template <class T>
inline void storeElement(T& target, const std::vector<std::string>& tokens, const std::vector<std::uint32_t>& columns) {
    using Traits = Tessel::ElementTraits<T>;
    if constexpr (Traits::components == 3) {
        using C = typename Traits::Component;
        target[0] = convertNumber<C>(tokens[columns[0]]);
        target[1] = convertNumber<C>(tokens[columns[1]]);
        target[2] = convertNumber<C>(tokens[columns[2]]);
    } else {
        target = convertNumber<T>(tokens[columns[0]]);
    }
}

}  // namespace Pallion
