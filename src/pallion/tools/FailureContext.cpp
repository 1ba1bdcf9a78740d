#include "pallion/tools/FailureContext.hpp"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <stdexcept>

#include "pallion/array/ElementTraits.hpp"
#include "pallion/convert/Messages.hpp"
#include "pallion/convert/Parse.hpp"
#include "pallion/convert/TokenConversion.hpp"
#include "pallion/tools/Messages.hpp"

namespace Pallion::Tools {

namespace {

constexpr std::size_t ShownLength = 120;

std::vector<std::string> splitLine(const std::string& line, char delimiter) {
    std::vector<std::string> tokens;
    split(line.data(), line.size(), tokens, delimiter);
    return tokens;
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

std::string headerWords(OptionWords words) { return words == OptionWords::CommandLine ? "--header 1" : "header=1"; }

std::string delimiterWords(OptionWords words, char delimiter) {
    return words == OptionWords::CommandLine ? "--delimiter " + delimiterName(delimiter)
                                             : "delimiter=\"" + delimiterName(delimiter) + "\"";
}

// The first token that the standard conversion refuses, in the order the
// library converts them: by element type in the order of the nine, then by
// entry, then by component.
struct FailedToken {
    std::uint32_t column;
    std::string text;
    std::string kind;
};

std::optional<FailedToken> failingToken(const Parameter& parameter) {
    namespace m = messages;
    std::optional<FailedToken> failed;
    Tessel::forEachElementType([&]<class T>() {
        using Traits = Tessel::ElementTraits<T>;
        using C = typename Traits::Component;
        const std::string kind = std::is_same_v<C, double>  ? "double"
                                 : std::is_same_v<C, float> ? "float"
                                                            : std::string(m::WholeNumberKind);
        for (const ContainerEntry& entry : parameter.Container) {
            if (!(entry.TypeId == Tessel::typeIndexOf<T>())) continue;
            for (std::size_t i = 0; i < Traits::components && i < entry.Columns.size() && !failed; ++i) {
                if (entry.Columns[i] >= parameter.Tokens.size()) continue;
                const std::string& token = parameter.Tokens[entry.Columns[i]];
                try {
                    (void)convertToken<C>(token);
                } catch (const std::out_of_range&) {
                    failed = FailedToken{entry.Columns[i], token, std::string(m::OutOfRangeFor) + kind};
                } catch (const std::invalid_argument&) {
                    failed = FailedToken{entry.Columns[i], token, std::string(m::NotA) + kind};
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

FailurePlace findFailingLine(const std::vector<std::string>& files, std::uint32_t headerLines,
                             std::uint64_t rowsStored) {
    std::uint64_t before = 0;
    for (const std::string& name : files) {
        // A pipe or a FIFO was read once by the conversion; it is never opened again.
        if (!isRegularFile(name)) return {};
        std::ifstream in(name, std::ios::binary);
        std::string line;
        for (std::uint32_t i = 0; i < headerLines && std::getline(in, line);) ++i;
        std::uint64_t row = 0;
        while (std::getline(in, line)) {
            if (before + row == rowsStored) {
                FailurePlace place{name, headerLines + row + 1, line, true};
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

std::string FailureReport::text() const {
    namespace m = messages;
    if (!aboutALine()) return {};
    std::string out = std::string(m::AtFile) + file + '\n' + std::string(m::AtLine) + std::to_string(lineNumber) +
                      '\n' + std::string(m::TheLine) + line + '\n';
    if (!detail.empty()) out += detail + '\n';
    for (const std::string& hint : hints) out += hint + '\n';
    return out;
}

FailureReport describeFailure(const TableOptions& options, const Parameter& parameter, const std::string& failure,
                              bool exception, OptionWords words) {
    namespace m = messages;
    FailureReport report;
    const bool countFailure = failure.rfind(Pallion::Messages::ColumnIndexOutOfRange, 0) == 0;
    if (!exception && !countFailure) return report;
    const FailurePlace place = findFailingLine(options.files, parameter.HeaderLines, parameter.LineCount);
    if (place.file.empty()) return report;

    report.file = place.file;
    report.lineNumber = place.lineNumber;
    report.line = shown(place.line);
    const auto tokens = splitLine(place.line, parameter.Delimiter);
    std::optional<FailedToken> failed;
    if (countFailure) {
        report.detail = m::fill(m::TokensMissing, tokens.size(), delimiterName(parameter.Delimiter).c_str(),
                                parameter.HighestColumnIndex, parameter.HighestColumnIndex + 1);
    } else if ((failed = failingToken(parameter))) {
        report.column = failed->column;
        report.token = shown(failed->text);
        report.detail = m::fill(m::TokenFailed, failed->column, report.token.c_str(), failed->kind.c_str());
    }

    // Hints, the likeliest cause first.
    const bool firstDataLine = place.lineNumber == parameter.HeaderLines + 1;
    if (place.lineNumber == 1 && place.line.rfind("\xEF\xBB\xBF", 0) == 0)
        report.hints.push_back(m::fill(m::HintBom, headerWords(words).c_str()));
    else if (firstDataLine && looksLikeWords(place.line))
        report.hints.push_back(m::fill(m::HintHeader, headerWords(words).c_str()));
    if (place.line.empty()) {
        report.hints.emplace_back(place.lastLines ? m::HintEmptyAtEnd : m::HintEmptyLine);
    } else if (tokens.size() == 1) {
        for (char candidate : {',', ';', '\t', ' ', '|'}) {
            const auto split = splitLine(place.line, candidate);
            if (candidate != parameter.Delimiter && split.size() > parameter.HighestColumnIndex) {
                report.hints.push_back(
                    m::fill(m::HintDelimiter, delimiterWords(words, candidate).c_str(), split.size()));
                break;
            }
        }
    }
    if (failed && failed->text.empty()) report.hints.emplace_back(m::HintEmptyToken);
    return report;
}

}  // namespace Pallion::Tools
