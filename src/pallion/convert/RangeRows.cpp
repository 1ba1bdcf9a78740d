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
#include "pallion/detail/Platform.hpp"
#include "pallion/memory/Chunk.hpp"
#include "tessel/Grid.hpp"

namespace Pallion {

RangeRows countRows(const Parameter& parameter, const std::string& file) {
    RangeRows counted;
    LineReader reader(parameter.OpenSource, file, parameter.LineSizeLimit, LineReader::DefaultBlockSize, {});
    if (!reader.isOpen()) return counted;
    reader.stopAt(parameter.RangeEnd);
    if (parameter.RangeBegin > 0)
        reader.startAt(parameter.RangeBegin);
    else
        reader.skipLines(parameter.HeaderLines);
    const std::uint64_t header = reader.linesTaken();
    if (!skipRulesOn(parameter)) {
        counted.Rows = reader.countLines();
        counted.Lines = header + counted.Rows;
        return counted;
    }
    // Each line as the conversion looks at it: cut at a NUL, its CR taken off.
    const char* line;
    const char* end;
    while (reader.nextLine(line, end)) {
        if (reader.sawNul())
            if (const void* nul = std::memchr(line, '\0', static_cast<std::size_t>(end - line)))
                end = static_cast<const char*>(nul);
        if (end != line && end[-1] == '\r') --end;
        if (!isSkippedLine(parameter, line, end)) ++counted.Rows;
    }
    counted.Lines = reader.linesTaken();
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
