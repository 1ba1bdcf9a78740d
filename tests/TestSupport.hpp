// Helpers shared by the tests and the fuzz targets: a fresh temporary directory,
// the folder of real tables, Parameters and the values read back from a grid.
#pragma once

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "pallion/array/MemArray.hpp"
#include "pallion/convert/Parameter.hpp"
#include "pallion/tools/GridValues.hpp"
#include "ravelin/StringList.hpp"
#include "tessel/Grid.hpp"

namespace testsupport {

// A fresh directory under the system's temporary directory, removed with the object.
class TempDir {
public:
    TempDir() {
        std::random_device device;
        for (int attempt = 0; attempt < 100 && root.empty(); ++attempt) {
            auto candidate = std::filesystem::temp_directory_path() / ("pallion-test-" + std::to_string(device()));
            if (std::filesystem::create_directory(candidate)) root = candidate;
        }
        if (root.empty()) throw std::runtime_error("cannot make a temporary directory");
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return root; }
    // Writes `content` byte for byte into a file of this directory and gives its path.
    std::string write(const std::string& name, const std::string& content) const {
        const auto file = root / name;
        std::ofstream(file, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
        return file.string();
    }

private:
    std::filesystem::path root;
};

// The folder of real tables, or an empty path when it is absent.
std::filesystem::path realDataDir();

// A counted list of file names, as a Parameter or the trajectory entry takes it.
inline Ravelin::StringListPtr fileList(std::initializer_list<std::string> names) {
    return Ravelin::StringListPtr(new Ravelin::StringList(names));
}

// A Parameter that reads `files` with `parse`, `block` rows to a fragment.
inline Pallion::Parameter tableParameter(std::initializer_list<std::string> files,
                                         const std::string& parse = "Positions:point:0+1+2",
                                         std::uint32_t block = Pallion::DefaultChunkSize) {
    Pallion::Parameter p;
    p.Files = fileList(files);
    p.Parse = parse;
    p.ChunkSize = block;
    return p;
}

// The elements of every fragment of a field, one after the other.
template <class T>
std::vector<T> fieldValues(const Tessel::Grid& grid, const std::string& field) {
    return Pallion::Tools::fieldValues<T>(*grid.field(field));
}

// The names of a field's fragments, in the order they were made.
std::vector<std::string> fragmentNames(const Tessel::Grid& grid, const std::string& field);

}  // namespace testsupport
