// What a grid holds after a conversion, as text for a person or as JSON for a
// script, and a top-down picture of its first point field.
#pragma once

#include <string>

#include "tessel/Grid.hpp"

namespace host {

std::string textSummary(const Tessel::Grid& grid);

// {"result": ..., "fields": [{"name", "type", "components", "elements", "fragments": [{"name", "elements"}],
//  "min": [...], "max": [...]}], "attributes": {name: [values]}, "notes": [{"converter", "text"}]}
// min and max are per component, over all fragments, and absent for a field without elements.
std::string jsonSummary(const Tessel::Grid& grid, const std::string& result);

// Writes a PNG of at most `size` pixels a side: the first point field seen
// from above (x to the right, y up), coloured by the first rgb field with as
// many elements, or else by height.  Gives the empty text, or what went wrong.
std::string writePreview(const Tessel::Grid& grid, const std::string& file, unsigned size = 512);

}  // namespace host
