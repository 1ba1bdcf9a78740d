// Fixed-size values stored side by side in chunks: point, vector and colour.
//
// Every composite holds exactly its three components in a FixedArray<T,3>;
// the classes above it add no fields and the domain tags add no bytes, so a
// std::vector of them is a packed array of components.  `StorageBase` names
// the next class of each chain; chunks use it to build their TypedChunk chain.
#pragma once

#include <cstddef>
#include <type_traits>

// The value types are element types of the typed arrays, whose static
// objects are shared between shared libraries (see pallion/Export.hpp); a
// template instantiated over a hidden type would be hidden too, so the value
// types keep default visibility.
#pragma GCC visibility push(default)

namespace Quillon {

template <class T, int N>
struct FixedArray {
    T components[N];

    constexpr T& operator[](std::size_t i) { return components[i]; }
    constexpr const T& operator[](std::size_t i) const { return components[i]; }
    friend constexpr bool operator==(const FixedArray&, const FixedArray&) = default;
};

template <class T, int N>
struct Vector : FixedArray<T, N> {
    using StorageBase = FixedArray<T, N>;
};

template <int R, int C, class T>
struct Matrix : Vector<T, R * C> {
    using StorageBase = Vector<T, R * C>;
};

template <int R, class T>
struct Column : Matrix<R, 1, T> {
    using StorageBase = Matrix<R, 1, T>;
};

// Empty domain tags.
struct Cartesian3D {
    static constexpr unsigned Dimension = 3;
};
struct RGB {
    static constexpr unsigned Dimension = 3;
};

template <class Domain, class Base>
struct DomainFunctions {};

template <class Base, class Domain, class Component>
struct DomainVector : Base, Domain, DomainFunctions<Domain, Base> {
    using StorageBase = Base;
};

template <class Domain, class T>
struct Coordinates {
    struct vector : DomainVector<Column<3, T>, Domain, T> {};
    struct point : FixedArray<T, 3>, Domain {
        using StorageBase = FixedArray<T, 3>;
    };
};

namespace PhysicalSpace {
struct vector : Coordinates<Cartesian3D, double>::vector {
    using StorageBase = DomainVector<Column<3, double>, Cartesian3D, double>;
};
struct point : Coordinates<Cartesian3D, double>::point {
    using StorageBase = FixedArray<double, 3>;
};
}  // namespace PhysicalSpace

using Colour = DomainVector<Vector<unsigned char, 3>, RGB, unsigned char>;

// A value of V with the three components given in order.
template <class V, class C>
constexpr V make(C a, C b, C c) {
    V value{};
    value[0] = a;
    value[1] = b;
    value[2] = c;
    return value;
}

// Layout guarantees the chunks and arrays rely on.
static_assert(sizeof(PhysicalSpace::point) == 24 && std::is_standard_layout_v<FixedArray<double, 3>>);
static_assert(sizeof(PhysicalSpace::vector) == 24);
static_assert(sizeof(Colour) == 3 && alignof(Colour) == 1);
static_assert(std::is_trivially_copyable_v<PhysicalSpace::point> &&
              std::is_trivially_copyable_v<PhysicalSpace::vector> && std::is_trivially_copyable_v<Colour>);
static_assert(!std::is_base_of_v<Vector<double, 3>, PhysicalSpace::point>, "a point is no vector");
static_assert(std::is_base_of_v<Vector<double, 3>, PhysicalSpace::vector>);

}  // namespace Quillon

#pragma GCC visibility pop
