// How an array reaches its elements: a strided slab on linear storage, the
// element pointer, an optional provider, and the extents.  No layer owns storage.
#pragma once

#include <array>
#include <cstdint>
#include <utility>

#include "ravelin/Support.hpp"

namespace Tessel {

// N extents or indices, dimension 0 first and fastest.
template <int N>
using MultiIndex = std::array<std::uint64_t, static_cast<std::size_t>(N)>;

struct HyperslabParameters {
    std::uint64_t count = 0;   // elements of the storage, in components when stride is not 1
    std::uint64_t stride = 1;  // distance between neighbours, in units of T
    std::uint64_t length = 0;  // elements of the storage; read only when stride is 1
    std::uint64_t offset = 0;  // elements skipped at the start
    std::uint64_t tail = 0;    // elements left out at the end

    std::uint64_t available() const { return stride == 1 ? length - offset : count / stride - offset; }
    std::uint64_t reachable() const { return available() - tail; }

    // Keeps the slab within P elements: the slab never reaches past the array's own elements.
    void applyTailRule(std::uint64_t product) {
        const std::uint64_t avail = available();
        if (product < avail - tail) tail = avail >= product ? avail - product : 0;
    }
};

template <class T>
struct ElementIterator : HyperslabParameters {
    T* data = nullptr;
};

template <class T>
struct IteratorBase : ElementIterator<T> {};

template <class T>
struct Iterator : IteratorBase<T> {};

// Gives slabs and elements of arrays whose data are not in memory.  No array
// of this library has one; element access consults it where it would apply.
template <class T>
class SlabProvider {
public:
    virtual ~SlabProvider() = default;
    virtual Iterator<T> sliceSlab(int dimension, std::uint64_t index) = 0;
    virtual T* elementAt(std::uint64_t index) = 0;
};

template <class T>
struct CreativeIterator : Iterator<T> {
    SlabProvider<T>* provider = nullptr;
};

// The odometer over up to four dimensions: dimension 0 turns fastest; after the
// last index it stands at all zeros and gives false.
inline bool next(MultiIndex<4>& index, const MultiIndex<4>& limits) {
    for (std::size_t d = 0; d < 4; ++d) {
        if (++index[d] < limits[d]) return true;
        index[d] = 0;
    }
    return false;
}

// Elements in all dimensions.
template <std::size_t K>
std::uint64_t productOf(const std::array<std::uint64_t, K>& extents) {
    std::uint64_t p = 1;
    for (auto e : extents) p *= e;
    return p;
}

namespace detail {
// Address of the element at `i` on `slab` of rank M, with the first M extents `e`.
template <int M, class T, std::size_t K>
T* slabAddress(const Iterator<T>& slab, SlabProvider<T>* provider, const std::array<std::uint64_t, K>& e,
               const std::array<std::uint64_t, K>& i) {
    if constexpr (M == 1) {
        if (provider != nullptr) return provider->elementAt(i[0]);
        return slab.data + (i[0] + slab.offset) * slab.stride;
    } else {
        if (slab.data != nullptr) {
            std::uint64_t flat = i[M - 1];
            for (int d = M - 2; d >= 0; --d) flat = flat * e[d] + i[d];
            return slab.data + (flat + slab.offset) * slab.stride;
        }
        Ravelin::breakpoint();
        return slabAddress<M - 1>(provider->sliceSlab(M - 1, i[M - 1]), provider, e, i);
    }
}
}  // namespace detail

template <int N, class T>
struct MultiArrayBase : CreativeIterator<T> {
    MultiIndex<N> extents{};

    std::uint64_t product() const { return productOf(extents); }

    // The element at `index`; no index is tested, the caller keeps each below its extent.
    T* elementAddress(const MultiIndex<N>& index) const {
        return detail::slabAddress<N>(*this, this->provider, extents, index);
    }
};

template <int N, class T, class Seq = std::make_integer_sequence<unsigned long long, N>>
struct MultiArray : MultiArrayBase<N, T> {
    MultiArray() = default;
    MultiArray(const Iterator<T>& slab, const MultiIndex<N>& extents, SlabProvider<T>* provider) {
        static_cast<Iterator<T>&>(*this) = slab;
        this->provider = provider;
        this->extents = extents;
        this->applyTailRule(this->product());
    }
};

}  // namespace Tessel
