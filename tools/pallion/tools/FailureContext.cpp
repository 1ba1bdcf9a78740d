#include "pallion/tools/FailureContext.hpp"

#include <filesystem>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "pallion/Extensions.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/convert/detail/Messages.hpp"
#include "pallion/tools/Lines.hpp"
#include "pallion/tools/Messages.hpp"

namespace Pallion::Tools {

namespace {

constexpr std::size_t ShownLength = 120;

constexpr std::size_t KeptLine = std::size_t{64} * 1024;

// The tokens the library cuts a line into at `delimiter`, counted without
// cutting: every delimiter closes one, and what follows the last is one if it
// is not empty; a NUL byte ends the line.
std::size_t tokenCount(const std::string& line, char delimiter) {
    const std::string_view text(line.data(), std::min(line.size(), line.find('\0')));
    if (text.empty()) return 0;
    const auto cuts = static_cast<std::size_t>(std::count(text.begin(), text.end(), delimiter));
    return cuts + (text.back() == delimiter ? 0 : 1);
}

// The library's own count in its text "... Number of tokens in this line: N", if there.
std::optional<std::size_t> countInText(const std::string& failure) {
    static constexpr std::string_view Marker = "Number of tokens in this line: ";
    const std::size_t at = failure.find(Marker);
    if (at == std::string::npos) return std::nullopt;
    std::size_t count = 0;
    const char* first = failure.data() + at + Marker.size();
    if (std::from_chars(first, failure.data() + failure.size(), count).ec != std::errc()) return std::nullopt;
    return count;
}

// Why a file cannot be opened for reading, in a few words.
std::string openReason(const std::string& name) {
    struct stat status {};
    if (::stat(name.c_str(), &status) != 0) return std::strerror(errno);
    if (S_ISDIR(status.st_mode)) return std::string(messages::IsADirectory);
    const int fd = ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::strerror(errno);
    ::close(fd);
    return {};
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
                    (void)standardNumber<C>(token);
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
        for (std::uint32_t i = 0; i < headerLines && skipLine(in);) ++i;
        std::uint64_t row = 0;
        for (; before + row < rowsStored && skipLine(in);) ++row;
        FailurePlace place{name, headerLines + row + 1, {}, true, 0};
        if (before + row == rowsStored && readLine(in, place.line, KeptLine, place.length)) {
            std::string rest;
            std::size_t length = 0;
            while (place.lastLines && readLine(in, rest, 0, length)) place.lastLines = length == 0;
            return place;
        }
        before += row;
    }
    return {};
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

FailureReport describeFailure(const Parameter& parameter, const std::string& failure, bool exception,
                              OptionWords words) {
    namespace m = messages;
    FailureReport report;
    const std::string_view cannotOpen = Pallion::messages::convert::CannotOpenFile;
    if (failure.rfind(cannotOpen, 0) == 0) {
        const std::string name = failure.substr(cannotOpen.size());
        const std::string reason = openReason(name);
        if (!reason.empty()) report.hints.push_back(m::fill(m::HintCannotOpen, name.c_str(), reason.c_str()));
        return report;
    }
    if (failure.rfind(Pallion::messages::convert::LineTooLong, 0) == 0) {
        report.hints.push_back(
            m::fill(m::HintLineLimit, words == OptionWords::CommandLine ? "--max-line" : "max_line="));
        return report;
    }
    const bool countFailure = failure.rfind(Pallion::messages::convert::ColumnIndexOutOfRange, 0) == 0;
    if (!exception && !countFailure) return report;
    std::vector<std::string> files;
    if (!parameter.Files.isNull()) files.assign(parameter.Files->begin(), parameter.Files->end());
    const FailurePlace place = findFailingLine(files, parameter.HeaderLines, parameter.LineCount);
    if (place.file.empty()) return report;

    report.file = place.file;
    report.lineNumber = place.lineNumber;
    report.line = shown(place.line, ShownLength);
    if (place.length > ShownLength) report.line += " (" + std::to_string(place.length) + " bytes)";
    const bool whole = place.length == place.line.size();
    const std::size_t tokens = countInText(failure).value_or(tokenCount(place.line, parameter.Delimiter));
    std::optional<FailedToken> failed;
    if (countFailure) {
        report.detail = m::fill(m::TokensMissing, tokens, delimiterName(parameter.Delimiter).c_str(),
                                parameter.HighestColumnIndex, parameter.HighestColumnIndex + 1);
    } else if ((failed = failingToken(parameter))) {
        report.column = failed->column;
        report.token = shown(failed->text, ShownLength);
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
    } else if (tokens == 1 && whole) {
        for (char candidate : {',', ';', '\t', ' ', '|'}) {
            const std::size_t split = tokenCount(place.line, candidate);
            if (candidate != parameter.Delimiter && split > parameter.HighestColumnIndex) {
                report.hints.push_back(m::fill(m::HintDelimiter, delimiterWords(words, candidate).c_str(), split));
                break;
            }
        }
    }
    if (failed && failed->text.empty()) report.hints.emplace_back(m::HintEmptyToken);
    return report;
}

std::string trajectoryNameFailure(const std::vector<std::string>& files) {
    for (const std::string& name : files) {
        std::string wrong = checkTrajectoryName(std::filesystem::path(name).stem().string());
        if (!wrong.empty()) return wrong;
    }
    return {};
}

}  // namespace Pallion::Tools
