// The grid library's base of every array, and its registry of array makers.
#pragma once

#include "tessel/Export.hpp"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "pallion/array/TesselTypeIndex.hpp"
#include "ravelin/Cacheable.hpp"
#include "ravelin/ChunkBase.hpp"
#include "ravelin/Creature.hpp"
#include "ravelin/Interfaces.hpp"
#include "tessel/TesselTypeBase.hpp"

namespace Tessel {

struct HyperslabParameters;
class CreativeArrayBase;

// A rank and the extents of each dimension, dimension 0 first.
struct TESSEL_API DynamicSize {
    std::uint32_t rank = 0;
    std::unique_ptr<std::uint64_t[]> extents;

    DynamicSize() = default;
    DynamicSize(std::uint32_t r, const std::uint64_t* values) : rank(r), extents(new std::uint64_t[r]) {
        for (std::uint32_t i = 0; i < r; ++i) extents[i] = values[i];
    }
    DynamicSize(std::initializer_list<std::uint64_t> values)
        : DynamicSize(static_cast<std::uint32_t>(values.size()), values.begin()) {}
    DynamicSize(const DynamicSize& other) : DynamicSize(other.rank, other.extents.get()) {}
    DynamicSize(DynamicSize&&) noexcept = default;
    DynamicSize& operator=(DynamicSize other) noexcept {
        rank = other.rank;
        extents = std::move(other.extents);
        return *this;
    }
    ~DynamicSize() = default;

    // Elements in all dimensions: 1 for rank 0, 0 with no extents.
    std::uint64_t product() const {
        if (rank == 0) return 1;
        if (!extents) return 0;
        std::uint64_t p = 1;
        for (std::uint32_t i = 0; i < rank; ++i) p *= extents[i];
        return p;
    }
};

using CreatorPtr = Ravelin::WeakPtr<CreativeArrayBase, Ravelin::Creature>;

class TESSEL_API MemBase : public Ravelin::Cacheable, public Ravelin::Intercube {
public:
    using Array = Ravelin::StrongPtr<MemBase, Ravelin::Cacheable>;

    // Makes arrays of one element type by rank and extents.
    class Allocator : public Ravelin::Interface<Allocator> {
    public:
        Allocator() = default;
        ~Allocator() override = default;
        virtual Array create(const DynamicSize& size) = 0;
    };

    MemBase(const TesselTypeIndex& type, const CreatorPtr& creator);
    ~MemBase() override;

    const TesselTypeIndex& typeIndex() const { return *type_; }

    virtual std::uint64_t byteSize() const;
    virtual void addSaveInterfaces() = 0;
    virtual int rank() const = 0;
    virtual DynamicSize dynamicSize() const = 0;
    virtual std::uint64_t elementCount() const;
    virtual const std::type_info& elementType() const = 0;
    virtual HyperslabParameters& multiArray() = 0;
    virtual std::string elementText(std::uint64_t index) const = 0;
    virtual void* rawData() const = 0;
    virtual Ravelin::ChunkPtr chunkPointer() const = 0;
    virtual std::uint64_t reservedZeroA() const = 0;
    virtual std::uint64_t reservedZeroB() const = 0;
    virtual Array self() = 0;
    virtual Array component(int index, const CreatorPtr& creator) = 0;
    virtual Array copyRegion(const DynamicSize& origin, const DynamicSize& extents, const CreatorPtr& creator) = 0;
    virtual Array wrapChunk(const Ravelin::ChunkPtr& chunk, const CreatorPtr& creator) = 0;
    virtual bool assignChunk(const Ravelin::ChunkPtr& source) = 0;
    virtual Array clone(const CreatorPtr& creator) = 0;

    // Keeps the allocator for the type object's index; the grid library then
    // makes arrays of that type through create().  Gives false if the index was known.
    static bool registerCreator(const Ravelin::StrongPtr<Allocator, Ravelin::InterfaceBase>& allocator,
                                const Ravelin::StrongPtr<TesselTypeBase, TesselTypeBase>& type);
    // An array of a registered type, or null for an unknown type.
    static Array create(const TesselTypeIndex& type, const DynamicSize& size);
    // The indices of the registered types, in the order of registration.
    static std::vector<TesselTypeIndex> registeredTypeIndices();
    static std::uint32_t registerCreatorCalls();

    // Arrays made by constructors that allocate or wrap a chunk while their class was registered.
    static std::atomic<std::uint32_t> RegisteredTypes;

private:
    // Type indices come from the type objects, which live as long as the library.
    const TesselTypeIndex* type_;
};

}  // namespace Tessel
