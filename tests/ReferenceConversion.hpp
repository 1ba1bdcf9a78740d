// A plain reading of text tables, written straight from the documented
// behaviour with std::getline, split and the standard conversions
// (standardNumber), and the same conversion through ascii2z9, each recorded
// as an Outcome.  Two equal outcomes mean that the fast reading path behaved
// exactly as the plain one; the differential test and the fuzz target compare them.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "pallion/array/ElementTraits.hpp"
#include "pallion/convert/detail/Ascii2Z9.hpp"
#include "pallion/convert/detail/Messages.hpp"
#include "pallion/convert/detail/NumberConversion.hpp"
#include "pallion/convert/detail/Parse.hpp"
#include "pallion/convert/detail/TokenConversion.hpp"
#include "pallion/tools/Sniff.hpp"
#include "tessel/Grid.hpp"

namespace reference {

// Parse strings the differential checks convert with: every type, a column
// read twice, columns out of order, one field name from two entries.
inline constexpr const char* ParseStrings[] = {
    "Positions:point:0+1+2",
    "P:point:2+0+1,I:int:3,F:float:1",
    "A:double:0,B:uint8_t:1,C:rgb:0+1+2,D:tvector:1+1+1",
    "X:uint16_t:0+3+1,Y:uint32_t:2,X:double:1",
    "Only:float:1",
    "N:int:0,M:int:0",
    "A:float:0,B:uint8_t:1,C:int:2,D:double:3",
};

struct Settings {
    std::vector<std::string> files = {};
    std::uint32_t headerLines = 0;
    std::string parse = "Positions:point:0+1+2";
    char delimiter = ' ';
    std::uint32_t chunkSize = 4;
    std::size_t stopAtReport = 0;  // the progress object answers false to this report (1-based); 0: never
    // The opt-in readings.
    bool wholeTokens = false, whitespace = false, skipEmptyLines = false, decimalComma = false;
    std::string commentPrefix = "";
};

struct Fragment {
    std::string field, name, bytes;
    bool operator==(const Fragment&) const = default;
};

using Reports = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

struct Outcome {
    std::string result;
    std::string exception;  // "kind: what()" when the conversion threw
    std::uint64_t lineCount = 0, blockFill = 0, fragmentCount = 0;
    std::string currentFile;
    std::vector<std::string> tokens;
    Reports reports;
    std::vector<std::string> hookCalls;  // field, file, element count and the tokens at that moment
    std::vector<Fragment> fragments;     // field by field in the order of the parse string, each in flush order
    std::string failure;                 // the failure record, field by field
    bool operator==(const Outcome&) const = default;
};

inline std::string recordText(const Pallion::FailureRecord& f) {
    return std::to_string(static_cast<int>(f.Kind)) + '|' + f.File + '|' + std::to_string(f.Line) + '|' +
           std::to_string(f.Column) + '|' + f.Token + '|' + f.Type + '|' + f.Stored + '|' +
           std::to_string(f.HighestColumn) + '|' + std::to_string(f.TokensInLine);
}

inline std::ostream& operator<<(std::ostream& out, const Outcome& o) {
    out << "result \"" << o.result << "\" exception \"" << o.exception << "\" rows " << o.lineCount << " fill "
        << o.blockFill << " blocks " << o.fragmentCount << " file " << o.currentFile << " tokens " << o.tokens.size()
        << " reports " << o.reports.size() << " hooks " << o.hookCalls.size() << " record " << o.failure
        << " fragments:";
    for (const Fragment& f : o.fragments) out << ' ' << f.field << '/' << f.name << '#' << f.bytes.size();
    return out;
}

// Runs `convert` into out.result or out.exception, then takes the Parameter's counters, file and tokens.
template <class F>
void record(Outcome& out, const Pallion::Parameter& p, F&& convert) {
    try {
        out.result = convert();
    } catch (const std::invalid_argument& e) {
        out.exception = std::string("invalid_argument: ") + e.what();
    } catch (const std::out_of_range& e) {
        out.exception = std::string("out_of_range: ") + e.what();
    } catch (const std::exception& e) {
        out.exception = std::string("exception: ") + e.what();
    }
    out.lineCount = p.LineCount, out.blockFill = p.BlockFill, out.fragmentCount = p.FragmentCount;
    out.currentFile = p.CurrentFile;
    out.tokens = p.Tokens;
    out.failure = recordText(p.Failure);
}

inline std::string hookCall(const std::string& field, const std::string& file, std::size_t count,
                            const std::vector<std::string>& tokens) {
    std::string call = field + '|' + file + '|' + std::to_string(count);
    for (const std::string& token : tokens) call += '|' + token;
    return call;
}

inline std::vector<std::string> distinctFields(const Pallion::Parameter& p) {
    std::vector<std::string> fields;
    for (const Pallion::ContainerEntry& entry : p.Container)
        if (std::find(fields.begin(), fields.end(), entry.FieldName) == fields.end()) fields.push_back(entry.FieldName);
    return fields;
}

struct RecordingProgress : Ravelin::LoaderProgress {
    RecordingProgress(Reports& into, std::size_t stopAt) : reports(into), stop(stopAt) {}
    bool report(const std::string&, std::uint32_t value, std::uint32_t total) override {
        reports.emplace_back(value, total);
        return reports.size() != stop;
    }
    Reports& reports;
    std::size_t stop;
};

// The conversion as written down: getline, split, the standard conversions.
class PlainReading {
public:
    explicit PlainReading(const Settings& s) : settings(s) {}

