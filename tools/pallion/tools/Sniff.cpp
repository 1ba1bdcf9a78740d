#include "pallion/tools/Sniff.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>


#include "pallion/Extensions.hpp"
#include "pallion/tools/Lines.hpp"
#include "pallion/tools/Messages.hpp"

namespace Pallion::Tools {

namespace {

constexpr std::size_t SampleBytes = std::size_t{64} * 1024;
constexpr std::size_t SampleLines = 100;
// The candidates, in the order that settles a tie: a semicolon before a
// comma, since a comma inside a semicolon table is a decimal comma.
constexpr std::array<char, 5> Candidates = {'\t', ';', ',', '|', ' '};

// Pieces of `text` cut at `delimiter`, as the library cuts a line: every
// delimiter closes a piece, and what follows the last one is a piece if it is
// not empty.

std::size_t countOf(const std::string& line, char delimiter) {
    std::size_t n = line.empty() ? 0 : 1 + static_cast<std::size_t>(std::count(line.begin(), line.end(), delimiter));
    if (!line.empty() && line.back() == delimiter) --n;
    return n;
}

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::string unquoted(std::string text) {
    text = trimmed(text);
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') text = text.substr(1, text.size() - 2);
    return text;
}

// A number, with a decimal point or a decimal comma: a line of those is data, not a header.
bool isNumber(const std::string& token) {
    std::string text = trimmed(token);
    if (text.empty()) return false;
    if (const std::size_t comma = text.find(','); comma != std::string::npos) text[comma] = '.';
    char* end = nullptr;
    (void)std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size();
}

bool allDigits(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

// The first lines of a regular file, line ends and a UTF-8 byte order mark
// removed, with no more than SampleBytes read.  A UTF-16 or UTF-32 byte order
// mark is named in `wideBom`.
std::vector<std::string> firstLines(const std::string& name, std::string& wideBom, std::string& failure) {
    std::ifstream in(name, std::ios::binary);
    if (!in) {
        failure = messages::fill(messages::CannotRead, name.c_str(), std::strerror(errno));
        return {};
    }
    std::string bytes(SampleBytes, '\0');
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(in.gcount()));
    const bool whole = bytes.size() < SampleBytes;
    if (bytes.rfind(std::string("\xFF\xFE\0\0", 4), 0) == 0)
        wideBom = "UTF-32 LE";
    else if (bytes.rfind(std::string("\0\0\xFE\xFF", 4), 0) == 0)
        wideBom = "UTF-32 BE";
    else if (bytes.rfind("\xFF\xFE", 0) == 0)
        wideBom = "UTF-16 LE";
    else if (bytes.rfind("\xFE\xFF", 0) == 0)
        wideBom = "UTF-16 BE";
    if (!wideBom.empty()) return {};
    if (bytes.rfind("\xEF\xBB\xBF", 0) == 0) bytes.erase(0, 3);

    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < bytes.size() && lines.size() < SampleLines) {
        const std::size_t end = bytes.find('\n', start);
        if (end == std::string::npos) {
            if (whole) lines.push_back(bytes.substr(start));  // the last line, without a line end
            break;
        }
        lines.push_back(bytes.substr(start, end - start));
        start = end + 1;
    }
    // A first line longer than the sample still tells its delimiter.
    if (lines.empty() && !bytes.empty()) lines.push_back(bytes);
    for (std::string& line : lines)
        if (!line.empty() && line.back() == '\r') line.pop_back();
    return lines;
}

// Words, not numbers, in most of its tokens: a header line.  A data row with
// one bad token is not one.
bool mostlyWords(const std::string& line, char delimiter) {
    std::size_t filled = 0, words = 0;
    for (const std::string& token : cut(line, delimiter)) {
        if (trimmed(token).empty()) continue;
        ++filled;
        words += isNumber(unquoted(token)) ? 0 : 1;
    }
    return words * 2 > filled;
}

struct DelimiterGuess {
    char delimiter = ' ';
    std::size_t columns = 0;
    bool everyLine = false;
};

// Among the candidates, the one that gives the same column count (more than
// one) on every line, the most columns first; else the one whose commonest
// count covers the most lines.
DelimiterGuess guessDelimiter(const std::vector<const std::string*>& lines) {
    DelimiterGuess best;
    std::size_t bestShare = 0;
    for (char candidate : Candidates) {
        std::map<std::size_t, std::size_t> counts;
        for (const std::string* line : lines) ++counts[countOf(*line, candidate)];
        const auto commonest = std::max_element(counts.begin(), counts.end(),
                                                [](const auto& a, const auto& b) { return a.second < b.second; });
        if (commonest == counts.end() || commonest->first < 2) continue;
        const bool everyLine = counts.size() == 1;
        const bool better = everyLine != best.everyLine ? everyLine
                            : everyLine                 ? commonest->first > best.columns
                                                        : commonest->second > bestShare;
        if (best.columns == 0 || better) {
            best = {candidate, commonest->first, everyLine};
            bestShare = commonest->second;
        }
    }
    return best;
}

// The column a name stands for: the same name, else the only one that
// differs in case alone.
std::optional<std::uint32_t> columnNamed(const std::vector<std::string>& names, const std::string& name) {
    for (std::size_t i = 0; i < names.size(); ++i)
        if (names[i] == name) return static_cast<std::uint32_t>(i);
    std::optional<std::uint32_t> found;
    for (std::size_t i = 0; i < names.size(); ++i)
        if (lower(names[i]) == lower(name)) {
            if (found) return std::nullopt;
            found = static_cast<std::uint32_t>(i);
        }
    return found;
}

}  // namespace

