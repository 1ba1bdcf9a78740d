// Announcing the nine element types to the grid library, which can then make
// arrays of each type by rank and extents.
#pragma once

#include "pallion/array/MemArray.hpp"

namespace Tessel {

template <class T>
class MemArrayAllocator final : public MemBase::Allocator {
public:
    const std::type_info& interfaceType() const override { return typeid(MemBase::Allocator); }

    // A zero-filled array of rank 1 to 4; any other rank gives null and allocates nothing.
    MemBase::Array create(const DynamicSize& size) override {
        const CreatorPtr creator;
        switch (size.rank) {
            case 1:
                return make<1>(size, creator);
            case 2:
                return make<2>(size, creator);
            case 3:
                return make<3>(size, creator);
            case 4:
                return make<4>(size, creator);
            default:
                return MemBase::Array();
        }
    }

    // Hands an allocator and the type object to the grid library, once per type.
    static bool registerOnce() {
        static const bool registered = [] {
            Ravelin::StrongPtr<MemBase::Allocator, Ravelin::InterfaceBase> allocator(new MemArrayAllocator<T>);
            Ravelin::StrongPtr<TesselTypeBase, TesselTypeBase> type(TesselType<T>::get());
            MemBase::registerCreator(allocator, type);
            return true;
        }();
        return registered;
    }

private:
    template <int N>
    static MemBase::Array make(const DynamicSize& size, const CreatorPtr& creator) {
        MultiIndex<N> extents{};
        for (int d = 0; d < N; ++d) extents[d] = size.extents ? size.extents[d] : 0;
        return MemBase::Array(new MemArray<N, T>(extents, creator));
    }
};

// Sets the typeRegistered flags of all thirty-six array classes: rank 1 for
// the nine types in order (these nine calls register the types), then ranks 2
// to 4 for the types in reverse order, which only set their flags.
void registerArrayTypes();

}  // namespace Tessel
