// Counted pointers whose count lives in a control block made by the object itself.
//
// Every counted object derives from ReferenceBase<D>, where D is its domain:
// the class that carries the count.  The object makes its control block in its
// constructor and keeps a pointer object to it (`self`), so a plain `this` can
// always be turned back into a counted pointer.  StrongPtr<T,D> owns one strong
// and one weak count, WeakPtr<T,D> one weak count.  The last strong release
// destroys the object; the last weak release frees the block.  A dead object
// reads as null through every pointer that still holds the block.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "pallion/Export.hpp"
#include "ravelin/Support.hpp"

namespace Ravelin {

class Cacheable;
template <class D>
class ReferenceBase;

// `strong` marks of a dead object.
inline constexpr std::int32_t DestroyedMark = -111;
inline constexpr std::int32_t DestroyedWhileOwnedMark = -333;

template <class D>
struct ControlBlock {
    std::atomic<std::int32_t> strong{0};
    std::atomic<std::int32_t> weak{0};
    std::atomic<ReferenceBase<D>*> object{nullptr};
};

namespace detail {
struct NoCache {};
struct SelfTag {};

template <class D>
void weakRelease(ControlBlock<D>*& block) {
    if (block == nullptr) return;
    ControlBlock<D>* b = block;
    block = nullptr;
    if (b->weak.fetch_sub(1) == 1) delete b;
}

template <class D>
void acquire(ControlBlock<D>* block) {
    if (block == nullptr || block->strong.load() < 0) return;
    const std::int32_t old = block->strong.fetch_add(1);
    if constexpr (std::is_same_v<D, Cacheable>) {
        // An array is fully built when its first owner appears: that is when
        // its deferred construction runs, with the virtual table of the final class.
        ReferenceBase<D>* object = block->object.load();
        if (old == 0 && object != nullptr) static_cast<D*>(object)->CacheableDeferredConstructor();
    }
}

template <class D>
void strongRelease(ControlBlock<D>* block) {
    if (block == nullptr || block->strong.load() < 1) return;
    if (block->strong.load() == 1) {
        if (ReferenceBase<D>* object = block->object.load()) object->unction();
        if (block->strong.load() != 1)
            SpeakPtr::WarningUnctionChange(block->strong.load(), block->weak.load(), typeid(D));
    }
    if (block->strong.fetch_sub(1) != 1) return;
    SpeakPtr::DestructionAssertion(block->strong.load(), block->weak.load(), typeid(D));
    if (block->strong.load() > 0) {
        // A weak pointer was upgraded while the last count went: the object lives.
        SpeakPtr::DestructionCancelled(block->strong.load(), block->weak.load(), typeid(D));
        return;
    }
    block->strong.exchange(DestroyedMark);
    ReferenceBase<D>* object = block->object.exchange(nullptr);
    if (object == nullptr) return;
    if constexpr (std::is_same_v<D, Cacheable>) static_cast<D*>(object)->PreDestructor();
    delete object;  // the last strong release owns the object: virtual deleting destructor
}
}  // namespace detail

// Common base of WeakPtr and StrongPtr: an id, the block and, where T is not
// the domain itself, the result of the cast from D to T.  It owns no count.
template <class T, class D>
// Default visibility on purpose: nullPointer() keeps one null pointer per
// domain, and that must be the same object in every shared library.
class PALLION_API DynPtr {
public:
    static constexpr bool HasCache = !std::is_same_v<T, D>;
    using Block = ControlBlock<D>;

    std::uint32_t id;
    Block* block = nullptr;
    [[no_unique_address]] std::conditional_t<HasCache, T*, detail::NoCache> cached{};

    T* get() const {
        if (block == nullptr) return nullptr;
        ReferenceBase<D>* object = block->object.load();
        if (object == nullptr || block->strong.load() < 0) return nullptr;
        if constexpr (HasCache)
            return cached;
        else
            return static_cast<D*>(object);
    }
    bool isNull() const { return get() == nullptr; }
    explicit operator bool() const { return get() != nullptr; }
    T* operator->() const { return get(); }
    T& operator*() const { return *get(); }

