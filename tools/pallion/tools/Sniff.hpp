// Guessing how a table is written, in the manner of the CSV sniffers: the
// delimiter, the header lines and the fields from the header's names, all
// from the first lines of the first file.  Only a regular file is read ahead;
// a pipe, a FIFO or standard input is opened once, by the conversion alone,
// so for those nothing is guessed and what the user did not name keeps its
// default.  Every guess is told in words, and every option the user names
// overrides the guess.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pallion/tools/TableOptions.hpp"

namespace Pallion::Tools {

// The options of a conversion made concrete: what the user named, and what
// was guessed for the rest.
struct Resolved {
    char delimiter = ' ';  // or WhitespaceDelimiter
    std::uint32_t headerLines = 0;
    std::string parse = std::string(DefaultParse);  // columns by number only
    std::vector<std::string> headerNames;           // the last header line's names, unquoted; empty without a header
    std::vector<std::string> guessed;  // one line per guess, for display ("delimiter: comma (guessed ...)")
    std::string failure;               // not empty: the options cannot be used, and why
    bool aboutTheOptions = true;       // the failure is about the options (a parse string), not the file's bytes
    bool readAhead = false;            // the first file was sampled (a regular file)
    // The dialect and the check of the tokens; namedOptions leaves all of them plain.
    std::string commentPrefix;
    bool decimalComma = false;
    bool skipEmptyLines = false;
    bool wholeTokens = false;
};

// Resolves `options` against the first lines of the first file: the
// delimiter (a run of blanks is whitespace), comment lines at the head (the
// last one may give the names), a decimal comma, the header lines and the
// fields; empty lines are skipped and tokens read whole unless the options
// are lenient.  Every further regular file is then held against the first:
// its header and column count must be the first file's.
Resolved resolveOptions(const TableOptions& options);

// The options as named, with nothing read and nothing guessed: a blank
// delimiter, no header lines and the plain parse string where none is named.
// For a caller that names everything, such as a test or a fuzz target.
Resolved namedOptions(const TableOptions& options);

// The header names of one header line split at `delimiter` (or at runs of
// blanks for WhitespaceDelimiter): blanks around a name and the double quotes
// around it removed.
std::vector<std::string> headerNamesOf(const std::string& line, char delimiter);

// `names` with a name given twice made unique as pandas does: a, a.1, a.2.
std::vector<std::string> uniqueNames(std::vector<std::string> names);

// The failure text where two entries of `parse` name one field; empty otherwise.
std::string fieldNamedTwice(const std::string& parse);

// The parse string that "auto" stands for, built from a header's names:
// X/Y/Z (any case) a point field "Positions", R/G/B or Red/Green/Blue an rgb
// field "Colours", NX/NY/NZ a tvector field "Normals", Intensity a float
// field, every other column a double field under its own name.  A field
// name that an earlier field has already taken gets .1, .2 behind it.
std::string parseFromNames(const std::vector<std::string>& names);

// The parse string for a .pts table (a point-count line, then rows) of
// `columns` columns: x y z, then intensity, r g b, or intensity r g b.
std::string parseForPts(std::size_t columns);

// `parse` with every column given by a header name replaced by its number.
// Gives the failure text in `failure` where a name is not among `names`.
std::string parseWithNumbers(const std::string& parse, const std::vector<std::string>& names, std::string& failure);

}  // namespace Pallion::Tools
