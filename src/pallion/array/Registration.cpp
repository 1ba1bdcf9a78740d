#include "pallion/array/detail/Registration.hpp"

namespace Tessel {

namespace {
template <int N, class T>
void registerClass() {
    static const bool once = (MemArray<N, T>::typeRegistered = MemArrayAllocator<T>::registerOnce(), true);
    (void)once;
}

template <class T>
void registerHigherRanks() {
    registerClass<2, T>();
    registerClass<3, T>();
    registerClass<4, T>();
}

template <std::size_t... I>
void registerAll(std::index_sequence<I...>) {
    (registerClass<1, std::tuple_element_t<I, ElementTypes>>(), ...);
    // The higher ranks go from the last type back to the first.
    (registerHigherRanks<std::tuple_element_t<ElementTypeCount - 1 - I, ElementTypes>>(), ...);
}
}  // namespace

void registerArrayTypes() { registerAll(std::make_index_sequence<ElementTypeCount>()); }

}  // namespace Tessel
