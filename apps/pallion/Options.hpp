// The host's command line: every option checked, with a message naming the
// option and what it allows.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pallion/tools/TableOptions.hpp"

namespace host {

struct Options {
    Pallion::Tools::TableOptions table;  // the files and how to read them
    bool trajectory = false;
    bool json = false;
    std::string preview;
    std::string output;  // .ply, .h5 or .las, written after a conversion that read everything
    std::optional<std::array<double, 3>> lasScale;  // the scale of a .las file's x, y, z instead of the chosen one
    bool strict = false;                            // the pre-flight check's warnings fail the run before it converts
    bool quiet = false;                             // no guesses, warnings or bar; failures still
};

// What the command line asks for: options to run with, or an exit status
// with the text to print (on stdout for --help, on stderr for a mistake).
struct CommandLine {
    std::optional<Options> options;
    int exitStatus = 0;
    std::string out;
    std::string err;
};

CommandLine parseCommandLine(int argc, const char* const* argv);

}  // namespace host