    Outcome run() {
        record(out, p, [&] {
            try {
                std::string result = convert();
                p.Failure = rec;
                return result;
            } catch (...) {
                p.Failure = rec;
                throw;
            }
        });
        // As the grid lists them: field by field in the order of the parse string, a field's
        // fragments by name in the order first made, a name's arrays in the order stored.
        for (const std::string& field : distinctFields(p)) {
            std::vector<std::string> names;
            for (const Fragment& f : flushed)
                if (f.field == field && std::find(names.begin(), names.end(), f.name) == names.end())
                    names.push_back(f.name);
            for (const std::string& name : names)
                for (const Fragment& f : flushed)
                    if (f.field == field && f.name == name) out.fragments.push_back(f);
        }
        return out;
    }

private:
    struct Column {
        std::string field;
        std::size_t elementSize;
        std::vector<unsigned char> rows;
        // Converts the row's tokens into one element there; gives a refusal text, or empty.
        std::function<std::string(unsigned char*)> store;
    };

    std::string fail(Pallion::FailureKind kind, std::string text, std::uint64_t line = 0) {
        rec.Kind = kind;
        rec.File = p.CurrentFile;
        rec.Line = line;
        return text;
    }

    static std::string trimmed(const std::string& token) {
        const auto first = token.find_first_not_of(" \t");
        if (first == std::string::npos) return {};
        return token.substr(first, token.find_last_not_of(" \t") + 1 - first);
    }

    // The whole-token check as written down: the trimmed token read by
    // std::stod/std::stof to its last byte (hexadecimal refused), or by
    // std::stoll to its last byte and then held against C's range.
    template <class C>
    Pallion::FailureKind wholeReading(const std::string& token, C& value) const {
        using Pallion::FailureKind;
        std::string text = trimmed(token);
        if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) return FailureKind::TokenInvalid;
        try {
            std::size_t used = 0;
            if constexpr (std::is_floating_point_v<C>) {
                const std::string lower = text.substr(text[0] == '-' || text[0] == '+' ? 1 : 0, 2);
                if (lower == "0x" || lower == "0X") return FailureKind::TokenInvalid;
                if (settings.decimalComma) text = decimalPoint(text);
                value = std::is_same_v<C, double> ? static_cast<C>(std::stod(text, &used)) : std::stof(text, &used);
            } else {
                if (text.size() > 1 && (text[1] == '+' || text[1] == '-')) return FailureKind::TokenInvalid;
                const long long wide = std::stoll(text, &used);
                if (used == text.size() &&
                    (wide < std::numeric_limits<C>::min() || wide > std::numeric_limits<C>::max()))
                    return FailureKind::TokenOutOfRange;
                value = static_cast<C>(wide);
            }
            return used == text.size() ? FailureKind::None : FailureKind::TokenInvalid;
        } catch (const std::invalid_argument&) {
            return FailureKind::TokenInvalid;
        } catch (const std::out_of_range&) {
            // stoll's range is wider than every integer column: only digits beyond it come here.
            if constexpr (!std::is_floating_point_v<C>)
                if (text.find_first_not_of("0123456789", text[0] == '-' || text[0] == '+') != std::string::npos)
                    return FailureKind::TokenInvalid;
            return FailureKind::TokenOutOfRange;
        }
    }

