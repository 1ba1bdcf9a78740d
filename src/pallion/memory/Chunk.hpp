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

    explicit Chunk(std::size_t count) : std::vector<T>(count) { account(); }
    Chunk(std::size_t count, bool reserveOnly) : std::vector<T>(reserveOnly ? 0 : count) {
        if (reserveOnly) std::vector<T>::reserve(count);
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
    std::int64_t bytes() const { return static_cast<std::int64_t>(std::vector<T>::size() * sizeof(T)); }
    // Runs last in each constructor, so a constructor that throws adds nothing.
    void account() {
        this->accountedBytes_ = bytes();
        ChunkBase::TotalMemsize.fetch_add(this->accountedBytes_, std::memory_order_relaxed);
    }
};

}  // namespace Ravelin
