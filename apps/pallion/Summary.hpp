// What a grid holds after a conversion, as text for a person or as JSON for a
// script, and a top-down picture of its first point field.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "pallion/tools/BlockWriter.hpp"
#include "pallion/tools/FailureContext.hpp"
#include "tessel/Grid.hpp"

namespace host {

// What the JSON tells beside the grid: how the run went and what it used.
struct RunReport {
    std::string result;                // empty: the conversion read everything
    bool partial = false;              // the grid holds what was read before a failure or a stop
    std::vector<std::string> guessed;  // the sniffer's lines
    std::string delimiter, parse;      // as used ("comma", "Positions:point:0+1+2"); empty for trajectories
    std::int64_t headerLines = -1;     // as used; -1 for trajectories
    std::string comments;              // the comment prefix as used; empty: none
    bool decimalComma = false, lenient = false;
    std::vector<std::string> warnings;      // the pre-flight check's lines
    Pallion::Tools::FailureReport failure;  // where a conversion stopped, if about a line
    int status = 0;                         // the exit status
    struct Written {
        std::string file, error;  // the file asked for; why it was not written, empty when it was
    };
    std::optional<Written> output, preview;  // where asked for and tried
};

// What the summary and the preview take from a grid's blocks, gathered as
// the blocks pass, so that a conversion that keeps no block in its grid is
// summed up and drawn as one that keeps them all: each field's element type,
// fragments (name, element count, first and last element as text) and
// per-component range, and the first point field's points (with the first
// rgb field's colours) for the picture, spooled to a temporary file beyond
// some megabytes.
class BlockDigest {
public:
    // `picture`: whether the points are kept for writePreview; `inMemory`: the bytes of them kept in memory
    // before they go to a temporary file; `threads`: how many threads may share the look at a large block.
    static constexpr std::size_t InMemory = std::size_t{64} << 20;
    explicit BlockDigest(bool picture = false, std::size_t inMemory = InMemory, unsigned threads = 1);
    ~BlockDigest();
    BlockDigest(const BlockDigest&) = delete;
    BlockDigest& operator=(const BlockDigest&) = delete;

    // One block: its fragment name and its fields' elements.
    void add(const std::string& fragment, const std::vector<Pallion::Tools::ColumnSlice>& slices);
    void add(const Pallion::Tools::FlushedBlock& block);
    // The same taken from a grid's arrays, fragment by fragment in each field.
    void addGrid(const Tessel::Grid& grid);

    struct Fragment {
        std::string name;
        std::uint64_t elements = 0;
        std::string first, last;  // as text; empty for no elements
    };
    struct Field {
        std::string name, type;
        unsigned components = 0;
        std::uint64_t elements = 0;
        std::vector<Fragment> fragments;
        std::vector<double> min, max;  // per component, over every element
        bool single = false;           // the components are floats
    };
    // The field of that name, or null where no block had it.
    const Field* field(const std::string& name) const;
    // The lines of Pallion::Tools::sharedFragmentNames for the fragments seen.
    std::vector<std::string> sharedFragmentNames() const;

    // Writes the picture of writePreview from the points gathered.
    std::string writePreview(const std::string& file, unsigned size = 512);

private:
    struct Spool;
    Field& fieldNamed(const std::string& name);
    void addPoints(const char* points, const char* colours, std::uint64_t n);

    std::vector<Field> fields_;
    std::vector<char> spooled_;   // the picture's points: x, y and z or rgb, in memory
    std::FILE* spill_ = nullptr;  // and beyond some megabytes in a temporary file
    bool picture_;
    std::size_t inMemory_;
    unsigned threads_;
    std::uint64_t drawn_ = 0, coloured_ = 0;
    double low_[3], high_[3];
    std::string pointField_, colourField_;  // the fields drawn, from the first block that has them
    std::string spillFailure_;
};

// Field types in the parse string's words ("point", "rgb", "float").  A
// partial grid is said to be one in its first line.
std::string textSummary(const Tessel::Grid& grid, bool partial = false);
// The same with the fields' fragments and values from the blocks that passed
// (the grid gives the fields' order, its attributes and notes).
std::string textSummary(const Tessel::Grid& grid, const BlockDigest& digest, bool partial = false);

// {"result", "status", "partial", "options": {"delimiter", "header", "parse", "comments", "decimal_comma",
//  "lenient"}, "guessed": [...], "warnings": [...],
//  "failure": {"file", "line", "text", "column", "token", "detail", "hints"} (only "hints" where the failure
//  is not about a line), "output" and "preview": {"file", "written", "error"},
//  "fields": [{"name", "type", "components", "elements", "fragments": [{"name", "elements"}], "min", "max"}],
//  "attributes": {name: [values]}, "notes": [{"converter", "text"}]}
// "result" is empty only for a run that did everything it was asked (status 0).
// Valid JSON for any bytes: invalid UTF-8 is replaced (U+FFFD) and "invalid_utf8_replaced" is then true.
// min and max are per component, over all fragments, and absent for a field without elements.
std::string jsonSummary(const Tessel::Grid& grid, const RunReport& run);
std::string jsonSummary(const Tessel::Grid& grid, const BlockDigest& digest, const RunReport& run);

// Writes a PNG of at most `size` pixels a side: the first point field with
// elements seen from above (x to the right, y up), coloured by the first rgb
// field with as many elements, or else by height.  Points with nan or inf
// are left out.  Gives the empty text, or what went wrong.
std::string writePreview(const Tessel::Grid& grid, const std::string& file, unsigned size = 512);

}  // namespace host
