// The grid library's base of the element type objects.
#pragma once

#include "tessel/Export.hpp"

#include <cstddef>
#include <string>
#include <typeinfo>
#include <vector>

#include "pallion/array/TesselTypeIndex.hpp"
#include "ravelin/ChunkBase.hpp"

namespace Tessel {

class TESSEL_API TesselTypeBase : private TesselTypeIndex, public Ravelin::ReferenceBase<TesselTypeBase> {
public:
    explicit TesselTypeBase(const TesselTypeIndex& index) : TesselTypeIndex(index) {}
    ~TesselTypeBase() override;

    const TesselTypeIndex& typeIndex() const { return *this; }

    virtual const std::type_info& typeInfo() const = 0;
    virtual bool isType(const std::type_info& t) const = 0;
    virtual Ravelin::ChunkPtr createChunk(std::size_t count) const = 0;
    virtual int echoValue(const int& v) const = 0;
    virtual Ravelin::WeakPtr<TesselTypeBase, TesselTypeBase> componentType() const = 0;
    virtual std::string componentName(int i) const = 0;
    virtual const std::type_info& domainType() const = 0;
    virtual int isVectorKind() const = 0;
    virtual int reservedMark() const = 0;

    // Keeps a weak pointer to the finished type object, so that the grid
    // library can list the types it knows.
    void remember();
    static std::vector<Ravelin::WeakPtr<TesselTypeBase, TesselTypeBase>> rememberedTypes();
};

}  // namespace Tessel
