#include "tessel/Grid.hpp"

#include <mutex>

#include "tessel/MemBase.hpp"
#include "tessel/TesselTypeBase.hpp"

namespace Tessel {

// ---- type objects ------------------------------------------------------------

namespace {
std::mutex typeMutex;
std::vector<Ravelin::WeakPtr<TesselTypeBase, TesselTypeBase>>& remembered() {
    static std::vector<Ravelin::WeakPtr<TesselTypeBase, TesselTypeBase>> list;
    return list;
}
}  // namespace

TesselTypeBase::~TesselTypeBase() = default;

void TesselTypeBase::remember() {
    std::lock_guard lock(typeMutex);
    remembered().emplace_back(this);
}
std::vector<Ravelin::WeakPtr<TesselTypeBase, TesselTypeBase>> TesselTypeBase::rememberedTypes() {
    std::lock_guard lock(typeMutex);
    return remembered();
}

// ---- arrays ------------------------------------------------------------------

std::atomic<std::uint32_t> MemBase::RegisteredTypes{0};

namespace {
struct Registration {
    TesselTypeIndex index;
    Ravelin::StrongPtr<MemBase::Allocator, Ravelin::InterfaceBase> allocator;
};
std::mutex allocatorMutex;
std::uint32_t registerCalls = 0;
std::vector<Registration>& registrations() {
    static std::vector<Registration> list;
    return list;
}
}  // namespace

MemBase::MemBase(const TesselTypeIndex& index, const CreatorPtr&) : type_(&index) {}
MemBase::~MemBase() = default;

std::uint64_t MemBase::byteSize() const {
    const Ravelin::ChunkPtr chunk = chunkPointer();
    return chunk.isNull() ? 0 : chunk->elementSize() * chunk->elementCount();
}
std::uint64_t MemBase::elementCount() const { return dynamicSize().product(); }

bool MemBase::registerCreator(const Ravelin::StrongPtr<Allocator, Ravelin::InterfaceBase>& allocator,
                              const Ravelin::StrongPtr<TesselTypeBase, TesselTypeBase>& typeObject) {
    std::lock_guard lock(allocatorMutex);
    ++registerCalls;
    if (allocator.isNull() || typeObject.isNull()) return false;
    for (const auto& known : registrations())
        if (known.index == typeObject->typeIndex()) return false;
    registrations().push_back({typeObject->typeIndex(), allocator});
    return true;
}
MemBase::Array MemBase::create(const TesselTypeIndex& index, const DynamicSize& size) {
    Ravelin::StrongPtr<Allocator, Ravelin::InterfaceBase> allocator;
    {
        std::lock_guard lock(allocatorMutex);
        for (const auto& known : registrations())
            if (known.index == index) allocator = known.allocator;
    }
    return allocator.isNull() ? Array() : allocator->create(size);
}
std::vector<TesselTypeIndex> MemBase::registeredTypeIndices() {
    std::lock_guard lock(allocatorMutex);
    std::vector<TesselTypeIndex> result;
    for (const auto& known : registrations()) result.push_back(known.index);
    return result;
}
std::uint32_t MemBase::registerCreatorCalls() {
    std::lock_guard lock(allocatorMutex);
    return registerCalls;
}

// ---- fields and grids ----------------------------------------------------------

const FragmentPtr& Field::makeFragmentID(const std::string& fragmentName) {
    const auto [known, made] = idByName_.try_emplace(fragmentName, ids_.size());
    if (made) ids_.emplace_back(new FragmentID(fragmentName));
    return ids_[known->second];
}

void Field::setPersistentData(const MemBase::Array& array, const FragmentPtr& fragment,
                              const Ravelin::StrongPtr<Ravelin::Cache, Ravelin::CacheBase>&, const std::string&) {
    storedById_.try_emplace(fragment.get(), stored_.size());
    stored_.push_back({fragment, {array}});
}

const Field::Fragment* Field::fragment(const std::string& fragmentName) const {
    const auto id = idByName_.find(fragmentName);
    if (id == idByName_.end()) return nullptr;
    const auto entry = storedById_.find(ids_[id->second].get());
    return entry == storedById_.end() ? nullptr : &stored_[entry->second];
}

FieldProxy::operator FieldPtr&() const { return owner_.fieldFor(fieldName_); }

FieldPtr& Grid::fieldFor(const std::string& name) {
    for (auto& field : fieldList_)
        if (field->fieldName() == name) return field;
    fieldList_.emplace_back(new Field(name));
    return fieldList_.back();
}

FieldPtr Grid::field(const std::string& name) const {
    for (const auto& field : fieldList_)
        if (field->fieldName() == name) return field;
    return FieldPtr();
}

bool Grid::makeCartesianRepresentation(int, const std::string&, unsigned short) {
    ++representations_;
    return true;
}

}  // namespace Tessel
