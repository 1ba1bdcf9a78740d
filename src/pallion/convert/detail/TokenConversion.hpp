// Turning the tokens of a line into one element of a column.
//
// The standard conversions decide: std::stod for double components, std::stof
// for float, std::stoi for every integer type, narrowed to the low bits of the
// target.  Their exceptions pass through unchanged.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pallion/array/ElementTraits.hpp"

namespace Pallion {

template <class C>
inline C convertToken(const std::string& token) {
    if constexpr (std::is_same_v<C, double>)
        return std::stod(token);
    else if constexpr (std::is_same_v<C, float>)
        return std::stof(token);
    else
        return static_cast<C>(std::stoi(token));  // a value too wide keeps its low bits
}

// Writes the element of one row: the first column for a scalar, the first
// three, in order, for a point, vector or colour.
template <class T>
inline void storeElement(T& target, const std::vector<std::string>& tokens, const std::vector<std::uint32_t>& columns) {
    using Traits = Tessel::ElementTraits<T>;
    if constexpr (Traits::components == 3) {
        using C = typename Traits::Component;
        target[0] = convertToken<C>(tokens[columns[0]]);
        target[1] = convertToken<C>(tokens[columns[1]]);
        target[2] = convertToken<C>(tokens[columns[2]]);
    } else {
        target = convertToken<T>(tokens[columns[0]]);
    }
}

}  // namespace Pallion