std::vector<std::string> headerNamesOf(const std::string& line, char delimiter) {
    std::vector<std::string> names;
    for (const std::string& piece : cut(line, delimiter)) names.push_back(unquoted(piece));
    return names;
}

std::string parseFromNames(const std::vector<std::string>& names) {
    std::vector<bool> used(names.size(), false);
    auto find = [&](std::initializer_list<const char*> wanted) -> std::optional<std::vector<std::size_t>> {
        std::vector<std::size_t> columns;
        for (const char* name : wanted) {
            std::size_t i = 0;
            while (i < names.size() && (used[i] || lower(names[i]) != name)) ++i;
            if (i == names.size()) return std::nullopt;
            columns.push_back(i);
        }
        for (std::size_t i : columns) used[i] = true;
        return columns;
    };
    std::string parse;
    auto add = [&](const std::string& field, const char* type, const std::vector<std::size_t>& columns) {
        if (!parse.empty()) parse += ',';
        parse.append(field).append(":").append(type).append(":");
        for (std::size_t i = 0; i < columns.size(); ++i) {
            if (i > 0) parse += '+';
            parse += std::to_string(columns[i]);
        }
    };
    if (auto xyz = find({"x", "y", "z"})) add("Positions", "point", *xyz);
    if (auto rgb = find({"r", "g", "b"}))
        add("Colours", "rgb", *rgb);
    else if (auto colour = find({"red", "green", "blue"}))
        add("Colours", "rgb", *colour);
    if (auto normal = find({"nx", "ny", "nz"})) add("Normals", "tvector", *normal);
    if (auto intensity = find({"intensity"})) add(names[(*intensity)[0]], "float", *intensity);
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (used[i]) continue;
        // A field name holds none of the parse string's own separators.
        std::string field = names[i];
        for (char& c : field)
            if (c == ',' || c == ':' || c == '+') c = '_';
        add(field.empty() ? "Column" + std::to_string(i) : field, "double", {i});
    }
    return parse;
}

std::string parseForPts(std::size_t columns) {
    std::string points(DefaultParse);
    switch (columns) {
        case 4:
            return points + ",Intensity:float:3";
        case 6:
            return points + ",Colours:rgb:3+4+5";
        case 7:
            return points + ",Intensity:float:3,Colours:rgb:4+5+6";
        default:
            return points;
    }
}

std::string parseWithNumbers(const std::string& parse, const std::vector<std::string>& names, std::string& failure) {
    namespace m = messages;
    std::string out;
    for (const std::string& entry : cut(parse, ',')) {
        std::vector<std::string> items = cut(entry, ':');
        if (items.size() == 3) {
            std::string columns;
            for (const std::string& piece : cut(items[2], '+')) {
                // Numbers stay as written: the library's own check of the parse string judges them.
                std::string number = piece;
                const bool numeric = !piece.empty() && piece.find_first_not_of("+-0123456789") == std::string::npos;
                if (!numeric) {
                    if (const auto column = columnNamed(names, piece)) {
                        number = std::to_string(*column);
                    } else {
                        failure = m::fill(m::NameNotInHeader, piece.c_str(), entry.c_str(), joined(names).c_str());
                        return parse;
                    }
                }
                columns += (columns.empty() ? "" : "+") + number;
            }
            items[2] = columns;
        }
        std::string rebuilt;
        for (std::size_t i = 0; i < items.size(); ++i) rebuilt += (i ? ":" : "") + items[i];
        out += (out.empty() ? "" : ",") + rebuilt;
    }
    return out;
}

Resolved namedOptions(const TableOptions& options) {
    Resolved resolved;
    resolved.delimiter = options.delimiter.value_or(' ');
    resolved.headerLines = options.headerLines.value_or(0);
    resolved.parse = options.parse == AutoParse ? std::string(DefaultParse) : options.parse;
    return resolved;
}