    static std::string decimalPoint(std::string text) {
        for (char& c : text)
            if (c == ',' || c == '.') c = c == ',' ? '.' : ',';
        return text;
    }

    template <class C>
    C plainValue(const std::string& token) const {
        return Pallion::standardNumber<C>(settings.decimalComma ? decimalPoint(token) : token);
    }

    template <class C>
    std::string refusal(Pallion::FailureKind kind, std::uint32_t column, const char* type) {
        namespace m = Pallion::messages::convert;
        const std::string& token = p.Tokens[column];
        rec.Column = column, rec.Token = token, rec.Type = type;
        std::string tail;
        try {
            rec.Stored = Pallion::numberText(plainValue<C>(token));
            tail = std::string(m::TokenWouldBeStored) + rec.Stored;
        } catch (const std::invalid_argument&) {
            tail = std::string(m::TokenPlainThrows) + "invalid_argument";
        } catch (const std::out_of_range&) {
            tail = std::string(m::TokenPlainThrows) + "out_of_range";
        }
        const bool range = kind == Pallion::FailureKind::TokenOutOfRange;
        return fail(kind,
                    std::string(range ? m::TokenOutOfRange : m::TokenNotWhole) + type + ": \"" + token +
                        "\" in column " + std::to_string(column) + " of line " + std::to_string(lineNumber) +
                        " of file: " + p.CurrentFile + tail,
                    lineNumber);
    }

    std::string convert() {
        namespace messages = Pallion::messages::convert;
        p.Parse = settings.parse;
        p.Delimiter = settings.delimiter == 't' ? '\t' : settings.delimiter;
        std::string parsed;
        try {
            parsed = Pallion::parseUserInputToContainer(p);
        } catch (const std::exception&) {
            rec.Kind = Pallion::FailureKind::Arguments;
            throw;
        }
        using Pallion::FailureKind;
        if (!parsed.empty()) return fail(FailureKind::Arguments, parsed);
        if (settings.files.empty()) return fail(FailureKind::Arguments, std::string(messages::NoInputFiles));
        if (p.Container.empty()) return fail(FailureKind::Arguments, std::string(messages::NoContainer));
        if (settings.chunkSize == 0) return fail(FailureKind::Arguments, std::string(messages::ChunkSizeZero));
        Tessel::forEachElementType([&]<class T>() {
            using C = typename Tessel::ElementTraits<T>::Component;
            for (const Pallion::ContainerEntry& entry : p.Container)
                if (entry.TypeId == Tessel::typeIndexOf<T>())
                    columns.push_back(
                        {entry.FieldName, sizeof(T), std::vector<unsigned char>(sizeof(T) * settings.chunkSize),
                         [this, taken = entry.Columns](unsigned char* into) -> std::string {
                             C values[Tessel::ElementTraits<T>::components];
                             for (std::size_t i = 0; i < std::size(values); ++i) {
                                 const std::string& token = p.Tokens[taken[i]];
                                 if (settings.wholeTokens) {
                                     const FailureKind kind = wholeReading<C>(token, values[i]);
                                     if (kind != FailureKind::None)
                                         return refusal<C>(kind, taken[i], Tessel::ElementTraits<T>::parseName);
                                     continue;
                                 }
                                 try {
                                     values[i] = plainValue<C>(token);
                                 } catch (const std::exception& e) {
                                     fail(dynamic_cast<const std::invalid_argument*>(&e) != nullptr
                                              ? FailureKind::TokenInvalid
                                              : FailureKind::TokenOutOfRange,
                                          {}, lineNumber);
                                     rec.Column = taken[i], rec.Token = token;
                                     rec.Type = Tessel::ElementTraits<T>::parseName;
                                     throw;
                                 }
                             }
                             std::memcpy(into, values, sizeof values);
                             return {};
                         }});
        });
        for (const std::string& name : settings.files)
            if (std::string failure = readFile(name); !failure.empty()) return failure;
        if (p.BlockFill < settings.chunkSize) flush(p.BlockFill);
        return {};
    }

