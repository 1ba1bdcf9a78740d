#include "pallion/tools/TableOptions.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "pallion/tools/CompressedSource.hpp"
#include "pallion/tools/Sniff.hpp"

namespace Pallion::Tools {

namespace {

constexpr std::size_t SampleWindows = 16;
constexpr std::size_t WindowBytes = std::size_t{64} * 1024;

// The median length (line end included) of the lines sampled in windows
// spread evenly across a file of `size` bytes; a line longer than a window
// counts as one window.  0 when nothing could be read.
std::uint64_t medianLineLength(const std::string& name, std::uint64_t size) {
    const SourcePtr source = openFileSource(name, SourceOpening{true, {}});
    if (!source->isOpen() || size == 0) return 0;
    std::vector<std::uint64_t> lengths;
    std::string window(WindowBytes, '\0');
    const std::size_t windows = size <= WindowBytes * SampleWindows ? 1 : SampleWindows;
    for (std::size_t w = 0; w < windows; ++w) {
        const std::uint64_t offset = size / windows * w;
        std::size_t got = 0;
        if (source->seek(offset))
            for (std::int64_t n = 1; n > 0 && got < window.size(); got += static_cast<std::size_t>(n))
                if ((n = source->read(window.data() + got, window.size() - got)) < 0) n = 0;
        // A window that starts inside a line begins to count at its next line.
        std::size_t start = 0;
        if (offset > 0) {
            const std::size_t cut = window.find('\n');
            if (cut >= got) {
                lengths.push_back(WindowBytes);
                continue;
            }
            start = cut + 1;
        }
        bool whole = false;
        for (std::size_t end; start < got; start = end + 1) {
            end = window.find('\n', start);
            if (end >= got) {
                // The file's last line without a line end counts; a line cut by the window does not.
                if (offset + got == size) lengths.push_back(got - start + 1);
                break;
            }
            lengths.push_back(end - start + 1);
            whole = true;
        }
        if (!whole && lengths.empty()) lengths.push_back(WindowBytes);
    }
    if (lengths.empty()) return 0;
    std::nth_element(lengths.begin(), lengths.begin() + static_cast<std::ptrdiff_t>(lengths.size() / 2), lengths.end());
    return lengths[lengths.size() / 2];
}

// The share of the files' `rows` that the options' byte range covers, by its
// bytes: a range of a quarter of the bytes is judged to hold a quarter of the
// rows, so that its block is not the whole file's.
std::uint64_t rowsInRange(const TableOptions& options, std::uint64_t rows) {
    if (options.rangeBegin == 0 && options.rangeEnd == WholeFileEnd) return rows;
    std::uint64_t total = 0;
    std::uint64_t covered = 0;
    for (const std::string& name : options.files) {
        std::error_code error;
        const std::uint64_t size = std::filesystem::file_size(name, error);
        if (error) continue;
        total += size;
        covered += std::min(size, options.rangeEnd) - std::min(size, options.rangeBegin);
    }
    if (total == 0) return rows;
    return static_cast<std::uint64_t>(static_cast<long double>(rows) * covered / total) + 1;
}

}  // namespace

std::optional<char> delimiterFromName(const std::string& name) {
    if (name == "tab" || name == "t" || name == "\\t" || name == "\t") return '\t';
    if (name == "comma") return ',';
    if (name == "semicolon") return ';';
    if (name == "space") return ' ';
    if (name == "pipe") return '|';
    if (name == "whitespace") return WhitespaceDelimiter;
    if (name.size() == 1 && name[0] != WhitespaceDelimiter) return name[0];
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
        case WhitespaceDelimiter:
            return "whitespace";
        default:
            return std::string("'") + delimiter + "'";
    }
}

std::string libraryPath(const std::string& name) { return name == "-" ? "/dev/stdin" : name; }

bool isRegularFile(const std::string& name) {
    std::error_code error;
    return name != "-" && std::filesystem::is_regular_file(name, error);
}

bool isStream(const std::string& name) {
    std::error_code error;
    const auto type = std::filesystem::status(name, error).type();
    return type == std::filesystem::file_type::fifo || type == std::filesystem::file_type::character ||
           type == std::filesystem::file_type::block || type == std::filesystem::file_type::socket;
}

std::optional<std::uint64_t> judgedRows(const std::vector<std::string>& files) {
    std::uint64_t rows = 0;
    for (const std::string& name : files) {
        // A compressed file's size says nothing of its rows.
        if (!isRegularFile(name) || compressionOf(name) != Compression::None) return std::nullopt;
        std::error_code error;
        const std::uint64_t size = std::filesystem::file_size(name, error);
        if (error) continue;
        if (const std::uint64_t length = medianLineLength(name, size)) rows += (size + length - 1) / length;
    }
    return rows;
}

std::uint64_t linesBeforeRange(const std::string& file, std::uint64_t rangeBegin) {
    if (rangeBegin == 0) return 0;
    const SourcePtr source = openFileSource(file, SourceOpening{true, {}});
    if (!source->isOpen()) return 0;
    std::uint64_t bytes = rangeBegin - 1;
    std::string buffer(std::size_t{1} << 20, '\0');
    std::uint64_t feeds = 0;
    while (bytes > 0) {
        const std::int64_t got =
            source->read(buffer.data(), static_cast<std::size_t>(std::min<std::uint64_t>(bytes, buffer.size())));
        if (got == Source::Interrupted) continue;
        if (got <= 0) break;
        feeds += static_cast<std::uint64_t>(std::count(buffer.data(), buffer.data() + got, '\n'));
        bytes -= static_cast<std::uint64_t>(got);
    }
    return feeds + 1;
}

std::uint32_t blockSizeFor(std::uint64_t rows) {
    const std::uint64_t largest = DefaultChunkSize;
    return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(rows + rows / 4 + 16, 1, largest));
}

void fillParameter(Parameter& parameter, const TableOptions& options, const Resolved& resolved,
                   std::optional<std::uint64_t> judgedRows) {
    Ravelin::StringListPtr files(new Ravelin::StringList);
    for (const std::string& name : options.files) files->push_back(libraryPath(name));
    parameter.Files = files;
    parameter.HeaderLines = resolved.headerLines;
    parameter.Delimiter = resolved.delimiter == WhitespaceDelimiter ? ' ' : resolved.delimiter;
    parameter.Whitespace = resolved.delimiter == WhitespaceDelimiter;
    parameter.CommentPrefix = resolved.commentPrefix;
    parameter.SkipEmptyLines = resolved.skipEmptyLines;
    parameter.DecimalComma = resolved.decimalComma;
    parameter.WholeTokens = resolved.wholeTokens;
    parameter.Parse = resolved.parse;
    parameter.EPSG = options.epsg;
    parameter.OpenSource = openTableSource;
    if (options.lineSizeLimit) parameter.LineSizeLimit = *options.lineSizeLimit;
    parameter.RangeBegin = options.rangeBegin;
    parameter.RangeEnd = options.rangeEnd;
    if (judgedRows) judgedRows = rowsInRange(options, *judgedRows);
    parameter.ChunkSize = options.block ? *options.block : judgedRows ? blockSizeFor(*judgedRows) : DefaultChunkSize;
}

}  // namespace Pallion::Tools
