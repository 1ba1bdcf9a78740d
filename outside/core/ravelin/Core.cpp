// The core library stand-in: counters, reports, registries and services.
#include <cxxabi.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <typeindex>
#include <vector>

#include "ravelin/Attributes.hpp"
#include "ravelin/Cacheable.hpp"
#include "ravelin/ChunkBase.hpp"
#include "ravelin/Console.hpp"
#include "ravelin/SaveRegistryBase.hpp"
#include "ravelin/Support.hpp"

namespace Ravelin {

std::atomic<std::uint32_t> PointerID{0};
std::atomic<std::uint64_t> Ageable::GlobalTime{0};
std::atomic<std::int64_t> ChunkBase::TotalMemsize{0};
std::atomic<std::uint64_t> Cacheable::PreDestructorCalls{0};

// ---- SpeakPtr ----------------------------------------------------------------

namespace {
std::array<std::atomic<std::uint64_t>, 4> reportCounts{};
std::mutex listenerMutex;
SpeakPtr::Listener& listener() {
    static SpeakPtr::Listener instance;
    return instance;
}
void speak(SpeakPtr::Report report, int strong, int weak, const std::type_info* domain) {
    reportCounts[static_cast<std::size_t>(report)].fetch_add(1);
    SpeakPtr::Listener current;
    {
        std::lock_guard lock(listenerMutex);
        current = listener();
    }
    if (current) current(SpeakPtr::Event{report, strong, weak, domain});
}
}  // namespace

SpeakPtr* SpeakPtr::theSpeaker() {
    static SpeakPtr speaker;
    return &speaker;
}
void SpeakPtr::SelfConstruction(const std::type_info&, const void*, const void*) {
    speak(Report::SelfConstruction, 0, 0, nullptr);
}
void SpeakPtr::DestructionAssertion(int strong, int weak, const std::type_info& domain) {
    speak(Report::DestructionAssertion, strong, weak, &domain);
}
void SpeakPtr::DestructionCancelled(int strong, int weak, const std::type_info& domain) {
    speak(Report::DestructionCancelled, strong, weak, &domain);
}
void SpeakPtr::WarningUnctionChange(int strong, int weak, const std::type_info& domain) {
    speak(Report::WarningUnctionChange, strong, weak, &domain);
}
std::uint64_t SpeakPtr::count(Report report) { return reportCounts[static_cast<std::size_t>(report)].load(); }
SpeakPtr::Listener SpeakPtr::setListener(Listener fresh) {
    std::lock_guard lock(listenerMutex);
    return std::exchange(listener(), std::move(fresh));
}

// ---- names and hooks ---------------------------------------------------------

std::string Typename(const std::type_info& type) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    return status == 0 && name ? std::string(name.get()) : std::string(type.name());
}

namespace {
std::atomic<std::uint64_t> breakpoints{0};
}
void breakpoint() { breakpoints.fetch_add(1); }
std::uint64_t breakpointCount() { return breakpoints.load(); }

// ---- Cache -------------------------------------------------------------------

const StrongPtr<Cache, CacheBase>& Cache::MemCache() {
    static const StrongPtr<Cache, CacheBase> cache(new Cache);
    return cache;
}

// ---- Attributes --------------------------------------------------------------

void Attributes::setAttribute(const std::string& key, const ChunkPtr& value) {
    for (auto& [name, stored] : entries_)
        if (name == key) {
            stored = value;
            return;
        }
    entries_.emplace_back(key, value);
}
ChunkPtr Attributes::getAttribute(const std::string& key) const {
    for (const auto& [name, stored] : entries_)
        if (name == key) return stored;
    return {};
}
std::vector<std::string> Attributes::names() const {
    std::vector<std::string> result;
    for (const auto& entry : entries_) result.push_back(entry.first);
    return result;
}

// ---- Console -----------------------------------------------------------------

namespace {
std::mutex sinkMutex;
Console::Sink& sink() {
    static Console::Sink instance;
    return instance;
}
}  // namespace

Console::~Console() {
    Sink current;
    {
        std::lock_guard lock(sinkMutex);
        current = sink();
    }
    if (current)
        current(message_);
    else
        std::cerr << message_ << '\n';  // the console is the one place that writes to a stream itself
}
Console::Sink Console::setSink(Sink fresh) {
    std::lock_guard lock(sinkMutex);
    return std::exchange(sink(), std::move(fresh));
}

// ---- SaveRegistryBase --------------------------------------------------------

namespace {
using CreatorPtr = StrongPtr<SaveInterfaceCreatorBase, SaveInterfaceCreatorBase>;
std::mutex creatorMutex;
std::map<std::type_index, std::vector<CreatorPtr>>& creators() {
    static std::map<std::type_index, std::vector<CreatorPtr>> instance;
    return instance;
}
}  // namespace

SaveRegistryBase::SaveRegistryBase() = default;
SaveRegistryBase::~SaveRegistryBase() = default;

void SaveRegistryBase::traverseCreators(const std::type_info& type) {
    std::vector<CreatorPtr> list;
    {
        std::lock_guard lock(creatorMutex);
        auto found = creators().find(type);
        if (found == creators().end()) return;
        list = found->second;
    }
    for (const auto& creator : list) visit(type, WeakPtr<SaveInterfaceCreatorBase, SaveInterfaceCreatorBase>(creator));
}
void SaveRegistryBase::registerCreator(const std::type_info& type, const CreatorPtr& creator) {
    std::lock_guard lock(creatorMutex);
    creators()[type].push_back(creator);
}
void SaveRegistryBase::clearCreators(const std::type_info& type) {
    std::lock_guard lock(creatorMutex);
    creators().erase(type);
}

}  // namespace Ravelin
