// Bytes from files and from the library, handed to Python as str without
// ever raising UnicodeDecodeError: texts decoded with replacement, file
// names as the OS gives them (surrogate escapes, the way os.fsdecode does).
#pragma once

#include <string>

#include <pybind11/pybind11.h>

namespace Pallion::Python {

inline pybind11::str decoded(const std::string& text) {
    PyObject* const made = PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace");
    if (made == nullptr) throw pybind11::error_already_set();
    return pybind11::reinterpret_steal<pybind11::str>(made);
}

inline pybind11::str pathText(const std::string& name) {
    PyObject* const made = PyUnicode_DecodeFSDefaultAndSize(name.data(), static_cast<Py_ssize_t>(name.size()));
    if (made == nullptr) throw pybind11::error_already_set();
    return pybind11::reinterpret_steal<pybind11::str>(made);
}

}  // namespace Pallion::Python
