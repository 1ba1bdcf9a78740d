#include "convert/Ascii2Z9.hpp"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <limits>

#include "convert/Messages.hpp"
#include "convert/Parse.hpp"
#include "convert/TokenConversion.hpp"
#include "outside/notes/GridNotes.hpp"

namespace Pallion {

namespace {

constexpr std::streamsize LargestStreamSize = std::numeric_limits<std::streamsize>::max();
constexpr std::uint64_t UnknownEstimate = std::numeric_limits<std::uint64_t>::max();

void skipHeader(std::istream& stream, std::uint32_t lines) {
    for (std::uint32_t i = 0; i < lines; ++i) stream.ignore(LargestStreamSize, '\n');
}

// How many lines the file is taken to have: its size over the length of its
// first line after the header.  Serves the progress report alone.
std::uint64_t estimateLines(const std::string& name, std::uint32_t headerLines) {
    std::FILE* file = std::fopen(name.c_str(), "rb");
    if (file == nullptr) return UnknownEstimate;
    std::fseek(file, 0, SEEK_END);
    const long size = std::ftell(file);
    std::fclose(file);

    std::ifstream second(name, std::ios_base::in);
    if (!second.is_open()) return UnknownEstimate;
    skipHeader(second, headerLines);
    std::string first;
    std::getline(second, first);
    const std::uint64_t length = first.size();
    // No line, or an empty one, after the header: nothing to divide by, so
    // the size of the table is unknown.
    if (length == 0 || size < 0) return UnknownEstimate;
    const auto bytes = static_cast<std::uint64_t>(size);
    return bytes < length ? 1 : bytes / length;
}

}  // namespace

template <class T>
void Ascii2Z9::openColumns(TypedColumns<T>& holder) {
    for (const ContainerEntry& entry : parameter.Container) {
        if (!(entry.TypeId == holder.TypeId)) continue;
        Tessel::FieldPtr field = grid[entry.FieldName];
        ColumnContainer<T> column{entry.FieldName, entry.Columns, field, {}, nullptr};
        column.renew(parameter.ChunkSize);
        holder.Entries.push_back(std::move(column));
    }
}

void Ascii2Z9::storeLine() {
    const std::vector<std::string>& tokens = parameter.Tokens;
    const std::uint64_t row = parameter.BlockFill;
    forEachHolder([&](auto& holder) {
        for (auto& column : holder.Entries) storeElement(column.rows[row], tokens, column.Columns);
    });
    ++parameter.BlockFill;
    ++parameter.LineCount;
    if (parameter.BlockFill < parameter.ChunkSize) return;
    flushBlock();
    ++parameter.FragmentCount;
    parameter.BlockFill = 0;
}

void Ascii2Z9::flushBlock() {
    forEachHolder([&](auto& holder) {
        for (auto& column : holder.Entries) {
            column.flushColumn(parameter.FragmentCount, parameter.CurrentFile, parameter.OnFragment);
            column.renew(column.Chunk->size());
        }
    });
}

void Ascii2Z9::flushRemainder() {
    forEachHolder([&](auto& holder) {
        for (auto& column : holder.Entries) {
            column.Chunk->resize(parameter.BlockFill);
            column.flushColumn(parameter.FragmentCount, parameter.CurrentFile, parameter.OnFragment);
        }
    });
}

std::string Ascii2Z9::run() {
    if (parameter.Files.isNull() || parameter.Files->empty()) return std::string(Messages::NoInputFiles);
    if (parameter.Container.empty()) return std::string(Messages::NoContainer);
    // A block needs at least one row: with 0 no chunk could hold the first row.
    if (parameter.ChunkSize == 0) return std::string(Messages::ChunkSizeZero);

    forEachHolder([&](auto& holder) { openColumns(holder); });

    for (const std::string& name : *parameter.Files) {
        std::string failure = readFile(name);
        if (!failure.empty()) return failure;
    }
    if (parameter.BlockFill < parameter.ChunkSize) flushRemainder();
    return {};
}

std::string Ascii2Z9::readFile(const std::string& name) {
    // A directory opens like a file on this platform but has no lines: it is
    // refused like a file that cannot be opened, rather than read as an empty table.
    std::error_code ignored;
    if (std::filesystem::is_directory(name, ignored)) return std::string(Messages::CannotOpenFile) + name;
    std::ifstream stream(name, std::ios_base::in);
    if (!stream.is_open()) return std::string(Messages::CannotOpenFile) + name;
    skipHeader(stream, parameter.HeaderLines);

    const std::uint64_t estimate = estimateLines(name, parameter.HeaderLines);
    const std::uint64_t step = estimate > 99 ? estimate / 100 : 1;
    parameter.CurrentFile = name;

    Ravelin::LoaderProgress* progress = parameter.Progress.get();
    std::vector<std::string>& tokens = parameter.Tokens;
    std::string line;
    while (std::getline(stream, line, '\n')) {
        if (parameter.LineCount % step == 0 && progress != nullptr) {
            const std::uint64_t value = std::min(estimate, parameter.LineCount);
            if (!progress->report(std::string(Messages::ProgressReadLine), static_cast<std::uint32_t>(value),
                                  static_cast<std::uint32_t>(estimate)))
                return std::string(Messages::UserInterruption);
        }
        split(line.data(), line.size(), tokens, parameter.Delimiter);
        if (parameter.HighestColumnIndex >= tokens.size())
            return std::string(Messages::ColumnIndexOutOfRange) + std::to_string(parameter.HighestColumnIndex) +
                   std::string(Messages::TokensInLine) + std::to_string(tokens.size());
        storeLine();
        tokens.clear();
    }
    return {};
}

std::string ascii2z9(Tessel::Grid& grid, Parameter& parameter) {
    if (parameter.Delimiter == 't') parameter.Delimiter = '\t';

    std::string result = parseUserInputToContainer(parameter);
    if (!result.empty()) return result;

    Ascii2Z9 converter(parameter, grid);
    grid.makeCartesianRepresentation(3, std::string(), 0);
    result = converter.run();

    if (parameter.EPSG > 0) {
        Ravelin::StrongPtr<Ravelin::Chunk<int>, Ravelin::ChunkBase> code(new Ravelin::Chunk<int>(1));
        (*code)[0] = parameter.EPSG;
        grid.attributes().setAttribute(std::string(Messages::EPSGAttribute), ChunkPtr(code));
        grid.setTimeStamp(Ravelin::Ageable::tick());
    }

    const Tessel::GridPtr noGrid;
    const int zero = 0, one = 1;
    GridNotes::addInfoToGrid(parameter.speak(), grid, std::string(Messages::TextConverterName), noGrid, zero, one);
    return result;
}

}  // namespace Pallion
