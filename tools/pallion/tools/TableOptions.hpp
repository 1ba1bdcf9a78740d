// What a host asks of a text-table conversion, in the words a user gives
// (a delimiter by name, a block size or none, "auto" for what may be
// guessed), and the one way it becomes the library's Parameter.  Shared by
// the command-line host and the Python module.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pallion/Pallion.hpp"

namespace Pallion::Tools {

// The parse string of a table whose columns have no names: a point from the first three.
inline constexpr std::string_view DefaultParse = "Positions:point:0+1+2";
// The parse string that asks for the fields to be built from the header's names.
inline constexpr std::string_view AutoParse = "auto";
// The delimiter that stands for any run of blanks and tabs ("whitespace").
inline constexpr char WhitespaceDelimiter = '\0';

struct TableOptions {
    std::vector<std::string> files;              // "-" stands for standard input
    std::optional<std::uint32_t> headerLines;    // none: guessed from the first file
    std::optional<char> delimiter;               // none: guessed from the first file; or WhitespaceDelimiter
    std::optional<std::uint32_t> block;          // none: judged from the files' sizes
    std::int32_t epsg = -1;                      // -1: none, no attribute stored
    std::string parse = std::string(AutoParse);  // "auto", or entries with column numbers or header names
    std::optional<std::uint64_t> lineSizeLimit;  // bytes of one line; none: the library\'s own limit
    std::optional<std::string> comments;         // the comment prefix; none: guessed; empty: no comment lines
    std::optional<bool> decimalComma;            // none: guessed from the first file
    bool lenient = false;                        // the plain reading of tokens: a number cut short is stored
    unsigned threads = 1;                        // conversions side by side on one large regular file; 0: the cores
    // The bytes of each file to convert: the lines that start in
    // [rangeBegin, rangeEnd), as Parameter::RangeBegin/RangeEnd read them.
    // The options are still guessed from the first file's start; a header is
    // skipped only by a range that begins at byte 0.
    std::uint64_t rangeBegin = 0;
    std::uint64_t rangeEnd = WholeFileEnd;
};

struct Resolved;  // Sniff.hpp: the options made concrete

// The delimiter a user names: one character, or tab (t, \t), comma, semicolon,
// space, pipe, or whitespace (WhitespaceDelimiter).
std::optional<char> delimiterFromName(const std::string& name);

// The name a user would give for `delimiter`: tab, comma, semicolon, space, or the character quoted.
std::string delimiterName(char delimiter);

// The name under which the library opens a file the user named: "-" is standard input.
std::string libraryPath(const std::string& name);

// True for a regular file, checked without opening it.  Only such a file is
// read ahead or measured; a pipe, a FIFO, a device or standard input is not.
bool isRegularFile(const std::string& name);
// True for a FIFO, a device or a socket: read once, as it comes, never ahead.
bool isStream(const std::string& name);

// The rows these files are judged to hold: each file's size over the median
// length of lines sampled across it, so that one outlying line does not
// decide.  Judged, not counted.  None when a file is not a regular file (its
// size cannot be known without reading it); a regular file that cannot be
// read adds none.
std::optional<std::uint64_t> judgedRows(const std::vector<std::string>& files);

// The lines of `file` before the first line of a byte range that begins at
// `rangeBegin`: 0 for byte 0; else the range begins after the first line end
// at or after byte rangeBegin - 1, so they are the line feeds in bytes
// [0, rangeBegin - 1) and the one that ends the line holding byte
// rangeBegin - 1.  The file is read up to byte rangeBegin - 1.
std::uint64_t linesBeforeRange(const std::string& file, std::uint64_t rangeBegin);

// A block size for a table of `judgedRows` rows: a quarter more, so that one
// block usually takes them all, never more than the library's default.
std::uint32_t blockSizeFor(std::uint64_t judgedRows);

// The Parameter for `options` as resolved (the dialect and the whole-token
// check as resolved too), with the block size judged where
// none is given (from `judgedRows` rows, the share of them that a byte range
// covers; the library's default block where the rows cannot be judged).  No
// progress object is set.
void fillParameter(Parameter& parameter, const TableOptions& options, const Resolved& resolved,
                   std::optional<std::uint64_t> judgedRows);

}  // namespace Pallion::Tools
