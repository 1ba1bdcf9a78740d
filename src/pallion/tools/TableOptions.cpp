#include "pallion/tools/TableOptions.hpp"

#include <algorithm>

#include "pallion/convert/LineReader.hpp"

namespace Pallion::Tools {

std::optional<char> delimiterFromName(const std::string& name) {
    if (name == "tab" || name == "t" || name == "\\t" || name == "\t") return '\t';
    if (name == "comma") return ',';
    if (name == "semicolon") return ';';
    if (name == "space") return ' ';
    if (name.size() == 1) return name[0];
    return std::nullopt;
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

std::uint64_t judgedRows(const std::vector<std::string>& files, std::uint32_t headerLines) {
    std::uint64_t rows = 0;
    for (const std::string& name : files) {
        const std::uint64_t lines = estimateLines(name, headerLines);
        if (lines != UnknownLineCount) rows += lines;
    }
    return rows;
}

std::uint32_t blockSizeFor(std::uint64_t rows) {
    const std::uint64_t largest = Parameter().ChunkSize;
    return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(rows + rows / 4 + 16, 1, largest));
}

void fillParameter(Parameter& parameter, const TableOptions& options, std::uint64_t judgedRows) {
    Ravelin::StringListPtr files(new Ravelin::StringList);
    files->assign(options.files.begin(), options.files.end());
    parameter.Files = files;
    parameter.HeaderLines = options.headerLines;
    parameter.Delimiter = options.delimiter;
    parameter.Parse = options.parse;
    parameter.EPSG = options.epsg;
    parameter.ChunkSize = options.block ? *options.block : blockSizeFor(judgedRows);
}

}  // namespace Pallion::Tools
