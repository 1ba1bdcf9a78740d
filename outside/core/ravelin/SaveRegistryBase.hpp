// Registry of save-interface creators, kept per type.  A SaveRegistry<T> asks
// it to visit each creator registered for T.
#pragma once

#include "ravelin/Export.hpp"

#include <cstdint>
#include <typeinfo>

#include "pallion/memory/Pointers.hpp"

namespace Ravelin {

class RAVELIN_API SaveInterfaceCreatorBase : public ReferenceBase<SaveInterfaceCreatorBase> {};

class RAVELIN_API SaveRegistryBase {
public:
    SaveRegistryBase();
    virtual ~SaveRegistryBase();

    // Calls visit() once per creator registered for `type`, in the order of registration.
    void traverseCreators(const std::type_info& type);
    virtual std::uint32_t visit(const std::type_info& key,
                                const WeakPtr<SaveInterfaceCreatorBase, SaveInterfaceCreatorBase>& creator) = 0;

    // Registers a creator for a type; the registry keeps it alive.
    static void registerCreator(const std::type_info& type,
                                const StrongPtr<SaveInterfaceCreatorBase, SaveInterfaceCreatorBase>& creator);
    // Removes all creators of a type (for hosts that unload plugins, and for tests).
    static void clearCreators(const std::type_info& type);
};

}  // namespace Ravelin
