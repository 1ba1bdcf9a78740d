// Helpers shared by the tests: a fresh temporary directory per test, and the
// location of the real tables beside the project.
#pragma once

#include <filesystem>
#include <string>

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

}  // namespace testsupport