    void skipHeader(std::istream& stream) const {
        for (std::uint32_t i = 0; i < settings.headerLines; ++i)
            stream.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }

    std::string readFile(const std::string& name) {
        namespace messages = Pallion::messages::convert;
        using Pallion::FailureKind;
        std::ifstream stream(name);
        if (std::filesystem::is_directory(name) || !stream.is_open()) {
            rec.File = name;
            rec.Kind = FailureKind::CannotOpen;
            return std::string(messages::CannotOpenFile) + name;
        }
        lineNumber = 0;
        for (std::string skipped; lineNumber < settings.headerLines && std::getline(stream, skipped);) ++lineNumber;
        const std::uint64_t estimate = estimateLines(name);
        const std::uint64_t step = estimate > 99 ? estimate / 100 : 1;
        p.CurrentFile = name;
        const bool rules = settings.wholeTokens || settings.whitespace || settings.skipEmptyLines ||
                           settings.decimalComma || !settings.commentPrefix.empty();
        for (std::string line; std::getline(stream, line);) {
            ++lineNumber;
            if (rules) {
                line = line.substr(0, line.find('\0'));
                if (!line.empty() && line.back() == '\r') line.pop_back();
                const std::string content =
                    settings.whitespace ? line.substr(std::min(line.size(), line.find_first_not_of(" \t"))) : line;
                if (!settings.commentPrefix.empty() && content.starts_with(settings.commentPrefix)) continue;
                if (settings.skipEmptyLines && trimmed(line).empty()) continue;
            }
            if (p.LineCount % step == 0) {
                out.reports.emplace_back(static_cast<std::uint32_t>(std::min(estimate, p.LineCount)),
                                         static_cast<std::uint32_t>(estimate));
                if (out.reports.size() == settings.stopAtReport)
                    return fail(FailureKind::Interrupted, std::string(messages::UserInterruption), lineNumber);
            }
            if (settings.whitespace) {
                std::size_t at = 0;
                while ((at = line.find_first_not_of(" \t", at)) != std::string::npos) {
                    const std::size_t after = std::min(line.size(), line.find_first_of(" \t", at));
                    p.Tokens.push_back(line.substr(at, after - at));
                    at = after;
                }
            } else {
                Pallion::split(line.data(), line.size(), p.Tokens, p.Delimiter);
            }
            // A row keeps the tokens up to the highest column only.
            if (p.Tokens.size() > std::size_t{p.HighestColumnIndex} + 1) p.Tokens.resize(p.HighestColumnIndex + 1);
            if (p.HighestColumnIndex >= p.Tokens.size()) {
                rec.HighestColumn = p.HighestColumnIndex, rec.TokensInLine = p.Tokens.size();
                return fail(FailureKind::TooFewTokens,
                            std::string(messages::ColumnIndexOutOfRange) + std::to_string(p.HighestColumnIndex) +
                                std::string(messages::TokensInLine) + std::to_string(p.Tokens.size()),
                            lineNumber);
            }
            for (Column& column : columns)
                if (std::string refused = column.store(column.rows.data() + p.BlockFill * column.elementSize);
                    !refused.empty())
                    return refused;
            ++p.BlockFill;
            ++p.LineCount;
            if (p.BlockFill == settings.chunkSize) {
                flush(settings.chunkSize);
                ++p.FragmentCount;
                p.BlockFill = 0;
            }
            p.Tokens.clear();
        }
        return {};
    }

    // The file's size over the length of its first row; unknown (the largest number) for an empty first row.
    std::uint64_t estimateLines(const std::string& name) const {
        std::ifstream stream(name);
        skipHeader(stream);
        std::string first;
        std::getline(stream, first);
        if (first.empty()) return std::numeric_limits<std::uint64_t>::max();
        return std::max<std::uint64_t>(1, std::filesystem::file_size(name) / first.size());
    }

