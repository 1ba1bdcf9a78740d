// N-dimensional arrays of T on chunks, for N from 1 to 4 and the nine element types.
//
// An array does not hold its values: they lie in a Chunk<T>, and the array
// holds a strong pointer to that chunk and a strided slab on its storage.
// Several arrays may look at one chunk; slices and component views are new
// arrays on the same chunk and copy nothing.
//
// Three faces: MemArrayBase<N> for code that knows the rank, TypedArray<T> for
// code that knows the type, MemBase for code that knows neither.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

#include "pallion/Export.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/array/Iterators.hpp"
#include "pallion/array/TesselType.hpp"
#include "pallion/memory/Chunk.hpp"
#include "pallion/memory/SaveRegistry.hpp"
#include "tessel/MemBase.hpp"

namespace Tessel {

template <int N, class T>
class MemArray;

namespace detail {
// For the MemBase initialisers of the abstract faces, which never run: the
// most derived class initialises the virtual base.
inline const TesselTypeIndex& noTypeIndex() {
    static const TesselTypeIndex none;
    return none;
}
}  // namespace detail

template <int N>
class MemArrayBase : public virtual MemBase {
public:
    MemArrayBase() : MemBase(detail::noTypeIndex(), CreatorPtr()) {}  // the most derived class initialises MemBase

    int rank() const override { return N; }
    virtual MultiIndex<N> arrayExtents() const = 0;
    virtual Array createArray(const MultiIndex<N>& extents, const CreatorPtr& creator) = 0;
    virtual Array copyRegion(const MultiIndex<N>& origin, const MultiIndex<N>& extents, const CreatorPtr& creator) = 0;

    // Null unless both sizes have rank N.
    Array copyRegion(const DynamicSize& origin, const DynamicSize& extents, const CreatorPtr& creator) override {
        if (origin.rank != N || extents.rank != N || !origin.extents || !extents.extents) return Array();
        MultiIndex<N> o{}, e{};
        for (int d = 0; d < N; ++d) {
            o[d] = origin.extents[d];
            e[d] = extents.extents[d];
        }
        return copyRegion(o, e, creator);
    }
    DynamicSize dynamicSize() const override {
        const MultiIndex<N> e = arrayExtents();
        return DynamicSize(N, e.data());
    }
    virtual Array slice(std::uint64_t index, const CreatorPtr& creator) = 0;
};

template <class T>
class TypedArray : public virtual MemBase {
public:
    TypedArray() : MemBase(detail::noTypeIndex(), CreatorPtr()) {}  // the most derived class initialises MemBase

    virtual T firstElement() const = 0;
    virtual T lastElement() const = 0;
    CreativeIterator<T>& multiArray() override = 0;
    virtual const CreativeIterator<T>& multiArray() const = 0;
    virtual Ravelin::StrongPtr<Ravelin::TypedChunk<T>, Ravelin::ChunkBase> typedChunk() const = 0;
    // The chunk as its base, whether or not the typed cast succeeded: its block keeps it alive.
    Ravelin::ChunkPtr chunkPointer() const override { return Ravelin::ChunkPtr(typedChunk()); }
    const std::type_info& elementType() const override { return typeid(T); }
};

template <int N, class T>
class ReferencingMemArray : public MemArrayBase<N>, public MultiArray<N, T>, public TypedArray<T> {
public:
    using Array = MemBase::Array;
    using TypedChunkPtr = Ravelin::StrongPtr<Ravelin::TypedChunk<T>, Ravelin::ChunkBase>;

    MultiIndex<N> arrayExtents() const override { return this->extents; }
    bool assignChunk(const Ravelin::ChunkPtr& source) override {
        auto* target = dynamic_cast<Ravelin::Chunk<T>*>(chunk.get());
        const auto* from = dynamic_cast<const Ravelin::Chunk<T>*>(source.get());
        if (target == nullptr || from == nullptr) return false;
        if (target->size() != from->size()) return false;
        target->vector() = from->vector();
        return true;
    }
    TypedChunkPtr typedChunk() const override { return chunk; }
    std::uint64_t byteSize() const override {
        return chunk.isNull() ? 0 : chunk->elementSize() * chunk->elementCount();
    }
    std::uint64_t elementCount() const override { return this->product(); }
    // Text of element `index` of the chunk's storage (not of the slab); empty past its end.
    std::string elementText(std::uint64_t index) const override {
        const auto* typed = dynamic_cast<const Ravelin::Chunk<T>*>(chunk.get());
        if (typed == nullptr || index >= typed->size()) return {};
        std::string text;
        ElementTraits<T>::appendText(text, (*typed)[index]);
        return text;
    }
    void addSaveInterfaces() override { Ravelin::SaveRegistry<MemBase>::traverse(this); }
    MultiArray<N, T>& multiArray() override { return *this; }
    const MultiArray<N, T>& multiArray() const override { return *this; }
    void* rawData() const override { return this->data; }
    std::uint64_t reservedZeroA() const override { return 0; }
    std::uint64_t reservedZeroB() const override { return 0; }
    // An array without reachable elements, such as one on a chunk of another
    // type, gives a zero value instead of reading storage it does not have.
    T firstElement() const override {
        if (!readable()) return T{};
        return *this->elementAddress(MultiIndex<N>{});
    }
    T lastElement() const override {
        if (!readable()) return T{};
        MultiIndex<N> last{};
        for (int d = 0; d < N; ++d) last[d] = this->extents[d] == 0 ? 0 : this->extents[d] - 1;
        return *this->elementAddress(last);
    }

protected:
    ReferencingMemArray()
        : MemBase(detail::noTypeIndex(), CreatorPtr()) {}  // the most derived class initialises MemBase

