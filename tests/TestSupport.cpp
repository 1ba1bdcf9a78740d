#include "TestSupport.hpp"

#include <fstream>
#include <random>
#include <stdexcept>

namespace testsupport {

TempDir::TempDir() {
    std::random_device device;
    for (int attempt = 0; attempt < 100; ++attempt) {
        auto candidate = std::filesystem::temp_directory_path() / ("pallion-test-" + std::to_string(device()));
        if (std::filesystem::create_directory(candidate)) {
            root = candidate;
            return;
        }
    }
    throw std::runtime_error("cannot make a temporary directory");
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
}

std::string TempDir::write(const std::string& name, const std::string& content) const {
    auto file = root / name;
    std::ofstream out(file, std::ios::binary);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    return file.string();
}

std::filesystem::path realDataDir() {
    // The tables lie beside the project: <project>/../shared/data/real
    std::filesystem::path here = std::filesystem::path(PALLION_SOURCE_DIR);
    auto dir = here.parent_path() / "shared" / "data" / "real";
    return std::filesystem::is_directory(dir) ? dir : std::filesystem::path();
}

std::vector<std::string> fragmentNames(const Tessel::Grid& grid, const std::string& field) {
    std::vector<std::string> names;
    for (const auto& fragment : grid.field(field)->fragments()) names.push_back(fragment.id->name);
    return names;
}

}  // namespace testsupport
