// What a grid holds after a conversion, as text for a person or as JSON for a
// script, and a top-down picture of its first point field.
#pragma once

#include <optional>
#include <string>
#include <vector>

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

// Field types in the parse string's words ("point", "rgb", "float").  A
// partial grid is said to be one in its first line.
std::string textSummary(const Tessel::Grid& grid, bool partial = false);

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

// Writes a PNG of at most `size` pixels a side: the first point field with
// elements seen from above (x to the right, y up), coloured by the first rgb
// field with as many elements, or else by height.  Points with nan or inf
// are left out.  Gives the empty text, or what went wrong.
std::string writePreview(const Tessel::Grid& grid, const std::string& file, unsigned size = 512);

}  // namespace host
