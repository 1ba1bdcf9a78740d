#include "TestSupport.hpp"

namespace testsupport {

std::filesystem::path realDataDir() {
    // The tables lie beside the project: <project>/../shared/data/real
    const auto dir = std::filesystem::path(PALLION_SOURCE_DIR).parent_path() / "shared" / "data" / "real";
    return std::filesystem::is_directory(dir) ? dir : std::filesystem::path();
}

std::vector<std::string> fragmentNames(const Tessel::Grid& grid, const std::string& field) {
    std::vector<std::string> names;
    for (const auto& fragment : grid.field(field)->fragments()) names.push_back(fragment.id->name);
    return names;
}

}  // namespace testsupport