    std::int32_t strongCount() const { return block ? block->strong.load() : 0; }
    std::int32_t weakCount() const { return block ? block->weak.load() : 0; }

    // The null pointer of the domain, made once at first use.
    static const DynPtr<D, D>& nullPointer() {
        static const DynPtr<D, D> null;
        return null;
    }

protected:
    friend class ReferenceBase<D>;
    template <class, class>
    friend class DynPtr;

    DynPtr() : id(newPointerID()) {}
    explicit DynPtr(detail::SelfTag) : id(~0u) {}
    ~DynPtr() = default;

    // Copy from `source`: a new id, the same block, the cast for T, one more weak count.
    template <class U>
    void copyFrom(const DynPtr<U, D>& source) {
        if (static_cast<const void*>(&source) == static_cast<const void*>(this)) {
            // Copying a pointer onto itself while it is being built: it stays null.
            block = nullptr;
            SpeakPtr::theSpeaker()->SelfConstruction(typeid(DynPtr<D, D>), this, block);
            return;
        }
        block = source.block;
        setCache();
        if (block != nullptr) block->weak.fetch_add(1);
    }

    void setCache() {
        if constexpr (HasCache) {
            cached = nullptr;
            if (block == nullptr || block->strong.load() < 0) return;
            if (ReferenceBase<D>* object = block->object.load()) cached = dynamic_cast<T*>(static_cast<D*>(object));
        }
    }

    // The source for a pointer made from a raw pointer: the object's own self pointer.
    static const DynPtr<D, D>& sourceOf(T* raw) {
        if (raw == nullptr) return nullPointer();
        return static_cast<const ReferenceBase<D>*>(static_cast<D*>(raw))->self;
    }
};

template <class T, class D = T>
class WeakPtr : public DynPtr<T, D> {
    using Base = DynPtr<T, D>;

public:
    WeakPtr() = default;
    WeakPtr(T* raw) { this->copyFrom(Base::sourceOf(raw)); }  // NOLINT: implicit by design
    WeakPtr(const WeakPtr& other) : Base() { this->copyFrom(other); }
    template <class U>
    WeakPtr(const DynPtr<U, D>& other) {  // NOLINT
        this->copyFrom(other);
    }
    WeakPtr& operator=(const WeakPtr& other) { return assign(other); }
    template <class U>
    WeakPtr& operator=(const DynPtr<U, D>& other) {
        return assign(other);
    }
    ~WeakPtr() { detail::weakRelease(this->block); }

private:
    template <class U>
    WeakPtr& assign(const DynPtr<U, D>& other) {
        if (static_cast<const void*>(&other) == this) return *this;
        auto* old = this->block;
        this->block = other.block;
        if (this->block) this->block->weak.fetch_add(1);
        this->setCache();
        detail::weakRelease(old);
        return *this;
    }
};

template <class T, class D = T>
class StrongPtr : public DynPtr<T, D> {
    using Base = DynPtr<T, D>;

public:
    StrongPtr() = default;
    StrongPtr(T* raw) {  // NOLINT: a new object goes under a strong pointer at once
        this->copyFrom(Base::sourceOf(raw));
        detail::acquire(this->block);
    }
    StrongPtr(const StrongPtr& other) : Base() {
        this->copyFrom(other);
        detail::acquire(this->block);
    }
    // Conversion within the domain, and upgrade of a weak pointer.
    template <class U>
    StrongPtr(const DynPtr<U, D>& other) {  // NOLINT
        this->copyFrom(other);
        detail::acquire(this->block);
    }
    StrongPtr(StrongPtr&& other) noexcept {
        this->block = std::exchange(other.block, nullptr);
        if constexpr (Base::HasCache) this->cached = std::exchange(other.cached, nullptr);
    }
    ~StrongPtr() { release(); }

