// The grid library stand-in: grids, fields and fragments.
//
// A field keeps the arrays given to it, one fragment per store, in the order
// in which they were stored, also when two stores share a fragment name: a
// field never drops data that it was given, never regroups it by name, and a
// host reading its fragments in order reads the rows in the order they came.
// Beside that ordered list, a field indexes its fragments by name and by id,
// so that adding one costs the same with a million fragments as with one.
#pragma once

#include "tessel/Export.hpp"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ravelin/Attributes.hpp"
#include "ravelin/Cacheable.hpp"
#include "ravelin/Creature.hpp"
#include "tessel/MemBase.hpp"

namespace Tessel {

class TESSEL_API OwnerBase {
public:
    virtual ~OwnerBase() = default;
};

template <class X>
struct TESSEL_API Ownable {
    class Container : public Ravelin::ReferenceBase<Container>, public virtual OwnerBase {};
};

class TESSEL_API CreativeArrayBase : public Ravelin::Creature {};
class TESSEL_API BaseSpace {};

class TESSEL_API FragmentID : public Ravelin::ReferenceBase<FragmentID> {
public:
    explicit FragmentID(std::string fragmentName) : name(std::move(fragmentName)) {}
    const std::string name;
};

using FragmentPtr = Ravelin::StrongPtr<FragmentID, FragmentID>;

class TESSEL_API Field : public Ownable<CreativeArrayBase>::Container {
public:
    struct Fragment {
        FragmentPtr id;
        std::vector<MemBase::Array> arrays;  // the one array of this store
    };

    explicit Field(std::string fieldName) : name_(std::move(fieldName)) {}

    // The field's fragment id of that name, made at first request.
    const FragmentPtr& makeFragmentID(const std::string& fragmentName);
    void setPersistentData(const MemBase::Array& array, const FragmentPtr& fragment,
                           const Ravelin::StrongPtr<Ravelin::Cache, Ravelin::CacheBase>& cache,
                           const std::string& text);

    const std::string& fieldName() const { return name_; }
    const std::vector<Fragment>& fragments() const { return stored_; }
    // The first fragment stored under that name, or null if the field has none.
    const Fragment* fragment(const std::string& fragmentName) const;

private:
    std::string name_;
    std::vector<FragmentPtr> ids_;
    std::vector<Fragment> stored_;
    std::unordered_map<std::string, std::size_t> idByName_;          // into ids_
    std::unordered_map<const FragmentID*, std::size_t> storedById_;  // into stored_: an id's first store
};

using FieldPtr = Ravelin::StrongPtr<Field, Ownable<CreativeArrayBase>::Container>;

class Grid;

// What Grid::operator[] gives: the field of that name, made when first asked for.
class TESSEL_API FieldProxy {
public:
    FieldProxy(Grid& grid, std::string name) : owner_(grid), fieldName_(std::move(name)) {}
    operator FieldPtr&() const;  // NOLINT: the conversion is the proxy's purpose

private:
    Grid& owner_;
    std::string fieldName_;
};

class TESSEL_API Grid : public Ownable<BaseSpace>::Container {
public:
    struct Note {
        std::string converter;
        std::string text;
    };

    FieldProxy operator[](const std::string& name) { return FieldProxy(*this, name); }
    bool makeCartesianRepresentation(int dimension, const std::string& name, unsigned short flags);

    Ravelin::Attributes& attributes() { return attrs_; }
    const Ravelin::Attributes& attributes() const { return attrs_; }
    std::uint64_t timeStamp() const { return stamp_; }
    void setTimeStamp(std::uint64_t value) { stamp_ = value; }

    // Read access for hosts: fields in the order they were made, one by name (null if absent).
    const std::vector<FieldPtr>& fields() const { return fieldList_; }
    FieldPtr field(const std::string& name) const;
    bool hasCartesianRepresentation() const { return representations_ > 0; }
    int cartesianRepresentationCount() const { return representations_; }

    // Texts noted by converters about what they did.
    void addNote(const std::string& converter, const std::string& text) { noteList_.push_back({converter, text}); }
    const std::vector<Note>& notes() const { return noteList_; }

private:
    friend class FieldProxy;
    FieldPtr& fieldFor(const std::string& name);

    Ravelin::Attributes attrs_;
    std::uint64_t stamp_ = 0;
    std::vector<FieldPtr> fieldList_;
    std::vector<Note> noteList_;
    int representations_ = 0;
};

using GridPtr = Ravelin::StrongPtr<Grid, Ownable<BaseSpace>::Container>;

}  // namespace Tessel
