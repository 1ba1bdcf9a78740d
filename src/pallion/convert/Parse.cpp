#include "pallion/convert/Parse.hpp"

#include <cstring>

#include "pallion/array/ElementTraits.hpp"
#include "pallion/convert/ColumnTypes.hpp"
#include "pallion/convert/Messages.hpp"

namespace Pallion {

void split(const char* text, std::size_t length, std::vector<std::string>& out, char delimiter) {
    if (length == 0) return;
    if (const void* nul = std::memchr(text, '\0', length)) length = static_cast<const char*>(nul) - text;
    const char* end = text + length;
    const char* start = text;
    while (start < end) {
        const char* cut =
            static_cast<const char*>(std::memchr(start, delimiter, static_cast<std::size_t>(end - start)));
        if (cut == nullptr) {
            out.emplace_back(start, end);
            return;
        }
        out.emplace_back(start, cut);
        start = cut + 1;
    }
}

namespace {
std::vector<std::string> splitText(const std::string& text, char delimiter) {
    std::vector<std::string> pieces;
    split(text.data(), text.size(), pieces, delimiter);
    return pieces;
}

}  // namespace

std::string parseUserInputToContainer(Parameter& parameter) {
    for (const std::string& entry : splitText(parameter.Parse, ',')) {
        const std::vector<std::string> items = splitText(entry, ':');
        if (items.size() != 3) return std::string(messages::convert::ParseStringWrong) + parameter.Parse;

        std::vector<std::uint32_t> columns;
        for (const std::string& piece : splitText(items[2], '+')) {
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

}  // namespace Pallion
