#include "pallion/tools/FailureContext.hpp"

#include <filesystem>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include <sys/stat.h>

#include "pallion/Extensions.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/tools/CompressedSource.hpp"
#include "pallion/tools/Lines.hpp"
#include "pallion/tools/Messages.hpp"

namespace Pallion::Tools {

namespace {

constexpr std::size_t ShownLength = 120;

constexpr std::size_t KeptLine = std::size_t{64} * 1024;

// Why a file cannot be opened for reading, in a few words.
std::string openReason(const std::string& name) {
    const int error = openErrorOf(name);
    if (error == EISDIR) return std::string(messages::IsADirectory);
    return error == 0 ? std::string() : std::strerror(error);
}

std::string headerWords(OptionWords words) { return words == OptionWords::CommandLine ? "--header 1" : "header=1"; }

std::string delimiterWords(OptionWords words, char delimiter) {
    return words == OptionWords::CommandLine ? "--delimiter " + delimiterName(delimiter)
                                             : "delimiter=\"" + delimiterName(delimiter) + "\"";
}

// What a refused token was to be, in a person's words: "double", "float", or a
// 32-bit whole number for the integer types, by the parse-string name of its column's type.
std::string componentKind(const std::string& typeName) {
    std::string kind(messages::WholeNumberKind);
    Tessel::forEachElementType([&]<class T>() {
        using Traits = Tessel::ElementTraits<T>;
        using C = typename Traits::Component;
        if (typeName != Traits::parseName) return;
        if constexpr (std::is_same_v<C, double>) kind = "double";
        if constexpr (std::is_same_v<C, float>) kind = "float";
    });
    return kind;
}

bool looksLikeWords(const std::string& line) {
    return std::any_of(line.begin(), line.end(),
                       [](char c) { return std::isalpha(static_cast<unsigned char>(c)) && c != 'e' && c != 'E'; });
}

}  // namespace

FailurePlace lineOf(const std::string& file, std::uint64_t lineNumber) {
    // A pipe or a FIFO was read once by the conversion; it is never opened again.
    if (lineNumber == 0 || !isRegularFile(file)) return {};
    SourceStream in(file);
    for (std::uint64_t i = 1; i < lineNumber; ++i)
        if (!skipLine(in)) return {};
    FailurePlace place{file, lineNumber, {}, true, 0};
    if (!readLine(in, place.line, KeptLine, place.length)) return {};
    std::string rest;
    std::size_t length = 0;
    while (place.lastLines && readLine(in, rest, 0, length)) place.lastLines = length == 0;
    return place;
}

std::string FailureReport::text() const {
    namespace m = messages;
    std::string out;
    if (!aboutALine()) {
        for (const std::string& hint : hints) out += hint + '\n';
        return out;
    }
    out = std::string(m::AtFile) + file + '\n' + std::string(m::AtLine) + std::to_string(lineNumber) + '\n' +
          std::string(m::TheLine) + line + '\n';
    if (!detail.empty()) out += detail + '\n';
    for (const std::string& hint : hints) out += hint + '\n';
    return out;
}

FailureReport describeFailure(const Parameter& parameter, OptionWords words) {
    namespace m = messages;
    const FailureRecord& record = parameter.Failure;
    FailureReport report;
    switch (record.Kind) {
        case FailureKind::CannotOpen:
            if (const std::string reason = openReason(record.File); !reason.empty())
                report.hints.push_back(m::fill(m::HintCannotOpen, record.File.c_str(), reason.c_str()));
            return report;
        case FailureKind::LineTooLong:
            report.hints.push_back(
                m::fill(m::HintLineLimit, words == OptionWords::CommandLine ? "--max-line" : "max_line="));
            return report;
        case FailureKind::TooFewTokens:
        case FailureKind::TokenInvalid:
        case FailureKind::TokenOutOfRange:
            break;
        default:
            return report;
    }
    const FailurePlace place = lineOf(record.File, record.Line);
    if (place.file.empty()) return report;

    report.file = place.file;
    report.lineNumber = place.lineNumber;
    report.line = shown(place.line, ShownLength);
    if (place.length > ShownLength) report.line += " (" + std::to_string(place.length) + " bytes)";
    const bool whole = place.length == place.line.size();
    std::vector<std::string> pieces;
    const std::size_t tokens = record.Kind == FailureKind::TooFewTokens ? static_cast<std::size_t>(record.TokensInLine)
                                                                        : tokensOf(place.line, parameter, pieces);
    const bool tokenFailed = record.Kind != FailureKind::TooFewTokens && record.Column >= 0;
    if (record.Kind == FailureKind::TooFewTokens) {
        const std::string splitAt =
            parameter.Whitespace ? std::string("whitespace") : delimiterName(parameter.Delimiter);
        report.detail =
            m::fill(m::TokensMissing, tokens, splitAt.c_str(), record.HighestColumn, record.HighestColumn + 1);
    } else if (tokenFailed) {
        report.column = static_cast<std::uint32_t>(record.Column);
        report.token = shown(record.Token, ShownLength);
        const std::string kind = std::string(record.Kind == FailureKind::TokenOutOfRange ? m::OutOfRangeFor : m::NotA) +
                                 componentKind(record.Type);
        report.detail = m::fill(m::TokenFailed, *report.column, report.token.c_str(), kind.c_str());
    }

    // Hints, the likeliest cause first.
    const bool firstDataLine = place.lineNumber == parameter.HeaderLines + 1;
    if (place.lineNumber == 1 && place.line.rfind("\xEF\xBB\xBF", 0) == 0)
        report.hints.push_back(m::fill(m::HintBom, headerWords(words).c_str()));
    else if (firstDataLine && looksLikeWords(place.line))
        report.hints.push_back(m::fill(m::HintHeader, headerWords(words).c_str()));
    if (place.line.empty()) {
        report.hints.emplace_back(place.lastLines ? m::HintEmptyAtEnd : m::HintEmptyLine);
    } else if (tokens == 1 && whole) {
        for (char candidate : {',', ';', '\t', ' ', '|'}) {
            Parameter other;
            other.Delimiter = candidate;
            std::vector<std::string> cut;
            const std::size_t split = tokensOf(place.line, other, cut);
            if (candidate != parameter.Delimiter && split > parameter.HighestColumnIndex) {
                report.hints.push_back(m::fill(m::HintDelimiter, delimiterWords(words, candidate).c_str(), split));
                break;
            }
        }
    }
    if (tokenFailed && record.Token.empty()) report.hints.emplace_back(m::HintEmptyToken);
    return report;
}

void countLinesFromFileStart(Parameter& parameter, std::string& failure, std::uint64_t linesBefore) {
    FailureRecord& record = parameter.Failure;
    if (record.Line == 0 || linesBefore == 0) return;
    const auto named = [&](std::uint64_t line) {
        return messages::fill(messages::LineOfFile, static_cast<unsigned long long>(line), record.File.c_str());
    };
    const std::string counted = named(record.Line);
    record.Line += linesBefore;
    if (const std::size_t at = failure.find(counted); at != std::string::npos)
        failure.replace(at, counted.size(), named(record.Line));
}

int openErrorOf(const std::string& name) {
    struct stat status {};
    if (::stat(name.c_str(), &status) != 0) return errno;
    if (S_ISDIR(status.st_mode)) return EISDIR;
    // Opened as the conversion opens it, without waiting for a FIFO's writer.
    if (!openFileSource(name, SourceOpening{true, {}})->isOpen()) return errno;
    return 0;
}

std::string trajectoryNameFailure(const std::vector<std::string>& files) {
    for (const std::string& name : files) {
        std::string wrong = checkTrajectoryName(std::filesystem::path(name).stem().string());
        if (!wrong.empty()) return wrong;
    }
    return {};
}

}  // namespace Pallion::Tools
