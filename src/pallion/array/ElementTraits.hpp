// The one table of the nine element types.
//
// Everything that differs between the element types stands here: the name in
// a parse string, the component type and count, the kind marks, the domain,
// the component names and the text form.  `ElementTypes` fixes their order;
// every walk over "the nine types in order" is generated from it.
#pragma once

#include <cstdio>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeinfo>

#include "pallion/Export.hpp"
#include "pallion/array/TesselTypeIndex.hpp"
#include "pallion/values/Quillon.hpp"
#include "ravelin/Support.hpp"

namespace Tessel {

using Point = Quillon::PhysicalSpace::point;
using TVector = Quillon::PhysicalSpace::vector;
using Colour = Quillon::Colour;

using ElementTypes =
    std::tuple<Point, TVector, double, float, int, unsigned char, unsigned short, unsigned int, Colour>;
inline constexpr std::size_t ElementTypeCount = std::tuple_size_v<ElementTypes>;

// Calls f.template operator()<T>() for the nine types, in order.
template <class F>
void forEachElementType(F&& f) {
    [&]<class... T>(std::tuple<T...>*) { (f.template operator()<T>(), ...); }(static_cast<ElementTypes*>(nullptr));
}

namespace detail {
inline void appendFloating(std::string& out, double value) {
    char buffer[512];
    const int n = std::snprintf(buffer, sizeof buffer, "%f", value);
    out.append(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
}
}  // namespace detail

template <class T>
struct ElementTraits;

// Scalars: one component, no domain.
template <class T, const char* Name>
struct ScalarTraits {
    using Component = T;
    static constexpr const char* parseName = Name;
    static constexpr unsigned components = 1;
    static constexpr unsigned kindA = 0, kindB = 0;
    static constexpr unsigned domainDimension = 0;
    static const std::type_info& domain() { return typeid(void); }
    static std::string componentName(int) { return {}; }
    static void appendText(std::string& out, const T& value) {
        if constexpr (std::is_floating_point_v<T>)
            detail::appendFloating(out, static_cast<double>(value));
        else if constexpr (std::is_same_v<T, unsigned int>)
            out += std::to_string(value);
        else
            out += std::to_string(static_cast<int>(value));
    }
};

// Three components in a FixedArray, with a domain of dimension 3.
template <class T, class C, class Domain, unsigned KindA, unsigned KindB, const char* Name, const char* Names>
struct TripleTraits {
    using Component = C;
    static constexpr const char* parseName = Name;
    static constexpr unsigned components = 3;
    static constexpr unsigned kindA = KindA, kindB = KindB;
    static constexpr unsigned domainDimension = Domain::Dimension;
    static const std::type_info& domain() { return typeid(Domain); }
    // Names of components 0 to 2; any other index gives an empty text.
    static std::string componentName(int i) { return i >= 0 && i < 3 ? std::string(1, Names[i]) : std::string(); }
    static void appendText(std::string& out, const T& value) {
        out += '{';
        for (int i = 0; i < 3; ++i) {
            if (i) out += ',';
            if constexpr (std::is_floating_point_v<C>)
                detail::appendFloating(out, value[i]);
            else
                out += std::to_string(static_cast<int>(value[i]));
        }
        out += '}';
    }
};

namespace names {
inline constexpr char point[] = "point", tvector[] = "tvector", dbl[] = "double", flt[] = "float", integer[] = "int",
                      u8[] = "uint8_t", u16[] = "uint16_t", u32[] = "uint32_t", rgb[] = "rgb";
inline constexpr char xyz[] = "xyz", rgbNames[] = "rgb";
}  // namespace names

template <>
struct ElementTraits<Point> : TripleTraits<Point, double, Quillon::Cartesian3D, 0, 0, names::point, names::xyz> {};
template <>
struct ElementTraits<TVector> : TripleTraits<TVector, double, Quillon::Cartesian3D, 1, 1, names::tvector, names::xyz> {
};
template <>
struct ElementTraits<double> : ScalarTraits<double, names::dbl> {};
template <>
struct ElementTraits<float> : ScalarTraits<float, names::flt> {};
template <>
struct ElementTraits<int> : ScalarTraits<int, names::integer> {};
template <>
struct ElementTraits<unsigned char> : ScalarTraits<unsigned char, names::u8> {};
template <>
struct ElementTraits<unsigned short> : ScalarTraits<unsigned short, names::u16> {};
template <>
struct ElementTraits<unsigned int> : ScalarTraits<unsigned int, names::u32> {};
template <>
struct ElementTraits<Colour> : TripleTraits<Colour, unsigned char, Quillon::RGB, 1, 0, names::rgb, names::rgbNames> {};

// The index of T, built from its traits at first use and kept for the life of
// the library; T's type object holds a copy of it.  Default visibility on
// purpose: one index per process, whichever shared library asks first.
template <class T>
PALLION_API const TesselTypeIndex& typeIndexOf() {
    static const TesselTypeIndex index = [] {
        using Traits = ElementTraits<T>;
        using C = typename Traits::Component;
        TesselTypeIndex built;
        built.components = Traits::components;
        built.byteSize = sizeof(T);
        built.kindA = Traits::kindA;
        built.kindB = Traits::kindB;
        built.componentSize = sizeof(C);
        built.typeName = Ravelin::Typename(typeid(T));
        built.componentTypeName = Ravelin::Typename(typeid(C));
        built.domainName = Ravelin::Typename(Traits::domain());
        built.domainDimension = Traits::domainDimension;
        return built;
    }();
    return index;
}

}  // namespace Tessel
