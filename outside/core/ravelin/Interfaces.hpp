// Interfaces: counted objects that can be applied to an Intercube.
#pragma once

#include <typeinfo>

#include "pallion/memory/Pointers.hpp"

namespace Ravelin {

class InterfaceIterationParameter : public ReferenceBase<InterfaceIterationParameter> {};

// Something interfaces can be applied to.  Its one operation gives a null pointer.
class Intercube {
public:
    virtual ~Intercube() = default;
    virtual Intercube* interfaceProvider() const { return nullptr; }
};

class InterfaceBase : public ReferenceBase<InterfaceBase> {
public:
    virtual const std::type_info& interfaceType() const = 0;
    virtual bool apply_const(const Intercube&, const StrongPtr<InterfaceIterationParameter>&) const { return false; }
    virtual bool apply(Intercube&, const StrongPtr<InterfaceIterationParameter>&) { return false; }
};

template <class T>
class Interface : public InterfaceBase {
public:
    const std::type_info& interfaceType() const override { return typeid(T); }
};

}  // namespace Ravelin
