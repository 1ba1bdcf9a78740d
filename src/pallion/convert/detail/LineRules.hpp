// The opt-in line rules, shared by the conversion and the count of a range's
// rows, so that both skip exactly the same lines.
#pragma once

#include <cstring>
#include <string>

#include "pallion/convert/Parameter.hpp"
#include "pallion/convert/detail/TokenConversion.hpp"

namespace Pallion {

// Whether any opt-in reading is on, under which a CR before the line feed
// belongs to the line end.
inline bool lineRulesOn(const Parameter& parameter) {
    return parameter.WholeTokens || parameter.Whitespace || parameter.SkipEmptyLines || parameter.DecimalComma ||
           !parameter.CommentPrefix.empty();
}

// Whether comment or empty lines are looked for.
inline bool skipRulesOn(const Parameter& parameter) {
    return parameter.SkipEmptyLines || !parameter.CommentPrefix.empty();
}

// Whether the line [line, end), its CR already taken off, is a comment or an
// empty line, which the opt-in line rules skip.
inline bool isSkippedLine(const Parameter& parameter, const char* line, const char* end) {
    const char* p = line;
    // Blanks before a comment are no tokens where runs of blanks separate.
    if (parameter.Whitespace)
        while (p != end && isBlank(*p)) ++p;
    const std::string& prefix = parameter.CommentPrefix;
    if (!prefix.empty() && static_cast<std::size_t>(end - p) >= prefix.size() &&
        std::memcmp(p, prefix.data(), prefix.size()) == 0)
        return true;
    if (!parameter.SkipEmptyLines) return false;
    while (p != end && isBlank(*p)) ++p;
    return p == end;
}

}  // namespace Pallion