    StrongPtr& operator=(const StrongPtr& other) { return assign(other); }
    template <class U>
    StrongPtr& operator=(const DynPtr<U, D>& other) {
        return assign(other);
    }
    StrongPtr& operator=(StrongPtr&& other) noexcept {
        if (this != &other) {
            release();
            this->block = std::exchange(other.block, nullptr);
            if constexpr (Base::HasCache) this->cached = std::exchange(other.cached, nullptr);
        }
        return *this;
    }
    // Assignment of a raw pointer: nothing changes when it is the object already held.
    StrongPtr& operator=(T* raw) {
        const DynPtr<D, D>& source = Base::sourceOf(raw);
        if (source.block == this->block && this->block != nullptr) return *this;
        release();
        this->block = source.block;
        this->setCache();
        if (this->block != nullptr && raw != nullptr) this->block->weak.fetch_add(1);
        detail::acquire(this->block);
        return *this;
    }

    void reset() { release(); }

private:
    void release() {
        detail::strongRelease(this->block);
        detail::weakRelease(this->block);
        if constexpr (Base::HasCache) this->cached = nullptr;
    }
    template <class U>
    StrongPtr& assign(const DynPtr<U, D>& other) {
        if (static_cast<const void*>(&other) == this) return *this;
        auto* fresh = other.block;
        if (fresh) {
            fresh->weak.fetch_add(1);
            detail::acquire(fresh);
        }
        release();
        this->block = fresh;
        this->setCache();
        return *this;
    }
};

template <class T, class D, class U, class E>
bool operator==(const DynPtr<T, D>& a, const DynPtr<U, E>& b) {
    return static_cast<const void*>(a.get()) == static_cast<const void*>(b.get());
}

// Base of every domain class D.  Makes the control block and holds `self`,
// which counts 1 in `weak`; `serial` numbers the objects of the domain from 1.
// Default visibility on purpose: serialCounter() numbers the objects of a
// domain, and every shared library must count with the same counter.
template <class D>
class PALLION_API ReferenceBase {
public:
    DynPtr<D, D> self{detail::SelfTag{}};
    std::uint64_t serial = 0;

    ReferenceBase() { init(this); }
    ReferenceBase(const ReferenceBase&) : ReferenceBase() {}  // a copy is a new object with its own count
    ReferenceBase& operator=(const ReferenceBase&) { return *this; }

    // Called before the last strong count goes; it may take a new owner.
    virtual void unction() {}

    virtual ~ReferenceBase() {
        ControlBlock<D>* block = self.block;
        if (block != nullptr) {
            if (block->strong.load() >= 0) block->strong.exchange(DestroyedWhileOwnedMark);
            block->strong.exchange(DestroyedMark);
            block->object.store(nullptr);
        }
        detail::weakRelease(self.block);
    }

    static std::atomic<std::uint64_t>& serialCounter() {
        static std::atomic<std::uint64_t> counter{1};
        return counter;
    }

protected:
    // The form with an explicit object: a null object is refused.
    explicit ReferenceBase(ReferenceBase* object) { init(object); }

private:
    void init(ReferenceBase* object) {
        self.id = ~0u;
        auto* block = new ControlBlock<D>;
        block->object.store(object);
        if (object == nullptr) {
            delete block;
            throw MemoryException();
        }
        self.block = block;
        self.id = newPointerID();
        block->weak.fetch_add(1);
        serial = serialCounter().fetch_add(1);
    }
};

// A counted object in static storage: it raises its own strong count once, by
// an acquire that no pointer will release, so no pointer ever deletes it.  Its
// destructor runs at exit and leaves the marks of a dead object.
template <class T>
class Auto final : public T {
public:
    template <class... Args>
    explicit Auto(Args&&... args) : T(std::forward<Args>(args)...) {
        detail::acquire(this->self.block);
    }
    ~Auto() override = default;
};

}  // namespace Ravelin
