#include "pallion/tools/Sniff.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

#include "pallion/Extensions.hpp"
#include "pallion/tools/CompressedSource.hpp"
#include "pallion/tools/Lines.hpp"
#include "pallion/tools/Messages.hpp"

namespace Pallion::Tools {

namespace {

constexpr std::size_t SampleBytes = std::size_t{64} * 1024;
constexpr std::size_t SampleLines = 100;
// The candidates, in the order that settles a tie: a semicolon before a
// comma, since a comma inside a semicolon table is a decimal comma; one blank
// before runs of blanks.
constexpr std::array<char, 6> Candidates = {'\t', ';', ',', '|', ' ', WhitespaceDelimiter};

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

// Pieces of `line` in a dialect: cut at `delimiter` as the library cuts, or
// at runs of blanks and tabs for WhitespaceDelimiter (none at either end).
std::vector<std::string> piecesOf(const std::string& line, char delimiter) {
    Parameter reading;
    reading.Whitespace = delimiter == WhitespaceDelimiter;
    reading.Delimiter = delimiter;
    std::vector<std::string> pieces;
    tokensOf(line, reading, pieces);
    return pieces;
}

// A number with one comma between digits as its decimal separator ("512,5").
bool isCommaNumber(const std::string& token) {
    const std::string text = trimmed(token);
    const std::size_t comma = text.find(',');
    return comma != std::string::npos && comma > 0 && text.find(',', comma + 1) == std::string::npos &&
           std::isdigit(static_cast<unsigned char>(text[comma - 1])) && comma + 1 < text.size() &&
           std::isdigit(static_cast<unsigned char>(text[comma + 1])) && isNumber(text);
}

// A number as a plain reading takes it whole: no comma in it.
bool isPlainNumber(const std::string& token) { return token.find(',') == std::string::npos && isNumber(token); }

// The lines of the head of a regular file, line ends and a UTF-8 byte order
// mark removed: SampleBytes past the end of the first line, which is read
// whole however long (up to `limit` bytes), no more than SampleLines lines.
// Line i of the result is line i + 1 of the file.  A UTF-16 or UTF-32 byte
// order mark is named in `wideBom`; CR-only line ends set `crOnly`.
std::vector<std::string> firstLines(const std::string& name, std::uint64_t limit, std::string& wideBom, bool& crOnly,
                                    std::string& failure) {
    SourceStream in(name);
    if (!in) {
        failure = messages::fill(messages::CannotRead, name.c_str(), std::strerror(errno));
        return {};
    }
    std::string bytes;
    bool whole = false;
    for (std::size_t lineEnd = std::string::npos;;) {
        const std::size_t had = bytes.size();
        bytes.resize(had + SampleBytes);
        in.read(bytes.data() + had, static_cast<std::streamsize>(SampleBytes));
        bytes.resize(had + static_cast<std::size_t>(in.gcount()));
        if (bytes.size() < had + SampleBytes) {
            whole = true;
            break;
        }
        if (lineEnd == std::string::npos) lineEnd = bytes.find('\n');
        // No line feed yet, but a CR with more behind it: CR-only line ends, known without reading on.
        const std::size_t cr = bytes.find('\r');
        if (lineEnd == std::string::npos && cr != std::string::npos && cr + 1 < bytes.size()) break;
        if (lineEnd != std::string::npos ? bytes.size() >= lineEnd + SampleBytes : bytes.size() > limit) break;
    }
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
    // A CR that ends no CRLF and is not the last byte, with no line feed anywhere.
    const std::size_t cr = bytes.find('\r');
    crOnly = bytes.find('\n') == std::string::npos && cr != std::string::npos && cr + 1 < bytes.size();

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
    // A first line longer than the limit still tells its delimiter.
    if (lines.empty() && !bytes.empty()) lines.push_back(bytes);
    for (std::string& line : lines)
        if (!line.empty() && line.back() == '\r') line.pop_back();
    return lines;
}

// Words, not numbers, in most of its tokens: a header line.  A data row with
// one bad token is not one.
bool mostlyWords(const std::string& line, char delimiter) {
    std::size_t filled = 0, words = 0;
    for (const std::string& token : piecesOf(line, delimiter)) {
        if (trimmed(token).empty()) continue;
        ++filled;
        words += isNumber(unquoted(token)) ? 0 : 1;
    }
    return words * 2 > filled;
}

bool blank(const std::string& line) { return trimmed(line).empty(); }

bool isComment(const std::string& line, const std::string& prefix) {
    return !prefix.empty() && line.rfind(prefix, 0) == 0;
}

struct DelimiterGuess {
    char delimiter = ' ';
    std::size_t columns = 0;
    bool everyLine = false;
    std::size_t bad = 0;  // pieces of the data lines that are no number
};

// Among the candidates (runs of blanks last), the one that leaves the fewest
// pieces of the data lines that are no number, then the one that gives the
// same column count (more than one) on every line, the most columns first;
// else the one whose commonest count covers the most lines.  A line of words is left out where it
// heads the lines.  A comma inside a number counts as a decimal comma for any
// candidate but the comma itself.
DelimiterGuess guessDelimiter(const std::vector<const std::string*>& lines) {
    DelimiterGuess best;
    std::size_t bestShare = 0;
    for (char candidate : Candidates) {
        std::map<std::size_t, std::size_t> counts;
        std::size_t bad = 0;
        for (std::size_t i = 0; i < lines.size(); ++i) {
            const auto pieces = piecesOf(*lines[i], candidate);
            if (i == 0 && lines.size() > 1 && mostlyWords(*lines[i], candidate)) continue;
            ++counts[pieces.size()];
            for (const std::string& piece : pieces)
                bad += isPlainNumber(piece) || (candidate != ',' && isCommaNumber(piece)) ? 0 : 1;
        }
        const auto commonest = std::max_element(counts.begin(), counts.end(),
                                                [](const auto& a, const auto& b) { return a.second < b.second; });
        if (commonest == counts.end() || commonest->first < 2) continue;
        const bool everyLine = counts.size() == 1;
        const bool better = bad != best.bad               ? bad < best.bad
                            : everyLine != best.everyLine ? everyLine
                            : everyLine                   ? commonest->first > best.columns
                                                          : commonest->second > bestShare;
        if (best.columns == 0 || better) {
            best = {candidate, commonest->first, everyLine, bad};
            bestShare = commonest->second;
        }
    }
    return best;
}

// The head of one file read in a dialect: where its first line that is not a
// comment or empty stands, whether that line is a header, and the data's
// commonest column count.
struct Head {
    std::size_t first = 0;          // index of the first line that is neither comment nor empty
    bool pointCount = false;        // that line is a .pts point count
    bool words = false;             // that line is mostly words
    std::vector<std::size_t> data;  // indices of the data lines sampled
    std::size_t columns = 0;        // their commonest column count
    std::size_t columnsAt = 0;      // the index of the first data line with that count
};

Head headOf(const std::vector<std::string>& lines, const std::string& comments, char delimiter,
            std::optional<std::uint32_t> headerLines) {
    Head head;
    while (head.first < lines.size() && (blank(lines[head.first]) || isComment(lines[head.first], comments)))
        ++head.first;
    if (head.first == lines.size()) return head;
    head.pointCount = head.first == 0 && allDigits(trimmed(lines[0])) && lines.size() > 1;
    head.words = mostlyWords(lines[head.first], delimiter);
    std::size_t from = headerLines ? *headerLines : head.first + (head.pointCount || head.words ? 1 : 0);
    std::map<std::size_t, std::size_t> counts;
    for (std::size_t i = from; i < lines.size(); ++i)
        if (!blank(lines[i]) && !isComment(lines[i], comments)) {
            head.data.push_back(i);
            ++counts[piecesOf(lines[i], delimiter).size()];
        }
    const auto commonest = std::max_element(counts.begin(), counts.end(),
                                            [](const auto& a, const auto& b) { return a.second < b.second; });
    if (commonest != counts.end()) head.columns = commonest->first;
    for (std::size_t i : head.data)
        if (piecesOf(lines[i], delimiter).size() == head.columns) {
            head.columnsAt = i;
            break;
        }
    return head;
}

std::string quotedList(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "\"" : " \"") + name + "\"";
    return text;
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
    for (const std::string& piece : piecesOf(line, delimiter)) names.push_back(unquoted(piece));
    return names;
}

std::vector<std::string> uniqueNames(std::vector<std::string> names) {
    std::set<std::string> taken;
    for (std::string& name : names) {
        std::string unique = name;
        for (std::size_t n = 1; taken.count(unique) > 0; ++n) unique = name + "." + std::to_string(n);
        taken.insert(unique);
        name = unique;
    }
    return names;
}

std::string fieldNamedTwice(const std::string& parse) {
    std::map<std::string, std::string> entryOf;
    for (const WrittenEntry& entry : writtenEntries(parse)) {
        if (entry.Items.empty()) continue;
        const auto [known, made] = entryOf.try_emplace(entry.Items[0], entry.Text);
        if (!made)
            return messages::fill(messages::FieldTwice, entry.Items[0].c_str(), known->second.c_str(),
                                  entry.Text.c_str());
    }
    return {};
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
    std::set<std::string> fields;
    auto add = [&](const std::string& name, const char* type, const std::vector<std::size_t>& columns) {
        std::string field = name;
        for (std::size_t n = 1; fields.count(field) > 0; ++n) field = name + "." + std::to_string(n);
        fields.insert(field);
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
    for (const WrittenEntry& entry : writtenEntries(parse)) {
        std::vector<std::string> items = entry.Items;
        if (items.size() == 3) {
            std::string columns;
            for (const std::string& piece : entry.Columns) {
                // Numbers stay as written: the library's own check of the parse string judges them.
                std::string number = piece;
                const bool numeric = !piece.empty() && piece.find_first_not_of("+-0123456789") == std::string::npos;
                if (!numeric) {
                    if (const auto column = columnNamed(names, piece)) {
                        number = std::to_string(*column);
                    } else {
                        failure = m::fill(m::NameNotInHeader, piece.c_str(), entry.Text.c_str(), joined(names).c_str());
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

namespace {

// The sample of one regular file, or the failure that stops its reading.
struct Sample {
    std::vector<std::string> lines;
    std::string failure;
};

Sample sampleOf(const std::string& name, std::uint64_t limit) {
    namespace m = messages;
    Sample sample;
    std::string wideBom;
    bool crOnly = false;
    sample.lines = firstLines(name, limit, wideBom, crOnly, sample.failure);
    if (!wideBom.empty()) sample.failure = m::fill(m::WideBom, name.c_str(), wideBom.c_str());
    if (crOnly) sample.failure = m::fill(m::CrOnlyLineEnds, name.c_str());
    return sample;
}

unsigned lineNumber(std::size_t index) { return static_cast<unsigned>(index + 1); }

// A further file held against the first: the same header at the same line,
// as many columns.  Empty where it agrees (or cannot be read ahead).
std::string againstFirst(const std::string& name, const std::string& firstName, const Resolved& first,
                         const Head& firstHead, std::size_t namesAt, std::optional<std::uint32_t> namedHeader,
                         std::uint64_t limit) {
    namespace m = messages;
    if (!isRegularFile(name)) return {};
    const Sample sample = sampleOf(name, limit);
    if (!sample.failure.empty()) return sample.failure;
    const Head head = headOf(sample.lines, first.commentPrefix, first.delimiter, namedHeader);
    const bool firstHasHeader = first.headerLines > 0 && !first.headerNames.empty() && !firstHead.pointCount;
    if (firstHasHeader) {
        const std::size_t at = namesAt;
        if (at >= sample.lines.size() || !mostlyWords(sample.lines[at], first.delimiter))
            return m::fill(m::OtherHeaderMissing, name.c_str(), lineNumber(at), firstName.c_str(),
                           quotedList(first.headerNames).c_str());
        const auto names = uniqueNames(headerNamesOf(sample.lines[at], first.delimiter));
        if (names != first.headerNames) {
            auto sorted = names, firstSorted = first.headerNames;
            std::ranges::sort(sorted);
            std::ranges::sort(firstSorted);
            if (sorted == firstSorted)
                return m::fill(m::OtherHeaderOrder, name.c_str(), firstName.c_str(), quotedList(names).c_str());
            return m::fill(m::OtherHeaderNames, name.c_str(), quotedList(names).c_str(), firstName.c_str(),
                           quotedList(first.headerNames).c_str());
        }
    } else if (!namedHeader && head.first < sample.lines.size() && head.words && !firstHead.words &&
               sample.lines.size() > head.first + 1) {
        return m::fill(m::OtherHeaderExtra, name.c_str(), lineNumber(head.first),
                       quotedList(headerNamesOf(sample.lines[head.first], first.delimiter)).c_str(), firstName.c_str());
    }
    if (head.columns != 0 && firstHead.columns != 0 && head.columns != firstHead.columns)
        return m::fill(m::OtherColumns, name.c_str(), head.columns, lineNumber(head.columnsAt), firstName.c_str(),
                       firstHead.columns);
    return {};
}

}  // namespace

Resolved resolveOptions(const TableOptions& options) {
    namespace m = messages;
    Resolved resolved;
    resolved.skipEmptyLines = true;
    resolved.wholeTokens = !options.lenient;
    const bool autoParse = options.parse == AutoParse;
    const std::string first = options.files.empty() ? std::string() : options.files.front();
    const std::string shownName = first == "-" ? "standard input" : first;
    const std::uint64_t limit = options.lineSizeLimit.value_or(Parameter().LineSizeLimit);

    // Whether the parse string names columns by their header names.
    bool namesColumns = false;
    if (!autoParse)
        for (const WrittenEntry& entry : writtenEntries(options.parse))
            for (const std::string& piece : entry.Columns) namesColumns |= !allDigits(piece);

    std::vector<std::string> lines;
    if (!first.empty() && isRegularFile(first)) {
        Sample sample = sampleOf(first, limit);
        if (!sample.failure.empty()) {
            resolved.failure = sample.failure;
            resolved.aboutTheOptions = false;
            return resolved;
        }
        lines = std::move(sample.lines);
        resolved.readAhead = true;
    }

    // Comment lines: a prefix named, or the one the first line that is not empty begins with.
    if (options.comments) {
        resolved.commentPrefix = *options.comments;
    } else {
        const auto firstFilled = std::ranges::find_if(lines, [](const std::string& line) { return !blank(line); });
        for (const char* prefix : {"#", "//"})
            if (firstFilled != lines.end() && firstFilled->rfind(prefix, 0) == 0) {
                resolved.commentPrefix = prefix;
                resolved.guessed.push_back(m::fill(m::GuessedComments, prefix));
            }
    }

    // The lines that have columns: neither empty nor comments, a .pts point count left out.
    Head head = headOf(lines, resolved.commentPrefix, ' ', options.headerLines);
    std::vector<const std::string*> rows;
    for (std::size_t i = head.first + (head.pointCount ? 1 : 0); i < lines.size(); ++i)
        if (!blank(lines[i]) && !isComment(lines[i], resolved.commentPrefix)) rows.push_back(&lines[i]);

    if (options.delimiter) {
        resolved.delimiter = *options.delimiter;
    } else if (resolved.readAhead) {
        const DelimiterGuess guess = guessDelimiter(rows);
        if (guess.columns == 0) {
            resolved.guessed.emplace_back(m::GuessedDelimiterNone);
        } else {
            resolved.delimiter = guess.delimiter;
            if (guess.delimiter == WhitespaceDelimiter)
                resolved.guessed.push_back(m::fill(m::GuessedWhitespace, guess.columns,
                                                   guess.everyLine ? "every sampled line" : "most sampled lines"));
            else
                resolved.guessed.push_back(m::fill(guess.everyLine ? m::GuessedDelimiter : m::GuessedDelimiterMost,
                                                   delimiterName(guess.delimiter).c_str(), guess.columns));
        }
    }
    head = headOf(lines, resolved.commentPrefix, resolved.delimiter, options.headerLines);
    const bool ptsTable =
        options.headerLines.value_or(1) == 1 && head.pointCount && !head.data.empty() && head.columns > 1;

    // A decimal comma: named, or (nearly) every comma of the data rows stands between digits in a number of its
    // own; a token mistyped here and there does not turn the guess, the strict reading refuses that token.
    if (options.decimalComma) {
        resolved.decimalComma = *options.decimalComma;
    } else if (resolved.delimiter != ',') {
        std::string example;
        std::size_t good = 0, bad = 0;
        for (std::size_t i : head.data)
            for (const std::string& piece : piecesOf(lines[i], resolved.delimiter)) {
                if (piece.find(',') == std::string::npos) continue;
                ++(isCommaNumber(piece) ? good : bad);
                if (example.empty()) example = trimmed(piece);
            }
        resolved.decimalComma = good > 0 && bad * 4 <= good;
        if (resolved.decimalComma) resolved.guessed.push_back(m::fill(m::GuessedDecimalComma, example.c_str()));
    }

    // The header: named, a .pts point count, a line of words (after comments and empty lines), or none.
    std::size_t namesAt = 0;
    const bool commentNames = !options.headerLines && !ptsTable && !head.words && head.first > 0 &&
                              isComment(lines[head.first - 1], resolved.commentPrefix);
    if (options.headerLines) {
        resolved.headerLines = *options.headerLines;
    } else if (resolved.readAhead && head.first < lines.size()) {
        resolved.headerLines = ptsTable || head.words ? static_cast<std::uint32_t>(head.first + 1) : 0;
        if (ptsTable)
            resolved.guessed.emplace_back(m::GuessedPointCount);
        else if (head.words && head.first == 0)
            resolved.guessed.emplace_back(m::GuessedHeader);
        else if (head.words)
            resolved.guessed.push_back(m::fill(m::GuessedHeaderAt, resolved.headerLines, lineNumber(head.first)));
        else if (!commentNames)
            resolved.guessed.emplace_back(m::GuessedNoHeader);
    }
    // The names: the last header line that is words (a point count or an empty line names nothing),
    // else a last comment line above the data whose token count matches the data.
    for (std::size_t i = std::min<std::size_t>(resolved.headerLines, lines.size()); i > 0 && !ptsTable; --i)
        if (!isComment(lines[i - 1], resolved.commentPrefix) && mostlyWords(lines[i - 1], resolved.delimiter)) {
            resolved.headerNames = headerNamesOf(lines[i - 1], resolved.delimiter);
            namesAt = i - 1;
            break;
        }
    if (commentNames && resolved.headerNames.empty()) {
        const std::string& line = lines[head.first - 1];
        const auto names = headerNamesOf(line.substr(resolved.commentPrefix.size()), resolved.delimiter);
        if (names.size() == head.columns &&
            mostlyWords(line.substr(resolved.commentPrefix.size()), resolved.delimiter)) {
            resolved.headerNames = names;
            namesAt = head.first - 1;
            resolved.guessed.push_back(m::fill(m::GuessedCommentNames, lineNumber(namesAt), names.size()));
        } else if (resolved.readAhead && !options.headerLines) {
            resolved.guessed.emplace_back(m::GuessedNoHeader);
        }
    }
    if (!resolved.headerNames.empty()) {
        const auto unique = uniqueNames(resolved.headerNames);
        if (unique != resolved.headerNames)
            resolved.guessed.push_back(m::fill(m::NamesMadeUnique, joined(unique).c_str()));
        resolved.headerNames = unique;
        // A header must name every column of the data, no more and no fewer.
        if (head.columns != 0 && resolved.headerNames.size() != head.columns && (autoParse || namesColumns)) {
            resolved.failure = m::fill(m::HeaderCountDiffers, shownName.c_str(), lineNumber(namesAt),
                                       resolved.headerNames.size(), head.columns, lineNumber(head.columnsAt));
            resolved.aboutTheOptions = false;
            return resolved;
        }
    }
    // A sampled row of another column count than the rest is told once.
    for (std::size_t i : head.data)
        if (const std::size_t count = piecesOf(lines[i], resolved.delimiter).size(); count != head.columns) {
            resolved.guessed.push_back(
                m::fill(m::OtherColumnCount, lineNumber(i), count, head.columns,
                        count > head.columns ? m::ExtraColumnsIgnored.data() : m::FewerColumnsFail.data()));
            break;
        }

    if (autoParse) {
        if (!resolved.headerNames.empty()) {
            resolved.parse = parseFromNames(resolved.headerNames);
            resolved.guessed.push_back(m::fill(m::ParseFromNames, resolved.parse.c_str()));
        } else if (ptsTable) {
            resolved.parse = parseForPts(head.columns);
            resolved.guessed.push_back(m::fill(m::ParseForPts, resolved.parse.c_str()));
        } else {
            // Every column kept: a point from the first three, then one double field per further column.
            resolved.parse = std::string(DefaultParse);
            for (std::size_t i = 3; i < head.columns; ++i)
                resolved.parse += ",Column" + std::to_string(i) + ":double:" + std::to_string(i);
            if (resolved.readAhead)
                resolved.guessed.push_back(
                    m::fill(head.columns > 3 ? m::ParseColumns : m::ParseDefault, resolved.parse.c_str()));
        }
    } else {
        if (namesColumns && resolved.headerNames.empty())
            // A name with no header to look it up in: say so rather than list no names.
            for (const WrittenEntry& entry : writtenEntries(options.parse))
                for (const std::string& piece : entry.Columns)
                    if (!piece.empty() && piece.find_first_not_of("+-0123456789") != std::string::npos) {
                        resolved.failure = m::fill(resolved.readAhead ? m::NameWithoutHeader : m::NameNotReadAhead,
                                                   piece.c_str(), entry.Text.c_str(), shownName.c_str());
                        return resolved;
                    }
        resolved.parse = parseWithNumbers(options.parse, resolved.headerNames, resolved.failure);
        if (resolved.failure.empty()) resolved.failure = checkParseString(resolved.parse);
        if (resolved.failure.empty()) resolved.failure = fieldNamedTwice(resolved.parse);
        if (!resolved.failure.empty()) return resolved;
        if (namesColumns) resolved.guessed.push_back(m::fill(m::ParseNamesReplaced, resolved.parse.c_str()));
    }

    // Every further file against the first, before anything is converted.
    if (resolved.readAhead)
        for (std::size_t i = 1; i < options.files.size(); ++i) {
            resolved.failure =
                againstFirst(options.files[i], first, resolved, head, namesAt, options.headerLines, limit);
            if (!resolved.failure.empty()) {
                resolved.aboutTheOptions = false;
                return resolved;
            }
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
