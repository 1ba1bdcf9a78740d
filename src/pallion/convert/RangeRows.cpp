// What a host needs to convert one file in ranges side by side and put the
// ranges together into the grid of one sequential conversion: the rows of a
// range counted by the conversion's own line rules, the blocks' chunks, and
// the blocks stored as a conversion's flush stores them.
#include <algorithm>
#include <cstring>

#include "pallion/Extensions.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/convert/detail/Fragments.hpp"
#include "pallion/convert/detail/LineReader.hpp"
#include "pallion/convert/detail/LineRules.hpp"
#include "pallion/convert/detail/Messages.hpp"
#include "pallion/detail/Platform.hpp"
#include "pallion/memory/Chunk.hpp"
#include "tessel/Grid.hpp"

namespace Pallion {

namespace {

// The count reads its bytes once and keeps none: a block that stays in the
// core's cache makes the copy out of the page cache cheaper than the
// conversion's larger one (a fifth less time for the whole count).
constexpr std::size_t CountBlockSize = std::size_t{64} << 10;

// Positions `reader` at the first line of `parameter`'s range: after the
// header at byte 0, after the first line end at or after the byte before it
// elsewhere.
void enterRange(LineReader& reader, const Parameter& parameter) {
    reader.stopAt(parameter.RangeEnd);
    if (parameter.RangeBegin > 0)
        reader.startAt(parameter.RangeBegin);
    else
        reader.skipLines(parameter.HeaderLines);
}

// The rows among the lines left in `reader`, each looked at as the
// conversion looks at it: cut at a NUL, its CR taken off, then skipped or not.
std::uint64_t rowsAmongLines(const Parameter& parameter, LineReader& reader, const std::function<bool()>& keepGoing) {
    std::uint64_t rows = 0;
    const char* line;
    const char* end;
    while (reader.nextLine(line, end)) {
        if (reader.linesTaken() % RangeReportRows == 0 && !keepGoing()) break;
        if (reader.sawNul())
            if (const void* nul = std::memchr(line, '\0', static_cast<std::size_t>(end - line)))
                end = static_cast<const char*>(nul);
        if (end != line && end[-1] == '\r') --end;
        if (!isSkippedLine(parameter, line, end)) ++rows;
    }
    return rows;
}

}  // namespace

RangeRows countRows(const Parameter& parameter, const std::string& file) {
    RangeRows counted;
    LineReader reader(parameter.OpenSource, file, parameter.LineSizeLimit, CountBlockSize, {});
    if (!reader.isOpen()) return counted;
    enterRange(reader, parameter);
    const std::uint64_t header = reader.linesTaken();
    // Whether to go on, asked of Progress now and then, as a conversion asks it.
    Ravelin::LoaderProgress* const progress = parameter.Progress.get();
    const std::function<bool()> keepGoing = [progress] {
        return progress == nullptr ||
               progress->report(std::string(messages::convert::ProgressReadLine), 0, ~std::uint32_t{0});
    };
    if (!skipRulesOn(parameter)) {
        counted.Rows = reader.countLines({}, nullptr, keepGoing);
        counted.Lines = header + counted.Rows;
        return counted;
    }
    // A line that a rule may skip begins with a blank, a CR, a NUL, a line end
    // or the comment's first byte; where no line does, every line is a row,
    // and a count of line feeds tells them.  Otherwise they are looked at one
    // by one.
    std::string marks = " \t\r\n";
    marks += '\0';
    if (!parameter.CommentPrefix.empty()) marks += parameter.CommentPrefix.front();
    std::uint64_t marked = 0;
    const std::uint64_t lines = reader.countLines(marks, &marked, keepGoing);
    counted.Lines = header + lines;
    counted.Rows = lines;
    if (marked == 0) return counted;
    LineReader again(parameter.OpenSource, file, parameter.LineSizeLimit, CountBlockSize, {});
    if (!again.isOpen()) return counted;
    enterRange(again, parameter);
    counted.Rows = rowsAmongLines(parameter, again, keepGoing);
    counted.Lines = again.linesTaken();
    return counted;
}

ChunkPtr makeBlockChunk(const Tessel::TesselTypeIndex& type, std::size_t count, std::size_t capacity) {
    ChunkPtr made;
    capacity = std::max(capacity, count);
    Tessel::forEachElementType([&]<class T>() {
        if (!(type == Tessel::typeIndexOf<T>())) return;
        // Reserved first, so that the pages can be asked to be large before
        // they are touched; then zeroed to the block's rows.
        Ravelin::StrongPtr<Ravelin::Chunk<T>, Ravelin::ChunkBase> chunk(new Ravelin::Chunk<T>(capacity, true));
        platform::adviseHugePages(chunk->data(), capacity * sizeof(T));
        chunk->resize(count);
        made = ChunkPtr(chunk);
    });
    return made;
}

void storeBlock(Tessel::Grid& grid, const Parameter& parameter, const std::string& file, std::uint64_t block) {
    const std::string name = fragmentName(file, block);
    // The order of a flush: the element types in their order, and within one
    // type the entries in the order of the parse string.
    Tessel::forEachElementType([&]<class T>() {
        for (std::size_t entry = 0; entry < parameter.Container.size(); ++entry) {
            const ContainerEntry& column = parameter.Container[entry];
            if (!(column.TypeId == Tessel::typeIndexOf<T>())) continue;
            const ChunkPtr chunk = parameter.BlockChunks(entry, block);
            const Ravelin::StrongPtr<Ravelin::Chunk<T>, Ravelin::ChunkBase> typed(
                dynamic_cast<Ravelin::Chunk<T>*>(chunk.get()));
            if (typed.isNull()) continue;
            const Tessel::FieldPtr owner = grid[column.FieldName];
            Tessel::Field& field = *owner;
            const Tessel::FragmentPtr fragment = field.makeFragmentID(name);
            if (parameter.OnFragment) parameter.OnFragment(chunk, column.FieldName, file);
            storeAsFragment(field, fragment, typed);
        }
    });
}

std::string blockName(const std::string& file, std::uint64_t number) { return fragmentName(file, number); }

}  // namespace Pallion
