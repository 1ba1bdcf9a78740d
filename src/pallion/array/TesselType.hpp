// One type object per element type, living for the whole life of the library.
#pragma once

#include <string>
#include <typeinfo>

#include "pallion/Export.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/memory/Chunk.hpp"
#include "tessel/TesselTypeBase.hpp"

namespace Tessel {

template <class T>
// Default visibility on purpose: get() holds the one type object of T, which
// the grid library keeps and every shared library must find again.
class PALLION_API TesselType : public TesselTypeBase {
public:
    using Traits = ElementTraits<T>;

    // The singleton, made at first use under the language's once-only guard.
    // It lives in static storage under Auto, so no pointer ever deletes it, and
    // it is destroyed at exit, in the reverse order of first use.
    static Ravelin::WeakPtr<TesselTypeBase, TesselTypeBase> get() {
        static Ravelin::Auto<TesselType<T>> instance;
        return Ravelin::WeakPtr<TesselTypeBase, TesselTypeBase>(instance.self);
    }

    const std::type_info& typeInfo() const override { return typeid(T); }
    bool isType(const std::type_info& t) const override { return t.name() == typeid(T).name() || t == typeid(T); }
    Ravelin::ChunkPtr createChunk(std::size_t count) const override {
        return Ravelin::ChunkPtr(new Ravelin::Chunk<T>(count));
    }
    int echoValue(const int& v) const override { return v; }
    Ravelin::WeakPtr<TesselTypeBase, TesselTypeBase> componentType() const override {
        using C = typename Traits::Component;
        if constexpr (std::is_same_v<C, T>)
            return Ravelin::WeakPtr<TesselTypeBase, TesselTypeBase>(this->self);
        else
            return TesselType<C>::get();
    }
    std::string componentName(int i) const override { return Traits::componentName(i); }
    const std::type_info& domainType() const override { return Traits::domain(); }
    int isVectorKind() const override { return std::is_same_v<T, TVector> ? 1 : 0; }
    int reservedMark() const override { return 0; }

protected:
    friend class Ravelin::Auto<TesselType<T>>;
    // Runs only for the singleton: it is announced to the grid library once
    // it has its final virtual table.
    TesselType() : TesselTypeBase(typeIndexOf<T>()) { remember(); }
};

}  // namespace Tessel
