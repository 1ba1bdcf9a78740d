// Offering a new object to the creators registered for its type.
#pragma once

#include <cstdint>
#include <typeinfo>

#include "ravelin/SaveRegistryBase.hpp"

namespace Ravelin {

template <class T>
class SaveInterfaceCreator : public SaveInterfaceCreatorBase {
public:
    virtual std::uint32_t addInterfaces(T* object) = 0;
};

template <class T>
class SaveRegistry : public SaveRegistryBase {
public:
    static void traverse(T* object) {
        SaveRegistry<T> registry(object);
        registry.traverseCreators(typeid(T));
    }

    std::uint32_t visit(const std::type_info& /*key*/,
                        const WeakPtr<SaveInterfaceCreatorBase, SaveInterfaceCreatorBase>& creator) override {
        StrongPtr<SaveInterfaceCreator<T>, SaveInterfaceCreatorBase> typed(creator);
        if (typed.isNull()) return 0;  // a creator of another type is passed over
        return typed->addInterfaces(object);
    }

private:
    explicit SaveRegistry(T* offered) : object(offered) {}
    T* object;  // the registry's documented field
};

}  // namespace Ravelin
