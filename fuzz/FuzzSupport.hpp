// What the fuzz targets share: a scratch folder made once per process and
// removed at its end, and the way a target reports a finding.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace fuzzsupport {

class Scratch {
public:
    Scratch() {
        const auto base = std::filesystem::temp_directory_path();
        std::random_device random;
        do root_ = base / ("pallion-fuzz-" + std::to_string(random()));
        while (!std::filesystem::create_directory(root_));
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }
    // Writes `bytes` into the file `name` of the folder and gives its path.
    std::string write(const std::string& name, const std::string& bytes) const {
        const auto file = root_ / name;
        std::ofstream(file, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return file.string();
    }

private:
    std::filesystem::path root_;
};

inline const Scratch& scratch() {
    static const Scratch folder;
    return folder;
}

// A finding: what differs, then abort, so that the fuzzer keeps the input.
[[noreturn]] inline void finding(const std::string& what) {
    std::fprintf(stderr, "finding: %s\n", what.c_str());
    std::abort();
}

}  // namespace fuzzsupport
