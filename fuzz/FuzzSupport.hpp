// What the fuzz targets share: a scratch folder made once per process and
// removed at its end (the tests' temporary directory), and the way a target
// reports a finding.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "TestSupport.hpp"

namespace fuzzsupport {

inline const testsupport::TempDir& scratch() {
    static const testsupport::TempDir folder;
    return folder;
}

// A finding: what differs, then abort, so that the fuzzer keeps the input.
[[noreturn]] inline void finding(const std::string& what) {
    std::fprintf(stderr, "finding: %s\n", what.c_str());
    std::abort();
}

}  // namespace fuzzsupport
