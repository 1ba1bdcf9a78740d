// Helpers shared by the tests: a fresh temporary directory per test, and the
// location of the real tables beside the project.
#pragma once

#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

#include "pallion/array/MemArray.hpp"
#include "pallion/tools/GridValues.hpp"
#include "ravelin/StringList.hpp"
#include "tessel/Grid.hpp"

namespace testsupport {

// A fresh directory under the system's temporary directory, removed with the object.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return root; }
    // Writes `content` byte for byte into a file of this directory and gives its path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::filesystem::path root;
};

// The folder of real tables, or an empty path when it is absent.
std::filesystem::path realDataDir();

// A counted list of file names, as a Parameter or the trajectory entry takes it.
inline Ravelin::StringListPtr fileList(std::initializer_list<std::string> names) {
    return Ravelin::StringListPtr(new Ravelin::StringList(names));
}

// The elements of one fragment of a field, as its chunk holds them; empty when
// the field, the fragment or an array of type T is missing.
template <class T>
std::vector<T> fragmentValues(const Tessel::Grid& grid, const std::string& field, const std::string& fragment) {
    const auto f = grid.field(field);
    const auto* entry = f.isNull() ? nullptr : f->fragment(fragment);
    if (entry == nullptr) return {};
    const auto elements = Pallion::Tools::elementsOf<T>(*entry->arrays.at(0));
    return std::vector<T>(elements.begin(), elements.end());
}

// The elements of every fragment of a field, one after the other.
template <class T>
std::vector<T> fieldValues(const Tessel::Grid& grid, const std::string& field) {
    return Pallion::Tools::fieldValues<T>(*grid.field(field));
}

// The names of a field's fragments, in the order they were made.
std::vector<std::string> fragmentNames(const Tessel::Grid& grid, const std::string& field);

}  // namespace testsupport