    void flush(std::uint64_t rows) {
        const std::string name = std::filesystem::path(p.CurrentFile).stem().string() + std::to_string(p.FragmentCount);
        for (Column& column : columns) {
            out.hookCalls.push_back(hookCall(column.field, p.CurrentFile, rows, p.Tokens));
            flushed.push_back({column.field, name,
                               std::string(column.rows.begin(), column.rows.begin() + rows * column.elementSize)});
            std::fill(column.rows.begin(), column.rows.end(), 0);
        }
    }

    const Settings& settings;
    Pallion::Parameter p;
    Pallion::FailureRecord rec;  // the reference's own record, handed to p.Failure for the outcome
    std::uint64_t lineNumber = 0;
    Outcome out;
    std::vector<Column> columns;
    std::vector<Fragment> flushed;
};

inline Outcome plainReading(const Settings& settings) { return PlainReading(settings).run(); }

// The Parameter of `settings`, filled as the hosts fill it.
inline Pallion::Parameter libraryParameter(const Settings& settings) {
    Pallion::Parameter p;
    Pallion::Tools::TableOptions options;
    options.files = settings.files;
    options.headerLines = settings.headerLines;
    options.parse = settings.parse;
    options.delimiter = settings.delimiter;
    options.block = settings.chunkSize;
    Pallion::Tools::fillParameter(p, options, Pallion::Tools::namedOptions(options), std::nullopt);
    // The hosts' options take a NUL for runs of blanks; the library reads it as the byte it is.
    p.Delimiter = settings.delimiter;
    p.WholeTokens = settings.wholeTokens;
    p.Whitespace = settings.whitespace;
    p.SkipEmptyLines = settings.skipEmptyLines;
    p.DecimalComma = settings.decimalComma;
    p.CommentPrefix = settings.commentPrefix;
    return p;
}

// The settings that a fuzz input's first four bytes choose: the parse string,
// the delimiter, the header lines, the opt-in readings and the block size.
inline Settings fuzzedSettings(const std::uint8_t* data) {
    static const char delimiters[] = {' ', ',', 't', '\t', ';', 'e', '.', '1', '-', '\r', '\n', '\0'};
    Settings settings;
    settings.parse = ParseStrings[data[0] % std::size(ParseStrings)];
    settings.delimiter = delimiters[data[1] % std::size(delimiters)];
    settings.headerLines = data[2] % 4;
    // The rest of the header byte: the opt-in readings.
    settings.wholeTokens = (data[2] & 0x04) != 0;
    settings.whitespace = (data[2] & 0x08) != 0;
    settings.skipEmptyLines = (data[2] & 0x10) != 0;
    settings.decimalComma = (data[2] & 0x20) != 0;
    settings.commentPrefix = (data[2] & 0x40) != 0 ? "#" : (data[2] & 0x80) != 0 ? "//" : "";
    settings.chunkSize = 1 + data[3] % 4;
    return settings;
}

// The same conversion through ascii2z9, read back from the grid.
inline Outcome libraryReading(const Settings& settings) {
    Outcome out;
    Tessel::Grid grid;
    Pallion::Parameter p = libraryParameter(settings);
    p.Progress = new RecordingProgress(out.reports, settings.stopAtReport);
    p.OnFragment = [&](const Pallion::ChunkPtr& chunk, const std::string& field, const std::string& file) {
        out.hookCalls.push_back(hookCall(field, file, chunk->elementCount(), p.Tokens));
    };
    record(out, p, [&] { return Pallion::ascii2z9(grid, p); });
    for (const std::string& name : distinctFields(p)) {
        const Tessel::FieldPtr field = grid.field(name);
        if (field.isNull()) continue;
        for (const Tessel::Field::Fragment& fragment : field->fragments())
            for (const Tessel::MemBase::Array& array : fragment.arrays)
                out.fragments.push_back({name, fragment.id->name,
                                         std::string(static_cast<const char*>(array->rawData()), array->byteSize())});
    }
    return out;
}

}  // namespace reference
