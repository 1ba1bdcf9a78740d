#include "pallion/convert/detail/Parse.hpp"

#include <cstring>
#include <limits>
#include <stdexcept>

#include "pallion/array/ElementTraits.hpp"
#include "pallion/convert/detail/ColumnTypes.hpp"
#include "pallion/convert/detail/Messages.hpp"

namespace Pallion {

std::size_t split(const char* text, std::size_t length, std::vector<std::string>& out, char delimiter,
                  std::size_t atMost) {
    if (length == 0) return 0;
    if (const void* nul = std::memchr(text, '\0', length)) length = static_cast<const char*>(nul) - text;
    const char* end = text + length;
    const char* start = text;
    std::size_t appended = 0;
    while (start < end && appended < atMost) {
        const char* cut =
            static_cast<const char*>(std::memchr(start, delimiter, static_cast<std::size_t>(end - start)));
        ++appended;
        if (cut == nullptr) {
            out.emplace_back(start, end);
            break;
        }
        out.emplace_back(start, cut);
        start = cut + 1;
    }
    return appended;
}

std::size_t splitBlanks(const char* text, std::size_t length, std::vector<std::string>& out, std::size_t atMost) {
    if (const void* nul = std::memchr(text, '\0', length)) length = static_cast<const char*>(nul) - text;
    const auto blank = [](char c) { return c == ' ' || c == '\t'; };
    const char* p = text;
    const char* const end = text + length;
    std::size_t appended = 0;
    for (; appended < atMost; ++appended) {
        while (p != end && blank(*p)) ++p;
        if (p == end) break;
        const char* start = p;
        while (p != end && !blank(*p)) ++p;
        out.emplace_back(start, p);
    }
    return appended;
}

void split(const char* text, std::size_t length, std::vector<std::string>& out, char delimiter) {
    split(text, length, out, delimiter, static_cast<std::size_t>(-1));
}

namespace {
std::vector<std::string> splitText(const std::string& text, char delimiter) {
    std::vector<std::string> pieces;
    split(text.data(), text.size(), pieces, delimiter);
    return pieces;
}

// Whether std::stoi reads `piece` as a column number from 0 up: it has digits,
// they fit, and no minus sign stands before them.
bool isColumnNumber(const std::string& piece) {
    try {
        const long long value = std::stoll(piece);
        return value >= 0 && value <= std::numeric_limits<int>::max();
    } catch (const std::logic_error&) {  // invalid_argument and out_of_range
        return false;
    }
}

// The parser's walk.  `strict` has a column that is no column number reported
// as a text; otherwise it is read as std::stoi reads it.
std::string walkEntries(Parameter& parameter, bool strict) {
    for (const WrittenEntry& written : writtenEntries(parameter.Parse)) {
        const std::string& entry = written.Text;
        const std::vector<std::string>& items = written.Items;
        if (items.size() != 3) return std::string(messages::convert::ParseStringWrong) + parameter.Parse;

        std::vector<std::uint32_t> columns;
        for (const std::string& piece : written.Columns) {
            if (strict && !isColumnNumber(piece))
                return std::string(messages::convert::ColumnNotANumber) + piece +
                       std::string(messages::convert::ColumnNotANumberEntry) + entry +
                       std::string(messages::convert::ColumnNotANumberParse) + parameter.Parse;
            const auto column = static_cast<std::uint32_t>(std::stoi(piece));
            columns.push_back(column);
            if (column > parameter.HighestColumnIndex) parameter.HighestColumnIndex = column;
        }
        if (columns.size() != 1 && columns.size() != 3)
            return std::string(messages::convert::ColumnNumberWrong) + items[2];

        const auto& table = ColumnTypes();
        const auto type = table.find(items[1]);
        if (type == table.end()) return std::string(messages::convert::TypeNotSupported) + items[1];
        // Point, vector and colour need their three columns; a single column would leave
        // two components without a source, so such an entry is refused like a wrong count.
        if (columns.size() == 1 && type->second.components == 3)
            return std::string(messages::convert::ColumnNumberWrong) + items[2];

        parameter.Container.push_back(ContainerEntry{std::move(columns), items[0], type->second});
    }
    return {};
}

}  // namespace

std::vector<WrittenEntry> writtenEntries(const std::string& parse) {
    std::vector<WrittenEntry> entries;
    for (std::string& entry : splitText(parse, ',')) {
        WrittenEntry written{std::move(entry), {}, {}};
        written.Items = splitText(written.Text, ':');
        if (written.Items.size() == 3) written.Columns = splitText(written.Items[2], '+');
        entries.push_back(std::move(written));
    }
    return entries;
}

std::string parseUserInputToContainer(Parameter& parameter) { return walkEntries(parameter, false); }

std::string parseEntries(const std::string& parse, ParsedEntries& parsed) {
    Parameter scratch;
    scratch.Parse = parse;
    std::string failure = walkEntries(scratch, true);
    parsed.Entries = std::move(scratch.Container);
    parsed.HighestColumn = scratch.HighestColumnIndex;
    return failure;
}

std::string checkParseString(const std::string& parse) {
    ParsedEntries ignored;
    return parseEntries(parse, ignored);
}

std::size_t tokensOf(std::string_view line, const Parameter& parameter, std::vector<std::string>& out,
                     std::size_t atMost) {
    if (parameter.Whitespace) return splitBlanks(line.data(), line.size(), out, atMost);
    const char delimiter = parameter.Delimiter == 't' ? '\t' : parameter.Delimiter;
    return split(line.data(), line.size(), out, delimiter, atMost);
}

}  // namespace Pallion