Resolved resolveOptions(const TableOptions& options) {
    namespace m = messages;
    Resolved resolved;
    const bool autoParse = options.parse == AutoParse;
    const std::string first = options.files.empty() ? std::string() : options.files.front();
    const std::string shownName = first == "-" ? "standard input" : first;

    // Whether the parse string names columns by their header names.
    bool namesColumns = false;
    if (!autoParse)
        for (const std::string& entry : cut(options.parse, ',')) {
            const auto items = cut(entry, ':');
            if (items.size() == 3)
                for (const std::string& piece : cut(items[2], '+')) namesColumns |= !allDigits(piece);
        }

    std::vector<std::string> lines;
    if (!first.empty() && isRegularFile(first)) {
        std::string wideBom;
        lines = firstLines(first, wideBom, resolved.failure);
        if (!wideBom.empty()) resolved.failure = m::fill(m::WideBom, first.c_str(), wideBom.c_str());
        if (!resolved.failure.empty()) {
            resolved.aboutTheOptions = false;
            return resolved;
        }
        resolved.readAhead = true;
    }

    // The lines that have columns; an empty line ends a conversion and tells nothing of the columns.
    std::vector<const std::string*> filled;
    for (const std::string& line : lines)
        if (!line.empty()) filled.push_back(&line);
    // A .pts table begins with its point count alone on a line, above rows of more columns.
    const bool pointCount = options.headerLines.value_or(1) == 1 && filled.size() > 1 && filled[0] == &lines[0] &&
                            allDigits(trimmed(lines[0]));
    std::vector<const std::string*> rows(filled.begin() + (pointCount ? 1 : 0), filled.end());

    if (options.delimiter) {
        resolved.delimiter = *options.delimiter;
    } else if (resolved.readAhead) {
        const DelimiterGuess guess = guessDelimiter(rows.empty() ? filled : rows);
        if (guess.columns == 0) {
            resolved.guessed.emplace_back(m::GuessedDelimiterNone);
        } else {
            resolved.delimiter = guess.delimiter;
            resolved.guessed.push_back(m::fill(guess.everyLine ? m::GuessedDelimiter : m::GuessedDelimiterMost,
                                               delimiterName(guess.delimiter).c_str(), guess.columns));
        }
    }
    const bool ptsTable = pointCount && !rows.empty() && countOf(*rows[0], resolved.delimiter) > 1;

    if (options.headerLines) {
        resolved.headerLines = *options.headerLines;
    } else if (resolved.readAhead && !lines.empty()) {
        const bool words = mostlyWords(lines[0], resolved.delimiter);
        resolved.headerLines = ptsTable || words ? 1 : 0;
        resolved.guessed.emplace_back(ptsTable ? m::GuessedPointCount : words ? m::GuessedHeader : m::GuessedNoHeader);
    }
    // The names: the last header line that is words (a point count or an empty line names nothing).
    for (std::size_t i = std::min<std::size_t>(resolved.headerLines, lines.size()); i > 0 && !ptsTable; --i)
        if (mostlyWords(lines[i - 1], resolved.delimiter)) {
            resolved.headerNames = headerNamesOf(lines[i - 1], resolved.delimiter);
            break;
        }

    if (autoParse) {
        if (!resolved.headerNames.empty()) {
            resolved.parse = parseFromNames(resolved.headerNames);
            resolved.guessed.push_back(m::fill(m::ParseFromNames, resolved.parse.c_str()));
        } else if (ptsTable) {
            resolved.parse = parseForPts(countOf(*rows[0], resolved.delimiter));
            resolved.guessed.push_back(m::fill(m::ParseForPts, resolved.parse.c_str()));
        } else {
            resolved.parse = std::string(DefaultParse);
            if (resolved.readAhead) resolved.guessed.push_back(m::fill(m::ParseDefault, resolved.parse.c_str()));
        }
    } else {
        if (namesColumns && resolved.headerNames.empty())
            // A name with no header to look it up in: say so rather than list no names.
            for (const std::string& entry : cut(options.parse, ',')) {
                const auto items = cut(entry, ':');
                if (items.size() != 3) continue;
                for (const std::string& piece : cut(items[2], '+'))
                    if (!piece.empty() && piece.find_first_not_of("+-0123456789") != std::string::npos) {
                        resolved.failure = m::fill(resolved.readAhead ? m::NameWithoutHeader : m::NameNotReadAhead,
                                                   piece.c_str(), entry.c_str(), shownName.c_str());
                        return resolved;
                    }
            }
        resolved.parse = parseWithNumbers(options.parse, resolved.headerNames, resolved.failure);
        if (resolved.failure.empty()) resolved.failure = checkParseString(resolved.parse);
        if (namesColumns && resolved.failure.empty())
            resolved.guessed.push_back(m::fill(m::ParseNamesReplaced, resolved.parse.c_str()));
    }

    // A file that is missing or a folder is not worth a word here: the conversion tells why it cannot open it.
    const bool stream = first == "-" || isRegularFile(first) || isStream(first);
    if (!resolved.readAhead && stream)
        resolved.guessed.insert(resolved.guessed.begin(),
                                m::fill(m::NotReadAhead, shownName.c_str(), delimiterName(resolved.delimiter).c_str(),
                                        resolved.headerLines, resolved.parse.c_str()));
    return resolved;
}

}  // namespace Pallion::Tools
