// What a grid holds, for the package's Grid and Field: each field's arrays as
// numpy views of their chunks, the attributes and the notes.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <pybind11/pybind11.h>

#include "tessel/Grid.hpp"

namespace Pallion::Python {

// A grid made by one conversion, with the element type that the parse string
// gave each field (a field that received no fragment has no array to tell it).
struct GridHandle {
    Tessel::GridPtr grid;
    std::vector<std::pair<std::string, std::string>> declared;
};

// One field as the package builds its Field from it.
struct FieldData {
    pybind11::str name;
    pybind11::object type;       // the parse-string name of the element type, or None
    pybind11::tuple components;  // ("x", "y", "z") for three components, ("",) for one
    pybind11::object empty;      // an empty array of the field's kind
    pybind11::list fragments;    // (fragment name, [arrays]) in the order stored
};

std::vector<FieldData> fieldsOf(const GridHandle& handle);
pybind11::dict attributesOf(const GridHandle& handle);
pybind11::list notesOf(const GridHandle& handle);
// The data address of each chunk of a field, fragment by fragment.
pybind11::list chunkAddresses(const GridHandle& handle, const std::string& name);
// An empty array of the element type named as in a parse string, with its component names.
std::pair<pybind11::object, pybind11::tuple> emptyOf(const std::string& type);

// A numpy array that views the elements of `chunk` and keeps it alive.
pybind11::object viewOfChunk(const Ravelin::ChunkPtr& chunk);

void bindGridViews(pybind11::module_& module);

}  // namespace Pallion::Python
