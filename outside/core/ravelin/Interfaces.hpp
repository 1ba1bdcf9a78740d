// Interfaces: counted objects that can be applied to an Intercube.
#pragma once

#include "ravelin/Export.hpp"

#include <typeinfo>

#include "pallion/memory/Pointers.hpp"

namespace Ravelin {

class RAVELIN_API InterfaceIterationParameter : public ReferenceBase<InterfaceIterationParameter> {};

// Something interfaces can be applied to.  Its one operation gives a null pointer.
class RAVELIN_API Intercube {
public:
    virtual ~Intercube() = default;
    virtual Intercube* interfaceProvider() const { return nullptr; }
};

class RAVELIN_API InterfaceBase : public ReferenceBase<InterfaceBase> {
public:
    virtual const std::type_info& interfaceType() const = 0;
    virtual bool apply_const(const Intercube&, const StrongPtr<InterfaceIterationParameter>&) const { return false; }
    virtual bool apply(Intercube&, const StrongPtr<InterfaceIterationParameter>&) { return false; }
};

template <class T>
class RAVELIN_API Interface : public InterfaceBase {
public:
    const std::type_info& interfaceType() const override { return typeid(T); }
};

}  // namespace Ravelin
