#include "GridViews.hpp"

#include <cstdint>
#include <string>
#include <type_traits>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "Numpy.hpp"
#include "Text.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/memory/Chunk.hpp"
#include "pallion/tools/GridValues.hpp"

namespace py = pybind11;

namespace Pallion::Python {

namespace {

// The base object of every array that views a chunk: it holds one count of
// the chunk, so the array outlives the grid and the field it came from.
struct ChunkKeeper {
    Ravelin::ChunkPtr chunk;
};

// A numpy array over `count` elements of T at `data`: (n,) for a scalar,
// (n, 3) for a point, vector or colour.  With a keeper it views the chunk;
// without one (no elements) it is an empty array of its own.
template <class T>
py::array arrayOf(const void* data, std::uint64_t count, const py::object& keeper) {
    using Traits = Tessel::ElementTraits<T>;
    using C = typename Traits::Component;
    static_assert(sizeof(T) == Traits::components * sizeof(C), "elements are stored without gaps");
    std::vector<py::ssize_t> shape{static_cast<py::ssize_t>(count)};
    std::vector<py::ssize_t> strides{static_cast<py::ssize_t>(sizeof(T))};
    if (Traits::components > 1) {
        shape.push_back(Traits::components);
        strides.push_back(sizeof(C));
    }
    if (count == 0 || keeper.is_none()) return py::array_t<C>(shape);
    return py::array_t<C>(shape, strides, static_cast<const C*>(data), keeper);
}

template <class T>
py::tuple componentsOf() {
    using Traits = Tessel::ElementTraits<T>;
    py::tuple names(Traits::components);
    for (unsigned i = 0; i < Traits::components; ++i)
        names[i] = py::str(Traits::components > 1 ? Traits::componentName(static_cast<int>(i)) : std::string());
    return names;
}

py::object attributeValue(const Ravelin::ChunkPtr& value) {
    py::list values;
    Tools::visitAttribute(value, [&](const auto& all) {
        for (const auto& v : all) {
            if constexpr (std::is_same_v<std::decay_t<decltype(v)>, std::string>)
                values.append(decoded(v));
            else
                values.append(v);
        }
    });
    if (values.size() == 1) return values[0];
    return values;
}

}  // namespace

std::pair<py::object, py::tuple> emptyOf(const std::string& type) {
    readyNumpy();
    std::pair<py::object, py::tuple> found{py::none(), py::tuple()};
    Tessel::forEachElementType([&]<class T>() {
        if (type == Tessel::ElementTraits<T>::parseName)
            found = {arrayOf<T>(nullptr, 0, py::none()), componentsOf<T>()};
    });
    return found;
}

std::vector<FieldData> fieldsOf(const GridHandle& handle) {
    readyNumpy();
    std::vector<FieldData> fields;
    for (const Tessel::FieldPtr& field : handle.grid->fields()) {
        std::string type;
        for (const auto& [name, declaredType] : handle.declared)
            if (name == field->fieldName()) type = declaredType;
        py::list fragments;
        for (const Tessel::Field::Fragment& fragment : field->fragments()) {
            py::list arrays;
            for (const Tessel::MemBase::Array& array : fragment.arrays)
                Tools::withElementType(*array, [&]<class T>() {
                    type = Tessel::ElementTraits<T>::parseName;
                    const py::object keeper = py::cast(ChunkKeeper{array->chunkPointer()});
                    arrays.append(arrayOf<T>(array->rawData(), array->elementCount(), keeper));
                });
            fragments.append(py::make_tuple(decoded(fragment.id->name), arrays));
        }
        auto [empty, components] = emptyOf(type);
        fields.push_back({decoded(field->fieldName()), type.empty() ? py::object(py::none()) : py::str(type),
                          components, empty, fragments});
    }
    return fields;
}

py::object viewOfChunk(const Ravelin::ChunkPtr& chunk) {
    readyNumpy();
    py::object view = py::none();
    Tessel::forEachElementType([&]<class T>() {
        if (chunk.isNull() || chunk->elementType() != typeid(T)) return;
        view = arrayOf<T>(chunk->rawData(), chunk->elementCount(), py::cast(ChunkKeeper{chunk}));
    });
    return view;
}

py::dict attributesOf(const GridHandle& handle) {
    py::dict attributes;
    const Ravelin::Attributes& all = handle.grid->attributes();
    for (const std::string& name : all.names()) attributes[decoded(name)] = attributeValue(all.getAttribute(name));
    return attributes;
}

py::list notesOf(const GridHandle& handle) {
    py::list notes;
    for (const Tessel::Grid::Note& note : handle.grid->notes())
        notes.append(py::make_tuple(decoded(note.converter), decoded(note.text)));
    return notes;
}

py::list chunkAddresses(const GridHandle& handle, const std::string& name) {
    py::list addresses;
    const Tessel::FieldPtr field = handle.grid->field(name);
    if (field.isNull()) return addresses;
    for (const Tessel::Field::Fragment& fragment : field->fragments())
        for (const Tessel::MemBase::Array& array : fragment.arrays)
            addresses.append(reinterpret_cast<std::uintptr_t>(array->chunkPointer()->rawData()));
    return addresses;
}

void bindGridViews(py::module_& module) {
    py::class_<ChunkKeeper>(module, "ChunkKeeper")
        .def_property_readonly(
            "address",
            [](const ChunkKeeper& keeper) { return reinterpret_cast<std::uintptr_t>(keeper.chunk->rawData()); })
        .def_property_readonly("bytes", [](const ChunkKeeper& keeper) {
            return keeper.chunk->elementCount() * keeper.chunk->elementSize();
        });
    py::class_<FieldData>(module, "FieldData")
        .def_readonly("name", &FieldData::name)
        .def_readonly("type", &FieldData::type)
        .def_readonly("components", &FieldData::components)
        .def_readonly("empty", &FieldData::empty)
        .def_readonly("fragments", &FieldData::fragments);
    py::class_<GridHandle>(module, "GridHandle")
        .def("fields", &fieldsOf)
        .def("attributes", &attributesOf)
        .def("notes", &notesOf)
        .def("chunk_addresses", &chunkAddresses);
}

}  // namespace Pallion::Python
