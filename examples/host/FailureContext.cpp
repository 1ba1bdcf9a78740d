#include "FailureContext.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "HostMessages.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/convert/Messages.hpp"
#include "pallion/convert/NumberConversion.hpp"
#include "pallion/convert/Parse.hpp"

namespace host {

namespace {

constexpr std::size_t ShownLength = 120;

std::vector<std::string> splitLine(const std::string& line, char delimiter) {
    std::vector<std::string> tokens;
    Pallion::split(line.data(), line.size(), tokens, delimiter);
    return tokens;
}

std::string delimiterName(char delimiter) {
    switch (delimiter) {
        case '\t':
            return "tab";
        case ',':
            return "comma";
        case ';':
            return "semicolon";
        case ' ':
            return "space";
        default:
            return std::string("'") + delimiter + "'";
    }
}

// Shows control bytes, so that a CR or a tab can be seen, and shortens a long line.
std::string shown(const std::string& line) {
    std::string text;
    for (char c : line.substr(0, ShownLength)) {
        if (c == '\r')
            text += "\\r";
        else if (c == '\t')
            text += "\\t";
        else if (c == '\0')
            text += "\\0";
        else
            text += c;
    }
    if (line.size() > ShownLength) text += "... (" + std::to_string(line.size()) + " bytes)";
    return text;
}

// The first token that the standard conversion refuses, in the order the
// library converts them: by element type in the order of the nine, then by
// entry, then by component.
struct FailedToken {
    std::uint32_t column;
    std::string text;
    std::string kind;
};

std::optional<FailedToken> failingToken(const Pallion::Parameter& parameter) {
    std::optional<FailedToken> failed;
    Tessel::forEachElementType([&]<class T>() {
        using Traits = Tessel::ElementTraits<T>;
        using C = typename Traits::Component;
        const std::string kind = std::is_same_v<C, double>  ? "double"
                                 : std::is_same_v<C, float> ? "float"
                                                            : "32-bit whole number";
        for (const Pallion::ContainerEntry& entry : parameter.Container) {
            if (!(entry.TypeId == Tessel::typeIndexOf<T>())) continue;
            for (std::size_t i = 0; i < Traits::components && i < entry.Columns.size() && !failed; ++i) {
                if (entry.Columns[i] >= parameter.Tokens.size()) continue;
                const std::string& token = parameter.Tokens[entry.Columns[i]];
                try {
                    (void)Pallion::convertNumber<C>(token);
                } catch (const std::out_of_range&) {
                    failed = FailedToken{entry.Columns[i], token, "out of range for a " + kind};
                } catch (const std::invalid_argument&) {
                    failed = FailedToken{entry.Columns[i], token, "not a " + kind};
                }
            }
        }
    });
    return failed;
}

bool looksLikeWords(const std::string& line) {
    return std::any_of(line.begin(), line.end(),
                       [](char c) { return std::isalpha(static_cast<unsigned char>(c)) && c != 'e' && c != 'E'; });
}

}  // namespace

FailurePlace findFailingLine(const Options& options, std::uint64_t rowsStored) {
    std::uint64_t before = 0;
    for (const std::string& name : options.files) {
        std::ifstream in(name, std::ios::binary);
        std::string line;
        for (std::uint32_t i = 0; i < options.headerLines && std::getline(in, line);) ++i;
        std::uint64_t row = 0;
        while (std::getline(in, line)) {
            if (before + row == rowsStored) {
                FailurePlace place{name, options.headerLines + row + 1, line, true};
                std::string rest;
                while (place.lastLines && std::getline(in, rest)) place.lastLines = rest.empty();
                return place;
            }
            ++row;
        }
        before += row;
    }
    return {};
}

std::string describeFailure(const Options& options, const Pallion::Parameter& parameter, const std::string& failure,
                            bool exception) {
    namespace m = messages;
    const bool countFailure = failure.rfind(Pallion::messages::convert::ColumnIndexOutOfRange, 0) == 0;
    if (!exception && !countFailure) return {};
    const FailurePlace place = findFailingLine(options, parameter.LineCount);
    if (place.file.empty()) return {};

    std::string text = std::string(m::AtFile) + place.file + '\n' + std::string(m::AtLine) +
                       std::to_string(place.lineNumber) + '\n' + std::string(m::TheLine) + shown(place.line) + '\n';
    const auto tokens = splitLine(place.line, parameter.Delimiter);
    std::optional<FailedToken> failed;
    if (countFailure) {
        text += messages::fill(m::TokensMissing, tokens.size(), delimiterName(parameter.Delimiter).c_str(),
                               parameter.HighestColumnIndex, parameter.HighestColumnIndex + 1) +
                '\n';
    } else if ((failed = failingToken(parameter))) {
        text +=
            messages::fill(m::TokenFailed, failed->column, shown(failed->text).c_str(), failed->kind.c_str()) + '\n';
    }

    // Hints, the likeliest cause first.
    const bool firstDataLine = place.lineNumber == options.headerLines + 1;
    if (place.lineNumber == 1 && place.line.rfind("\xEF\xBB\xBF", 0) == 0)
        text += std::string(m::HintBom) + '\n';
    else if (firstDataLine && looksLikeWords(place.line))
        text += std::string(m::HintHeader) + '\n';
    if (place.line.empty()) {
        text += std::string(place.lastLines ? m::HintEmptyAtEnd : m::HintEmptyLine) + '\n';
    } else if (tokens.size() == 1) {
        for (char candidate : {',', ';', '\t', ' ', '|'}) {
            const auto split = splitLine(place.line, candidate);
            if (candidate != parameter.Delimiter && split.size() > parameter.HighestColumnIndex) {
                text += messages::fill(m::HintDelimiter, delimiterName(candidate).c_str(), split.size()) + '\n';
                break;
            }
        }
    }
    if (failed && failed->text.empty()) text += std::string(m::HintEmptyToken) + '\n';
    return text;
}

}  // namespace host
