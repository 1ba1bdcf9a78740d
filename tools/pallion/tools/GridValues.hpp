// Reading values back out of a grid, written once for every host helper:
// an array's element type found among the nine, its parse-string name, and
// the elements of an array or a field as the chunks hold them.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "pallion/array/ElementTraits.hpp"
#include "pallion/memory/Chunk.hpp"
#include "pallion/tools/Messages.hpp"
#include "tessel/Grid.hpp"

namespace Pallion::Tools {

// Calls f.template operator()<T>() with the element type that `type` stands
// for, one of the nine; gives false, calling nothing, for any other type.
template <class F>
bool withElementType(const Tessel::TesselTypeIndex& type, F&& f) {
    bool found = false;
    Tessel::forEachElementType([&]<class T>() {
        if (!found && type == Tessel::typeIndexOf<T>()) {
            found = true;
            f.template operator()<T>();
        }
    });
    return found;
}

// The same with the element type of `array`.
template <class F>
bool withElementType(const Tessel::MemBase& array, F&& f) {
    return withElementType(array.typeIndex(), std::forward<F>(f));
}

// The name a parse string gives the element type of `array` ("point", "rgb",
// "float"...), or the type's own name for a type that is not one of the nine.
inline std::string parseTypeName(const Tessel::MemBase& array) {
    std::string name = array.typeIndex().typeName;
    withElementType(array, [&]<class T>() { name = Tessel::ElementTraits<T>::parseName; });
    return name;
}

// The elements of one array of element type T, where the chunk holds them;
// empty for an array of another type.
template <class T>
std::span<const T> elementsOf(const Tessel::MemBase& array) {
    if (!(array.typeIndex() == Tessel::typeIndexOf<T>()) || array.rawData() == nullptr) return {};
    return {static_cast<const T*>(array.rawData()), static_cast<std::size_t>(array.elementCount())};
}

// The number of elements a field holds over all its fragments.
inline std::uint64_t elementCountOf(const Tessel::Field& field) {
    std::uint64_t n = 0;
    for (const auto& fragment : field.fragments())
        for (const auto& array : fragment.arrays) n += array->elementCount();
    return n;
}

// Whether every array of a field has the element type T (and it has one at least).
template <class T>
bool fieldHolds(const Tessel::Field& field) {
    bool any = false;
    for (const auto& fragment : field.fragments())
        for (const auto& array : fragment.arrays) {
            if (!(array->typeIndex() == Tessel::typeIndexOf<T>())) return false;
            any = true;
        }
    return any;
}

// Calls f(span) for each array of a field in fragment order, the arrays of
// element type T only.
template <class T, class F>
void forEachArray(const Tessel::Field& field, F&& f) {
    for (const auto& fragment : field.fragments())
        for (const auto& array : fragment.arrays)
            if (array->typeIndex() == Tessel::typeIndexOf<T>()) f(elementsOf<T>(*array));
}

// Every element of a field of element type T, one fragment after the other:
// a copy, for a check or a picture, not for writing out a large grid.
template <class T>
std::vector<T> fieldValues(const Tessel::Field& field) {
    std::vector<T> values;
    forEachArray<T>(
        field, [&](std::span<const T> elements) { values.insert(values.end(), elements.begin(), elements.end()); });
    return values;
}

// One line for each fragment name that a field holds more than once, saying
// why it matters (Messages.hpp SharedFragmentName), from each field's name
// and its fragments' names in order.
inline std::vector<std::string> sharedFragmentNames(
    const std::vector<std::pair<std::string, std::vector<std::string>>>& fields) {
    std::vector<std::string> lines;
    for (const auto& [field, fragments] : fields) {
        std::map<std::string, std::size_t> stores;
        std::vector<std::string> order;
        for (const std::string& name : fragments)
            if (++stores[name] == 2) order.push_back(name);
        for (const std::string& name : order)
            lines.push_back(messages::fill(messages::SharedFragmentName, field.c_str(), name.c_str(), stores[name]));
    }
    return lines;
}

// The same for the fields of `grid`.
inline std::vector<std::string> sharedFragmentNames(const Tessel::Grid& grid) {
    std::vector<std::pair<std::string, std::vector<std::string>>> fields;
    for (const auto& field : grid.fields()) {
        auto& [name, fragments] = fields.emplace_back(field->fieldName(), std::vector<std::string>());
        for (const auto& fragment : field->fragments()) fragments.push_back(fragment.id->name);
    }
    return sharedFragmentNames(fields);
}

// Calls `visit` with the values of a grid attribute as the vector its chunk
// holds: int, unsigned int, double or std::string, the types attributes are
// stored in.  Gives false, calling nothing, for a null chunk or another type.
template <class Visit>
bool visitAttribute(const Ravelin::ChunkPtr& value, Visit&& visit) {
    bool found = false;
    auto as = [&]<class T>() {
        if (found) return;
        if (const auto* chunk = dynamic_cast<const Ravelin::Chunk<T>*>(value.get())) {
            found = true;
            visit(chunk->vector());
        }
    };
    as.template operator()<int>();
    as.template operator()<unsigned int>();
    as.template operator()<double>();
    as.template operator()<std::string>();
    return found;
}

}  // namespace Pallion::Tools
