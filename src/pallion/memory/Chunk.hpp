// Chunk<T>: a counted std::vector<T>.
//
// The TypedChunk chain follows the storage chain of the element type, so a
// chunk of points is reachable as TypedChunk<FixedArray<double,3>> without
// knowing that it holds points, and it is no TypedChunk<double>.
#pragma once

#include <cstddef>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "pallion/memory/LargeBlocks.hpp"
#include "ravelin/ChunkBase.hpp"

namespace Ravelin {

template <class T>
class Chunk;

// Defines the two operations that only need the chain's last class X.
template <class X>
class TypedChunkBase : public ChunkBase {
public:
    const std::type_info& baseType() const override { return typeid(X); }
    ChunkPtr createChunk(std::size_t count, bool reserveOnly) const override { return createTyped(count, reserveOnly); }
    virtual StrongPtr<TypedChunkBase<X>, ChunkBase> createTyped(std::size_t count, bool reserveOnly) const = 0;
};

template <class T>
concept HasStorageBase = requires {
    typename T::StorageBase;
};

template <class T>
struct TypedChunkParent {
    using type = TypedChunkBase<T>;
};

template <class T>
class TypedChunk : public TypedChunkParent<T>::type {};

template <HasStorageBase T>
struct TypedChunkParent<T> {
    using type = TypedChunk<typename T::StorageBase>;
};

// The class X at the bottom of T's chain.
template <class T>
struct ChunkRoot {
    using type = T;
};
template <HasStorageBase T>
struct ChunkRoot<T> : ChunkRoot<typename T::StorageBase> {};

template <class T>
class Chunk final : public TypedChunk<T>, public std::vector<T> {
public:
    using Root = typename ChunkRoot<T>::type;

    explicit Chunk(std::size_t count) {
        valueInitialise(count);
        account();
    }
    Chunk(std::size_t count, bool reserveOnly) {
        if (reserveOnly)
            std::vector<T>::reserve(count);
        else
            valueInitialise(count);
        account();
    }
    explicit Chunk(const std::vector<T>& values) : std::vector<T>(values) { account(); }
    // Takes off what the constructor added: a resize after construction (a last
    // block cut to its rows) is not tracked, so the counter comes back level.
    ~Chunk() override { ChunkBase::TotalMemsize.fetch_sub(this->accountedBytes_, std::memory_order_relaxed); }

    std::size_t elementCount() const override { return std::vector<T>::size(); }
    std::size_t elementSize() const override { return sizeof(T); }
    void* rawData() override { return std::vector<T>::data(); }
    const void* rawData() const override { return std::vector<T>::data(); }
    const std::type_info& elementType() const override { return typeid(T); }
    ChunkPtr clone() const override { return ChunkPtr(new Chunk<T>(vector())); }
    virtual std::vector<T>& vector() { return *this; }
    virtual const std::vector<T>& vector() const { return *this; }
    StrongPtr<TypedChunkBase<Root>, ChunkBase> createTyped(std::size_t count, bool reserveOnly) const override {
        return StrongPtr<TypedChunkBase<Root>, ChunkBase>(new Chunk<T>(count, reserveOnly));
    }

private:
    // `count` zero elements: the same vector as std::vector<T>(count), whose
    // exceptions a count beyond max_size() still raises.  A large block is
    // reserved first; its zeros then come from released pages where that is
    // possible (see LargeBlocks.hpp), and are written otherwise, after the
    // block has been advised to use huge pages.
    void valueInitialise(std::size_t count) {
        if (count > std::vector<T>::max_size() || count * sizeof(T) < LargeBlockThreshold) {
            std::vector<T>::operator=(std::vector<T>(count));
            return;
        }
        std::vector<T>::reserve(count);
        const bool zeroed = takeReleasedZeros(count);
        adviseHugePages(std::vector<T>::data(), count * sizeof(T));
        if (!zeroed) std::vector<T>::resize(count);
    }
    // Lets the vector end behind `count` elements made zero by released pages,
    // without writing them.  That needs an element whose value-initialised
    // form is zero bytes and which no constructor or destructor has to see
    // (numbers and the packed point, vector and colour types), and a standard
    // library whose vector a derived class may set the end of: libstdc++,
    // whose vector keeps its end in the protected member _M_impl.  The storage
    // comes from operator new, which makes objects of such types in it
    // implicitly.  False where any of that does not hold; the vector is then
    // still empty.
    bool takeReleasedZeros([[maybe_unused]] std::size_t count) {
#if defined(__GLIBCXX__)
        if constexpr (std::is_trivially_default_constructible_v<T> && std::is_trivially_destructible_v<T>) {
            if (!zeroByReleasingPages(std::vector<T>::data(), count * sizeof(T))) return false;
            this->_M_impl._M_finish = this->_M_impl._M_start + count;
            return true;
        }
#endif
        return false;
    }
    std::int64_t bytes() const { return static_cast<std::int64_t>(std::vector<T>::size() * sizeof(T)); }
    // Runs last in each constructor, so a constructor that throws adds nothing.
    void account() {
        this->accountedBytes_ = bytes();
        ChunkBase::TotalMemsize.fetch_add(this->accountedBytes_, std::memory_order_relaxed);
    }
};

}  // namespace Ravelin
