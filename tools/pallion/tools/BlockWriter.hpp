// An output file written block by block as a conversion flushes its blocks,
// so that memory holds a block whatever the size of the table: PLY, HDF5 or
// LAS, on the output's temporary file (OutputFile).  What only the end knows
// is patched at the end: the PLY header's vertex count, the HDF5 datasets'
// lengths and their fragments and counts, the LAS header's counts and bounds.
// The whole-grid writers (writePly, writeHdf5, writeLas) are these writers fed
// with the grid's arrays, so there is one writer per format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

#include "pallion/array/ElementTraits.hpp"
#include "pallion/memory/Pointers.hpp"
#include "pallion/tools/Driver.hpp"
#include "pallion/tools/LasWriter.hpp"
#include "tessel/Grid.hpp"

namespace Pallion::Tools {

// The elements of one field inside a block: its name, its element type (one
// of the nine) and its elements, side by side.
struct ColumnSlice {
    const std::string* name = nullptr;
    const std::type_info* type = nullptr;
    const char* data = nullptr;
    std::uint64_t count = 0;
};

class BlockWriter : public Ravelin::ReferenceBase<BlockWriter> {
public:
    BlockWriter() = default;
    ~BlockWriter() override = default;
    BlockWriter(const BlockWriter&) = delete;
    BlockWriter& operator=(const BlockWriter&) = delete;

    // Writes one block, fields in the grid's order.  Gives the empty text, or
    // the failure naming the file; after a failure nothing more is written
    // and finish() commits nothing.  Fits BlockRoute::onBlock.
    std::string add(const FlushedBlock& block);
    // The same with the block's elements already found; `fragment` names the
    // block (the HDF5 "fragments" attribute).  Each slice's field has one
    // element type from its first slice on.
    virtual std::string add(const std::string& fragment, const std::vector<ColumnSlice>& slices) = 0;
    // Patches the counts and bounds, writes what the grid holds beside its
    // blocks (its attributes and notes, its coordinate system, fields that no
    // block had) and gives the file its name.  The failure is empty when the
    // file was written; notes tell what the file holds otherwise than the grid.
    virtual LasWritten finish(const Tessel::Grid& grid) = 0;
    // The rows the table is judged to hold, before the first block: a PLY
    // header is written with that count until the end, so that the true one
    // rarely takes other room (else the vertices move once, at the end).
    virtual void expectRows(std::uint64_t /*rows*/) {}

protected:
    // Tells the writer the fields of `grid`, without rows, where no block came
    // and nothing failed: for finish().
    void addFieldsOf(const Tessel::Grid& grid);
    // Keeps the first failure, after which nothing more is written, and gives it.
    std::string fail(std::string failure) {
        if (failure_.empty()) failure_ = std::move(failure);
        return failure_;
    }

    std::string failure_;
    bool started_ = false;  // the fields are known: a block, or addFieldsOf, came
};

using BlockWriterPtr = Ravelin::StrongPtr<BlockWriter, BlockWriter>;

// The writer for `file` by its extension (outputFormatOf), or null for an
// unknown extension or HDF5 in a build without it (writeGrid tells why).
// Nothing is made on disk before the first block or finish().
BlockWriterPtr openBlockWriter(const std::string& file, const LasOptions& las = {}, const Tessel::Grid* grid = nullptr);

// The same for one format (the HDF5 one is made in Hdf5Writer.cpp, the LAS one in LasWriter.cpp).
BlockWriterPtr openPlyWriter(const std::string& file);
BlockWriterPtr openHdf5Writer(const std::string& file);
BlockWriterPtr openLasWriter(const std::string& file, const LasOptions& options, const Tessel::Grid* grid = nullptr);

// One field of a grid as a writer takes it: its arrays, one after the other.
struct GridColumn {
    const Tessel::Field* field = nullptr;
    const std::type_info* type = nullptr;
    std::size_t elementBytes = 0;
    std::vector<std::pair<const char*, std::uint64_t>> arrays;  // data and element count
};

// The fields of `grid` whose arrays all hold one of the nine element types,
// in the grid's order; a field without arrays is left out.
std::vector<GridColumn> gridColumns(const Tessel::Grid& grid);

// The columns of `grid` for a writer of points, with its first point field's
// column and element count; or the failure where it has no point field, or where the
// fields' counts differ (`countsDiffer`, filled with the file's name and each
// field's count).
struct PointColumns {
    std::vector<GridColumn> columns;
    std::size_t point = 0;  // the index of the first point field's column
    std::uint64_t points = 0;
    std::string failure;
};
PointColumns pointColumns(const Tessel::Grid& grid, const std::string& file, std::string_view countsDiffer);

// Feeds `writer` the rows of `columns` (of equal element counts) in runs where
// no column changes its array, after a first call without rows that tells it
// the fields even when there are none; the first failure, or empty.
std::string feedRuns(BlockWriter& writer, const std::vector<GridColumn>& columns);

// Feeds `writer` the grid's fragments as the conversion flushed them: block k
// holds the k-th fragment of every field, under its name.  Nothing where the
// fields' fragments do not line up (other counts or names); else the first
// failure, or empty.
std::optional<std::string> feedBlocks(const Tessel::Grid& grid, BlockWriter& writer);

// The element type of a chunk's elements among the nine: calls
// f.template operator()<T>() and gives true, or gives false.
template <class F>
bool withChunkType(const std::type_info& type, F&& f) {
    bool found = false;
    Tessel::forEachElementType([&]<class T>() {
        if (!found && type == typeid(T)) {
            found = true;
            f.template operator()<T>();
        }
    });
    return found;
}

}  // namespace Pallion::Tools
