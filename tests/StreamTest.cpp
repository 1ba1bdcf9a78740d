// Outputs written block by block: the same files as from the whole grid, LAS
// decimals that grow between blocks, a failure half-way, and the summary and
// the picture gathered from the blocks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <random>
#include <sstream>

#include "Summary.hpp"
#include "TestSupport.hpp"
#include "pallion/Pallion.hpp"
#include "pallion/memory/Chunk.hpp"
#include "pallion/tools/BlockWriter.hpp"
#include "pallion/tools/Writers.hpp"

namespace {

namespace fs = std::filesystem;
using Pallion::Tools::FlushedBlock;

std::string bytesOf(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The grid's blocks as the conversion flushed them, in file order: block k of
// each file holds the k-th fragment of every field.
std::vector<FlushedBlock> blocksOf(const Tessel::Grid& grid, const std::vector<std::string>& files) {
    std::vector<FlushedBlock> blocks;
    const auto& first = grid.fields()[0]->fragments();
    for (std::size_t k = 0; k < first.size(); ++k) {
        FlushedBlock block;
        const std::string& name = first[k].id->name;  // stem and number: "a3"
        for (const std::string& file : files) {
            const std::string stem = fs::path(file).stem().string();
            if (name.rfind(stem, 0) == 0) block.file = file, block.number = std::stoull(name.substr(stem.size()));
        }
        for (const auto& field : grid.fields())
            block.columns.emplace_back(field->fieldName(), field->fragments()[k].arrays[0]->chunkPointer());
        blocks.push_back(std::move(block));
    }
    return blocks;
}

// Streams `blocks` into `file`, `rows` expected; the failure of the first block refused, or of the end.
std::string stream(const std::vector<FlushedBlock>& blocks, const Tessel::Grid& grid, const std::string& file,
                   std::uint64_t rows = 0) {
    const Pallion::Tools::BlockWriterPtr writer = Pallion::Tools::openBlockWriter(file, {}, &grid);
    writer->expectRows(rows);
    for (const FlushedBlock& block : blocks)
        if (std::string failure = writer->add(block); !failure.empty()) return failure;
    return writer->finish(grid).failure;
}

struct Table {
    testsupport::TempDir dir;
    std::vector<std::string> files;
    Tessel::Grid grid;
};

// `rows` rows per file of x y z (of `decimals(row)` decimals), r g b,
// intensity, a float, a tvector, a classification, an int named X and a
// return number, in blocks of `block`.
void convert(Table& table, int rows, std::uint32_t block, int (*decimals)(int row)) {
    std::mt19937 random(28);
    for (const char* name : {"a.txt", "b.txt"}) {
        std::ostringstream text;
        text.precision(12);
        for (int i = 0; i < rows; ++i) {
            const int row = static_cast<int>(table.files.size()) * rows + i;
            const double p = std::pow(10.0, decimals(row));
            for (int c = 0; c < 3; ++c)
                text << std::fixed << std::setprecision(decimals(row))
                     << ((50.0 - row) * p + static_cast<double>(random() % 1000)) / p << ' ';
            text << std::defaultfloat << random() % 256 << ' ' << random() % 256 << ' ' << random() % 256 << ' '
                 << random() % 65536 << ' ' << (random() % 1000) / 8.0 << " 0.5 -0.25 1 " << i % 3 << ' '
                 << random() % 32 << ' ' << 1 + random() % 5 << '\n';
        }
        table.files.push_back(table.dir.write(name, text.str()));
    }
    Pallion::Parameter parameter = testsupport::tableParameter(
        {table.files[0], table.files[1]},
        "P:point:0+1+2,C:rgb:3+4+5,Intensity:uint16_t:6,F:float:7,N:tvector:8+9+10,Classification:uint8_t:11,"
        "X:int:12,ReturnNumber:uint8_t:13",
        block);
    ASSERT_EQ(Pallion::ascii2z9(table.grid, parameter), "");
}

TEST(Stream, SameFilesAsTheWholeGrid) {
    Table table;
    convert(table, 180, 7, [](int) { return 3; });
    const auto blocks = blocksOf(table.grid, table.files);
    ASSERT_EQ(blocks.size(), 2u * 26);
    for (const char* extension : {".ply", ".las"}) {
        const fs::path whole = table.dir.path() / (std::string("whole") + extension);
        const fs::path streamed = table.dir.path() / (std::string("streamed") + extension);
        ASSERT_EQ(Pallion::Tools::writeGrid(table.grid, whole.string()), "");
        // The row count judged too low, and too high: the PLY vertices move on, or back, at the end.
        for (const std::uint64_t judged : {0, 100000}) {
            ASSERT_EQ(stream(blocks, table.grid, streamed.string(), judged), "");
            EXPECT_EQ(bytesOf(whole), bytesOf(streamed)) << extension << ' ' << judged;
        }
        // The counts patched at the end: 360 vertices, or points in the LAS header.
        if (extension == std::string(".ply"))
            EXPECT_NE(bytesOf(streamed).find("element vertex 360\n"), std::string::npos);
        else
            EXPECT_EQ(bytesOf(streamed).substr(247, 8), std::string("\x68\x01\0\0\0\0\0\0", 8));
    }
    // The counts by return over every block.
    std::uint64_t expected[15] = {}, written[15] = {};
    for (const std::uint8_t r : testsupport::fieldValues<std::uint8_t>(table.grid, "ReturnNumber")) ++expected[r - 1];
    std::memcpy(written, bytesOf(table.dir.path() / "streamed.las").data() + 255, sizeof written);
    for (int r = 0; r < 15; ++r) EXPECT_EQ(written[r], expected[r]) << "return " << r + 1;
}

// A LAS record's coordinate as the text it was written from.
std::string coordinate(const std::string& las, std::uint64_t point, int axis, int decimals) {
    std::uint32_t offset = 0;
    std::uint16_t length = 0;
    double scale = 0, origin = 0;
    std::int32_t steps = 0;
    std::memcpy(&offset, &las[96], 4);
    std::memcpy(&length, &las[105], 2);
    std::memcpy(&scale, &las[131 + 8 * axis], 8);
    std::memcpy(&origin, &las[155 + 8 * axis], 8);
    std::memcpy(&steps, &las[offset + point * length + 4 * axis], 4);
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << steps * scale + origin;
    return text.str();
}

// Blocks of 1 decimal, then of 4, then of 7, their values ever lower: the
// records written before are rewritten for the finer scales, exactly, and
// the file is the one the whole grid gives.
TEST(Stream, LasDecimalsGrowBetweenBlocks) {
    Table table;
    convert(table, 40, 9, [](int row) { return row < 30 ? 1 : row < 60 ? 4 : 7; });
    const fs::path whole = table.dir.path() / "whole.las", streamed = table.dir.path() / "streamed.las";
    ASSERT_EQ(Pallion::Tools::writeLas(table.grid, whole.string()).failure, "");
    ASSERT_EQ(stream(blocksOf(table.grid, table.files), table.grid, streamed.string()), "");
    const std::string las = bytesOf(streamed);
    EXPECT_EQ(las, bytesOf(whole));
    double scale = 0;
    std::memcpy(&scale, &las[131], 8);
    EXPECT_EQ(scale, 1e-7);
    const auto points = testsupport::fieldValues<Tessel::Point>(table.grid, "P");
    for (std::uint64_t i = 0; i < points.size(); ++i)
        for (int a = 0; a < 3; ++a) {
            std::ostringstream text;
            text << std::fixed << std::setprecision(7) << points[i][a];
            ASSERT_EQ(coordinate(las, i, a, 7), text.str()) << "point " << i << " axis " << a;
        }
}

// A block that cannot be written stops the file: nothing under its name, no
// temporary file left.
TEST(Stream, FailureHalfWayLeavesNoFile) {
    Table table;
    convert(table, 30, 7, [](int) { return 2; });
    auto blocks = blocksOf(table.grid, table.files);
    // Block 3's classification in another element type than before.
    for (auto& [name, chunk] : blocks[3].columns)
        if (name == "Classification")
            chunk = new Ravelin::Chunk<std::uint16_t>(std::vector<std::uint16_t>(chunk->elementCount(), 300));
    for (const char* name : {"f.las", "f.ply", "f.h5"}) {
        const std::string file = (table.dir.path() / name).string();
        if (fs::path(file).extension() == ".h5" && !Pallion::Tools::canWriteHdf5()) continue;
        const std::string failure = stream(blocks, table.grid, file);
        EXPECT_EQ(failure.rfind("cannot write " + file + ": ", 0), 0u) << failure;
        EXPECT_FALSE(fs::exists(file));
    }
    for (const auto& entry : fs::directory_iterator(table.dir.path()))
        EXPECT_EQ(entry.path().extension(), ".txt") << entry.path();
}

// The summary, the JSON statistics and the picture gathered from the blocks
// are those of the whole grid.
TEST(Stream, SummaryFromTheBlocks) {
    Table table;
    convert(table, 50, 8, [](int) { return 2; });
    host::BlockDigest digest(true, 1000);  // the picture's points mostly in a temporary file
    for (const FlushedBlock& block : blocksOf(table.grid, table.files)) digest.add(block);
    EXPECT_EQ(host::textSummary(table.grid, digest), host::textSummary(table.grid));
    host::RunReport report;
    EXPECT_EQ(host::jsonSummary(table.grid, digest, report), host::jsonSummary(table.grid, report));
    const fs::path fromBlocks = table.dir.path() / "blocks.png", fromGrid = table.dir.path() / "grid.png";
    ASSERT_EQ(digest.writePreview(fromBlocks.string(), 64), "");
    ASSERT_EQ(host::writePreview(table.grid, fromGrid.string(), 64), "");
    EXPECT_EQ(bytesOf(fromBlocks), bytesOf(fromGrid));
}

// A block large enough to be looked at on several threads gives the bounds
// of one: each extreme is put where a part begins or ends, or at the very
// last element, which the last part holds with the rest of the division.
TEST(Stream, BoundsOfALargeBlockSplitAmongThreads) {
    const std::size_t n = (std::size_t{1} << 20) + 7;
    Ravelin::StrongPtr<Ravelin::Chunk<Tessel::Point>, Ravelin::ChunkBase> points(new Ravelin::Chunk<Tessel::Point>(n));
    Ravelin::StrongPtr<Ravelin::Chunk<float>, Ravelin::ChunkBase> heights(new Ravelin::Chunk<float>(n));
    for (std::size_t i = 0; i < n; ++i) {
        (*points)[i][0] = static_cast<double>(i % 1000);
        (*points)[i][1] = 5.0;
        (*points)[i][2] = -2.0;
        (*heights)[i] = 1.5f;
    }
    const std::size_t third = n / 3;
    (*points)[n - 1][0] = -7.25;         // the very last element
    (*points)[third][1] = 99.5;          // the first of the second part of three
    (*points)[2 * third - 1][2] = -3.0;  // the last of that part
    (*points)[0][2] = 4.0;               // the first
    (*heights)[n - 1] = 2.5f;
    (*heights)[third - 1] = 0.25f;
    FlushedBlock block{"big.txt", 0, {{"Positions", Ravelin::ChunkPtr(points)}, {"H", Ravelin::ChunkPtr(heights)}}};
    for (const unsigned threads : {1u, 2u, 3u}) {
        SCOPED_TRACE(threads);
        host::BlockDigest digest(false, host::BlockDigest::InMemory, threads);
        digest.add(block);
        const host::BlockDigest::Field* field = digest.field("Positions");
        ASSERT_NE(field, nullptr);
        EXPECT_EQ(field->min, (std::vector<double>{-7.25, 5.0, -3.0}));
        EXPECT_EQ(field->max, (std::vector<double>{999.0, 99.5, 4.0}));
        const host::BlockDigest::Field* heightField = digest.field("H");
        ASSERT_NE(heightField, nullptr);
        EXPECT_EQ(heightField->min, (std::vector<double>{0.25}));
        EXPECT_EQ(heightField->max, (std::vector<double>{2.5}));
        EXPECT_EQ(heightField->elements, n);
    }
}

}  // namespace
