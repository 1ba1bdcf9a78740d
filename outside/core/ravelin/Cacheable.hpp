// Cacheable objects (arrays are) and the cache they are stored with.
#pragma once

#include "ravelin/Export.hpp"

#include <atomic>
#include <cstdint>
#include <typeinfo>

#include "pallion/memory/Pointers.hpp"

namespace Ravelin {

class RAVELIN_API Cacheable : public ReferenceBase<Cacheable> {
public:
    ~Cacheable() override = default;

    // Runs when the strong count rises from 0; counted so that hosts and tests can see it.
    void CacheableDeferredConstructor() { ++deferredConstructions; }
    // Runs once, right before the object is deleted by its last strong release.
    void PreDestructor() { PreDestructorCalls.fetch_add(1); }

    virtual const std::type_info& DomainType() const { return typeid(Cacheable); }
    virtual const std::type_info& CreatorType() const { return typeid(void); }

    unsigned deferredConstructions = 0;
    static std::atomic<std::uint64_t> PreDestructorCalls;
};

class RAVELIN_API CacheBase : public ReferenceBase<CacheBase> {};

// The cache named when data is handed to a field.  This stand-in keeps nothing
// itself: the field holds its arrays.
class RAVELIN_API Cache : public CacheBase {
public:
    static const StrongPtr<Cache, CacheBase>& MemCache();
};

}  // namespace Ravelin
