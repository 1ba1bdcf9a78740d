// Every text the host helpers make, in one place: the context of a failure
// and its hints.  A hint names the option that mends the cause in the words
// of the host that shows it (a command-line option or a keyword argument).
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace Pallion::Tools::messages {

// A text of this file with its printf conversions filled in.
template <class... Values>
std::string fill(std::string_view pattern, Values... values) {
    char text[512];
    std::snprintf(text, sizeof text, std::string(pattern).c_str(), values...);
    return text;
}

// Failure context.
inline constexpr std::string_view AtFile = "  file:  ";
inline constexpr std::string_view AtLine = "  line:  ";
inline constexpr std::string_view TheLine = "  text:  ";
inline constexpr std::string_view TokenFailed = "  token: column %u, \"%s\": %s";
inline constexpr std::string_view TokensMissing =
    "  the line has %zu token(s) split at %s; the parse string reads column %u, so it needs %u";
inline constexpr std::string_view NotA = "not a ";
inline constexpr std::string_view OutOfRangeFor = "out of range for a ";
inline constexpr std::string_view WholeNumberKind = "32-bit whole number";

// Hints; %s is the option in the host's own words.
inline constexpr std::string_view HintBom =
    "hint: the file begins with a UTF-8 byte order mark (EF BB BF); save it without one, or skip the first line "
    "with %s";
inline constexpr std::string_view HintHeader = "hint: the first line looks like a header; skip it with %s";
inline constexpr std::string_view HintDelimiter =
    "hint: the line is one token with this delimiter; with %s it splits into %zu";
inline constexpr std::string_view HintEmptyAtEnd =
    "hint: the file ends with an empty line, and an empty line ends the conversion: remove it";
inline constexpr std::string_view HintEmptyLine = "hint: an empty line ends the conversion; no line is ever skipped";
inline constexpr std::string_view HintEmptyToken =
    "hint: two delimiters in a row make an empty token; blanks are not merged";

}  // namespace Pallion::Tools::messages
