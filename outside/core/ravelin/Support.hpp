// Small services of the core library that the counted pointers and chunks use:
// pointer ids, the pointer speaker, type names, the debugger hook, the global
// clock and the memory exception.
#pragma once

#include "ravelin/Export.hpp"

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <typeinfo>

namespace Ravelin {

// Running id of pointer objects.  Ids only help debugging; nothing depends on
// them being unique.  Kept atomic so that concurrent pointer copies are no data race.
extern RAVELIN_API std::atomic<std::uint32_t> PointerID;
inline std::uint32_t newPointerID() { return PointerID.fetch_add(1, std::memory_order_relaxed); }

// Receives the reports of the counted pointers.  By default it prints nothing
// and only counts; a host or a test may install a listener to see each report.
class RAVELIN_API SpeakPtr {
public:
    enum class Report { SelfConstruction, DestructionAssertion, DestructionCancelled, WarningUnctionChange };
    struct Event {
        Report report;
        int strong;
        int weak;
        const std::type_info* domain;  // null for SelfConstruction
    };
    using Listener = std::function<void(const Event&)>;

    static SpeakPtr* theSpeaker();

    void SelfConstruction(const std::type_info& domain, const void* pointer, const void* block);
    static void DestructionAssertion(int strong, int weak, const std::type_info& domain);
    static void DestructionCancelled(int strong, int weak, const std::type_info& domain);
    static void WarningUnctionChange(int strong, int weak, const std::type_info& domain);

    // How often each report was made since the library was loaded.
    static std::uint64_t count(Report report);
    // Installs a listener (an empty one removes it); returns the previous one.
    static Listener setListener(Listener listener);
};

// A readable name of a type; the same text for the same type.
RAVELIN_API std::string Typename(const std::type_info& type);

// A place for a debugger to stop; it counts its calls so that tests can see it was reached.
RAVELIN_API void breakpoint();
RAVELIN_API std::uint64_t breakpointCount();

struct RAVELIN_API Ageable {
    // Process-wide clock; each change of a grid's attributes takes the next value as time stamp.
    static std::atomic<std::uint64_t> GlobalTime;
    static std::uint64_t tick() { return GlobalTime.fetch_add(1) + 1; }
};

// Thrown when a counted object is made without an object to count.  It has no text of its own.
class RAVELIN_API MemoryException : public std::exception {};

}  // namespace Ravelin
