#include "pallion/tools/Preflight.hpp"

#include <charconv>
#include <fstream>
#include <limits>
#include <stdexcept>

#include "pallion/Extensions.hpp"
#include "pallion/tools/GridValues.hpp"
#include "pallion/tools/Lines.hpp"
#include "pallion/tools/Messages.hpp"
#include "pallion/tools/TableOptions.hpp"

namespace Pallion::Tools {

namespace {

constexpr std::size_t KeptLine = 1 << 20;
constexpr std::size_t ShownToken = 60;

// What follows the number: nothing, or blanks and a CR that the line end leaves.
bool onlySpaceAfter(const std::string& token, std::size_t pos) {
    return token.find_first_not_of(" \t\r", pos) == std::string::npos;
}

template <class C>
std::string valueText(C value) {
    if constexpr (std::is_floating_point_v<C>) {
        char text[32];
        return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
    } else {
        return std::to_string(value);
    }
}

// The warning for one token converted to component type C, if any.
template <class C>
std::optional<PreflightWarning> check(const std::string& token, const char* typeName) {
    PreflightWarning warning;
    std::size_t pos = 0;
    try {
        if constexpr (std::is_same_v<C, double> || std::is_same_v<C, float>) {
            const C value = std::is_same_v<C, double> ? static_cast<C>(std::stod(token, &pos))
                                                      : static_cast<C>(std::stof(token, &pos));
            warning.stored = valueText(value);
        } else {
            const int value = std::stoi(token, &pos);
            const C stored = static_cast<C>(value);
            warning.stored = valueText(stored);
            if (static_cast<long long>(stored) != value) {
                warning.cutShort = false;
                warning.token = shown(token, ShownToken);
                warning.range = std::string(typeName) + " (" + valueText(std::numeric_limits<C>::min()) + " to " +
                                valueText(std::numeric_limits<C>::max()) + ")";
                return warning;
            }
        }
    } catch (const std::exception&) {
        return std::nullopt;  // the conversion refuses it and says so itself
    }
    if (onlySpaceAfter(token, pos)) return std::nullopt;
    warning.cutShort = true;
    warning.token = shown(token, ShownToken);
    return warning;
}

}  // namespace

std::string PreflightWarning::text() const {
    namespace m = messages;
    const auto line = static_cast<unsigned long long>(lineNumber);
    if (cutShort) return m::fill(m::CutShort, file.c_str(), line, column, token.c_str(), stored.c_str());
    return m::fill(m::OutOfRange, file.c_str(), line, column, token.c_str(), range.c_str(), stored.c_str());
}

Preflight preflight(const Parameter& parameter, std::uint64_t rows) {
    Preflight result;
    ParsedEntries parsed;
    if (!parseEntries(parameter.Parse, parsed).empty()) return result;
    const std::size_t wanted = parsed.HighestColumn + 1;
    if (parameter.Files.isNull()) return result;
    for (const std::string& name : *parameter.Files) {
        if (result.rowsChecked >= rows) break;
        if (!isRegularFile(name)) continue;
        std::ifstream in(name, std::ios::binary);
        for (std::uint32_t i = 0; i < parameter.HeaderLines; ++i)
            if (!skipLine(in)) break;
        std::string line;
        std::size_t length = 0;
        for (std::uint64_t row = 0; result.rowsChecked < rows && readLine(in, line, KeptLine, length, KeptLine + 1);
             ++row) {
            if (length > KeptLine) break;  // a line this long is left to the conversion and its line-size limit
            ++result.rowsChecked;
            std::vector<std::string> tokens;
            tokensOf(line, parameter, tokens, wanted);
            for (const ContainerEntry& entry : parsed.Entries)
                withElementType(entry.TypeId, [&]<class T>() {
                    using Traits = Tessel::ElementTraits<T>;
                    for (std::uint32_t column : entry.Columns) {
                        if (column >= tokens.size()) continue;
                        auto warning = check<typename Traits::Component>(tokens[column], Traits::parseName);
                        if (!warning) continue;
                        ++result.count;
                        if (result.warnings.size() >= Preflight::MaxWarnings) continue;
                        warning->file = name;
                        warning->lineNumber = parameter.HeaderLines + row + 1;
                        warning->column = column;
                        result.warnings.push_back(*warning);
                    }
                });
        }
    }
    return result;
}

}  // namespace Pallion::Tools