    // Stores the chunk with its typed cast, which is null for a chunk of another type.
    void holdChunk(const Ravelin::ChunkPtr& source) { chunk = TypedChunkPtr(source); }

    // The slab of an array on a whole chunk (null data for a chunk of another type).
    void wrap(const Ravelin::ChunkPtr& source, const MultiIndex<N>& extents) {
        Ravelin::StrongPtr<Ravelin::Chunk<T>, Ravelin::ChunkBase> typed(source);
        const std::uint64_t n = typed.isNull() ? 0 : typed->size();
        this->count = n;
        this->stride = 1;
        this->length = n;
        this->offset = 0;
        this->tail = 0;
        this->data = typed.isNull() ? nullptr : typed->data();
        this->provider = nullptr;
        this->extents = extents;
        this->applyTailRule(this->product());
        holdChunk(source);
    }

    bool readable() const { return (this->data != nullptr && this->reachable() > 0) || this->provider != nullptr; }

    TypedChunkPtr chunk;
};

template <int N, class T>
// Default visibility on purpose: typeRegistered is set once at load by the
// library and read by every shared library that makes arrays.
class PALLION_API MemArray final : public ReferencingMemArray<N, T> {
public:
    using Array = MemBase::Array;
    using Component = typename ElementTraits<T>::Component;

    static inline bool typeRegistered = false;

    // 1: an array on an existing chunk.
    MemArray(const Ravelin::ChunkPtr& chunk, const MultiIndex<N>& extents, const CreatorPtr& creator)
        : MemBase(typeIndexOf<T>(), creator) {
        this->wrap(chunk, extents);
        if (typeRegistered) MemBase::RegisteredTypes.fetch_add(1, std::memory_order_relaxed);
    }
    // 2: an array on a new zero-filled chunk of the product of the extents.
    MemArray(const MultiIndex<N>& extents, const CreatorPtr& creator)
        : MemArray(Ravelin::ChunkPtr(new Ravelin::Chunk<T>(Tessel::productOf(extents))), extents, creator) {}
    // 3: an array on a given slab of a chunk, for views.
    MemArray(const Iterator<T>& slab, const MultiIndex<N>& extents, const Ravelin::ChunkPtr& chunk,
             const CreatorPtr& creator)
        : MemBase(typeIndexOf<T>(), creator) {
        static_cast<MultiArray<N, T>&>(*this) = MultiArray<N, T>(slab, extents, nullptr);
        this->holdChunk(chunk);
    }
    ~MemArray() override { this->chunk.reset(); }

    Array createArray(const MultiIndex<N>& extents, const CreatorPtr& creator) override {
        return Array(new MemArray(extents, creator));
    }
    using MemArrayBase<N>::copyRegion;
    // A new array holding a copy of the region; the caller keeps the region inside this array.
    Array copyRegion(const MultiIndex<N>& origin, const MultiIndex<N>& extents, const CreatorPtr& creator) override {
        auto* copy = new MemArray(extents, creator);
        Array result(copy);
        MultiIndex<4> at{}, limits{1, 1, 1, 1};
        for (int d = 0; d < N; ++d) limits[d] = extents[d];
        if (copy->product() == 0) return result;
        do {
            MultiIndex<N> from{}, to{};
            for (int d = 0; d < N; ++d) {
                to[d] = at[d];
                from[d] = origin[d] + at[d];
            }
            *copy->elementAddress(to) = *this->elementAddress(from);
        } while (next(at, limits));
        return result;
    }
    // A view of rank N-1 at `index` of the last dimension; null for N = 1.
    Array slice(std::uint64_t index, const CreatorPtr& creator) override {
        if constexpr (N == 1) {
            (void)index;
            (void)creator;
            return Array();
        } else {
            MultiIndex<N - 1> lower{};
            std::uint64_t e = 1;
            for (int d = 0; d < N - 1; ++d) {
                lower[d] = this->extents[d];
                e *= lower[d];
            }
            Iterator<T> slab = *this;
            slab.offset += index * e;
            return Array(new MemArray<N - 1, T>(slab, lower, this->chunkPointer(), creator));
        }
    }
    Array self() override { return Array(this); }
    Array wrapChunk(const Ravelin::ChunkPtr& chunk, const CreatorPtr& creator) override {
        if (chunk.isNull() || chunk->elementCount() != this->product()) return Array();
        return Array(new MemArray(chunk, this->extents, creator));
    }
    Array clone(const CreatorPtr& creator) override {
        if (this->chunk.isNull()) return Array();
        return Array(new MemArray(this->chunk->clone(), this->extents, creator));
    }
    // A view of one component on the same chunk, or null for an index too high.
    Array component(int index, const CreatorPtr& creator) override {
        constexpr bool triple = ElementTraits<T>::components == 3;
        if (index < 0 || index >= static_cast<int>(ElementTraits<T>::components)) return Array();
        // A point, vector or colour array gives a strided view of its components;
        // a scalar array gives a plain view of itself.
        using C = std::conditional_t<triple, Component, T>;
        Iterator<C> slab;
        slab.stride = triple ? 3 : 1;
        slab.count = slab.stride * this->count;
        slab.length = triple ? 0 : this->count;
        slab.offset = 0;
        slab.data = this->data ? reinterpret_cast<C*>(this->data) + index : nullptr;
        slab.tail = this->count < this->available() - this->tail ? 0 : this->tail + this->count - this->available();
        return Array(new MemArray<N, C>(slab, this->extents, this->chunkPointer(), creator));
    }

private:
    template <int, class>
    friend class MemArray;
};

}  // namespace Tessel
