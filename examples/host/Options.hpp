// The host's command line: every option checked, with a message naming the
// option and what it allows.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host {

struct Options {
    std::vector<std::string> files;
    std::uint32_t headerLines = 0;
    char delimiter = ' ';
    std::optional<std::uint32_t> block;  // none: picked from the files' sizes
    std::int32_t epsg = -1;
    std::string parse = "Positions:point:0+1+2";
    bool trajectory = false;
    bool json = false;
    std::string preview;
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

// The delimiter a user names: one character, or tab (t, \t), comma, semicolon, space.
std::optional<char> delimiterFromName(const std::string& name);

// The rows these files are judged to hold, by the library's own estimate:
// each file's size over the length of its first data line.  Judged, not
// counted: lines may differ in length.  A file that cannot be judged adds none.
std::uint64_t judgedRows(const std::vector<std::string>& files, std::uint32_t headerLines);

// A block size for a table of `judgedRows` rows: a quarter more, so that one
// block usually takes them all, never more than the library's default.
std::uint32_t blockSizeFor(std::uint64_t judgedRows);

}  // namespace host
