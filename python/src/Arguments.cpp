#include "Arguments.hpp"

#include <algorithm>
#include <limits>

#include "ModuleMessages.hpp"
#include "pallion/tools/CompressedSource.hpp"
#include "pallion/tools/Messages.hpp"

namespace py = pybind11;

namespace Pallion::Python {

namespace {

namespace m = messages;
using Tools::messages::fill;

std::string typeName(const py::handle& value) { return py::str(py::type::of(value).attr("__name__")); }

std::string textOf(const py::handle& value, const char* name) {
    if (!py::isinstance<py::str>(value)) throw py::type_error(fill(m::NotAText, name, typeName(value).c_str()));
    return value.cast<std::string>();
}

long long wholeNumber(const py::handle& value, const char* name, long long low, long long high) {
    if (!py::isinstance<py::int_>(value) || py::isinstance<py::bool_>(value))
        throw py::type_error(fill(m::NotAWholeNumber, name, typeName(value).c_str()));
    int overflow = 0;
    const long long number = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
    if (overflow != 0 || number < low || number > high)
        throw py::value_error(fill(m::OutOfRange, name,
                                   overflow > 0   ? high + 1
                                   : overflow < 0 ? low - 1
                                                  : number,
                                   low, high));
    return number;
}

bool isWord(const py::handle& value, const char* word) {
    return py::isinstance<py::str>(value) && value.cast<std::string>() == word;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

}  // namespace

std::vector<std::string> pathsOf(const py::handle& files) {
    std::vector<std::string> paths;
    for (const py::handle item : files) {
        if (!py::isinstance<py::bytes>(item)) throw py::type_error(fill(m::NotAPath, typeName(item).c_str()));
        paths.push_back(item.cast<std::string>());
    }
    if (paths.empty()) throw py::value_error(std::string(m::NoFiles));
    return paths;
}

unsigned threadsOf(const py::handle& threads) {
    return threads.is_none() ? 0U : static_cast<unsigned>(wholeNumber(threads, "threads", 0, 1024));
}

TableCall tableCall(const py::handle& files, const py::handle& parse, const py::handle& delimiter,
                    const py::handle& header, const py::handle& skiprows, const py::handle& block,
                    const py::handle& epsg, const py::handle& comments, const py::handle& names,
                    const py::handle& usecols, bool strict) {
    constexpr long long most = std::numeric_limits<std::uint32_t>::max();
    TableCall call;
    Tools::TableOptions& options = call.options;
    call.strict = strict;
    options.files = pathsOf(files);
    options.parse = textOf(parse, "parse");
    if (!isWord(delimiter, "auto")) {
        const std::string name = textOf(delimiter, "delimiter");
        call.whitespace = name == "whitespace";
        options.delimiter = call.whitespace ? std::optional<char>(' ') : Tools::delimiterFromName(name);
        if (!options.delimiter) throw py::value_error(fill(m::UnknownDelimiter, name.c_str()));
    }
    const auto skipped = skiprows.is_none() ? 0 : wholeNumber(skiprows, "skiprows", 0, most);
    if (!names.is_none())
        for (const py::handle name : names) call.names.push_back(textOf(name, "names"));
    if (header.is_none()) {
        options.headerLines = static_cast<std::uint32_t>(skipped);
    } else if (isWord(header, "auto") || isWord(header, "infer")) {
        // Lines skipped, or names given, leave nothing to guess the header from.
        if (skipped > 0 || !call.names.empty()) options.headerLines = static_cast<std::uint32_t>(skipped);
    } else if (py::isinstance<py::int_>(header) && !py::isinstance<py::bool_>(header)) {
        options.headerLines = static_cast<std::uint32_t>(wholeNumber(header, "header", 0, most - skipped) + skipped);
    } else {
        throw py::type_error(fill(m::HeaderWord, typeName(header).c_str()));
    }
    if (!block.is_none())
        options.block = static_cast<std::uint32_t>(wholeNumber(block, "block", 1, Pallion::DefaultChunkSize));
    if (!epsg.is_none())
        options.epsg =
            static_cast<std::int32_t>(wholeNumber(epsg, "epsg", 1, std::numeric_limits<std::int32_t>::max()));
    if (!call.names.empty() && options.parse != Tools::AutoParse) {
        // Columns named in the parse string are found among the given names now.
        std::string failure;
        options.parse = Tools::parseWithNumbers(options.parse, call.names, failure);
        if (!failure.empty()) throw py::value_error(failure);
    }
    call.autoParse = options.parse == Tools::AutoParse;
    // Where names or picked columns make the parse string, the header's names
    // are not asked for: lines skipped ahead of the data are not judged as a header.
    if ((!call.names.empty() || !usecols.is_none()) && call.autoParse) options.parse = "column0:double:0";
    if (!comments.is_none()) call.comments = textOf(comments, "comments");
    if (!usecols.is_none())
        for (const py::handle column : usecols) {
            if (py::isinstance<py::str>(column))
                call.usecols.emplace_back(column.cast<std::string>());
            else
                call.usecols.emplace_back(static_cast<std::uint32_t>(wholeNumber(column, "usecols", 0, most - 1)));
        }
    return call;
}

void applyNames(const TableCall& call, Tools::Resolved& resolved) {
    if (!call.names.empty()) {
        resolved.headerNames = call.names;
        resolved.parse = call.autoParse ? Tools::parseFromNames(call.names) : call.options.parse;
    }
    if (call.usecols.empty()) return;
    const std::vector<std::string>& names = resolved.headerNames;
    std::string parse;
    for (const auto& column : call.usecols) {
        std::uint32_t number = 0;
        if (const auto* name = std::get_if<std::string>(&column)) {
            if (names.empty()) {
                resolved.failure = fill(m::ColumnWithoutNames, name->c_str());
                return;
            }
            const auto found = std::find(names.begin(), names.end(), *name);
            if (found == names.end()) {
                resolved.failure = fill(m::UnknownColumn, name->c_str(), joined(names).c_str());
                return;
            }
            number = static_cast<std::uint32_t>(found - names.begin());
        } else {
            number = std::get<std::uint32_t>(column);
        }
        std::string field = number < names.size() ? names[number] : "column" + std::to_string(number);
        // A field name holds none of the parse string's own separators.
        std::replace_if(
            field.begin(), field.end(), [](char c) { return c == ',' || c == ':' || c == '+'; }, '_');
        parse += (parse.empty() ? "" : ",") + field + ":double:" + std::to_string(number);
    }
    resolved.parse = parse;
}

bool readableInPart(const std::string& file) {
    return Tools::isRegularFile(file) && Tools::compressionOf(file) == Tools::Compression::None;
}

void applyByteRange(TableCall& call, const py::handle& byteRange) {
    if (byteRange.is_none()) return;
    if (!py::isinstance<py::tuple>(byteRange) || py::len(byteRange) != 2)
        throw py::type_error(fill(m::ByteRangePair, typeName(byteRange).c_str()));
    const py::tuple pair = py::reinterpret_borrow<py::tuple>(byteRange);
    constexpr long long most = std::numeric_limits<long long>::max();
    const auto begin = wholeNumber(pair[0], "byte_range", 0, most);
    const auto end = pair[1].is_none() ? most : wholeNumber(pair[1], "byte_range", begin, most);
    for (const std::string& file : call.options.files)
        if (!readableInPart(file)) throw py::value_error(fill(m::ByteRangeFile, file.c_str()));
    call.options.rangeBegin = static_cast<std::uint64_t>(begin);
    call.options.rangeEnd = pair[1].is_none() ? WholeFileEnd : static_cast<std::uint64_t>(end);
}

void applyReading(const TableCall& call, Parameter& parameter) {
    parameter.WholeTokens = call.strict;
    if (call.whitespace) parameter.Whitespace = true;
    if (!call.comments.empty()) parameter.CommentPrefix = call.comments;
    if (call.whitespace || !call.comments.empty()) parameter.SkipEmptyLines = true;
}

}  // namespace Pallion::Python
