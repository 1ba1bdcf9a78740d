// One file converted in byte ranges side by side: the rows a range counts,
// seams anywhere in a table, a failure in a middle range, Ctrl-C, and the
// blocks handed on in file order.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "RangedReading.hpp"
#include "TestSupport.hpp"
#include "pallion/Extensions.hpp"
#include "pallion/memory/Chunk.hpp"
#include "pallion/tools/Driver.hpp"

using testsupport::TempDir;

namespace {

// Tables whose seams fall on every kind of byte: line ends, the middle of a
// CRLF, header lines, a last line without a line end, a line longer than a
// range, comment and empty lines, a NUL.
struct SeamTable {
    const char* name;
    std::string bytes;
    std::uint32_t header = 0;
    std::string parse = "P:point:0+1+2,I:int:3";
    bool rules = false;  // comment and empty lines skipped, CR taken off
    std::uint32_t block = 2;
};

const std::string LongLine = "1 2 3 4" + std::string(40, ' ') + "\n";

const SeamTable SeamTables[] = {
    {"plain", "1 2 3 4\n5 6 7 8\n9 10 11 12\n13 14 15 16\n"},
    {"no_last_line_end", "1 2 3 4\n5 6 7 8\n9 10 11 12"},
    {"crlf", "1 2 3 4\r\n5 6 7 8\r\n9 10 11 12\r\n", 0, "P:point:0+1+2,I:int:3", true},
    {"header", "x y z i\nunits\n1 2 3 4\n5 6 7 8\n9 1 2 3\n", 2, "P:point:0+1+2,I:int:3", false, 1},
    {"header_failure", "x y z i\nunits\n1 2 3 4\n5 6 7\n9 1 2 3\n", 2, "P:point:0+1+2,I:int:3", false, 1},
    {"long_line", "1 2 3 4\n" + LongLine + "5 6 7 8\n" + LongLine},
    {"comments", "# head\n1 2 3 4\n\n# x\n5 6 7 8\n  \n9 1 2 3\n", 0, "P:point:0+1+2,I:int:3", true},
    {"failing_row", "1 2 3 4\n5 6 7 8\n9 x 2 3\n1 2 3 4\n"},
    {"too_few_tokens", "1 2 3 4\n5 6 7 8\n9 1 2\n1 2 3 4\n"},
    {"nul", std::string("1 2 3 4\n5 6 7 8\0 9\n1 2 3 4\n", 26)},
    {"empty_lines_end", "1 2 3 4\n5 6 7 8\n\n\n"},
};

reference::Settings seamSettings(const TempDir& dir, const SeamTable& table) {
    reference::Settings s;
    s.files = {dir.write(std::string(table.name) + ".txt", table.bytes)};
    s.headerLines = table.header;
    s.parse = table.parse;
    s.chunkSize = table.block;
    if (table.rules) {
        s.skipEmptyLines = true;
        s.commentPrefix = "#";
    }
    return s;
}

}  // namespace

TEST(Ranges, EveryOneOrTwoSeamsGiveTheSequentialGrid) {
    TempDir dir;
    for (const SeamTable& table : SeamTables) {
        SCOPED_TRACE(table.name);
        const reference::Settings s = seamSettings(dir, table);
        const ranged::Shot expected = ranged::sequential(s);
        const std::uint64_t size = table.bytes.size();
        for (std::uint64_t a = 0; a <= size + 1; ++a) {
            ASSERT_EQ(ranged::inRanges(s, {a}, 2), expected) << "seam at " << a;
            for (std::uint64_t b = a; b <= size + 1; b += 5)
                ASSERT_EQ(ranged::inRanges(s, {a, b}, 3), expected) << "seams at " << a << ", " << b;
        }
    }
}

TEST(Ranges, CountedRowsAndLinesOfRangesAddUpToTheFile) {
    TempDir dir;
    for (const SeamTable& table : SeamTables) {
        SCOPED_TRACE(table.name);
        Pallion::Parameter p = reference::libraryParameter(seamSettings(dir, table));
        const std::string file = p.Files->front();
        p.RangeEnd = Pallion::WholeFileEnd;
        const Pallion::RangeRows whole = Pallion::countRows(p, file);
        // Every line of the file, the header too; the rows those that are no header nor skipped.
        EXPECT_EQ(whole.Lines, static_cast<std::uint64_t>(std::count(table.bytes.begin(), table.bytes.end(), '\n') +
                                                          (table.bytes.back() != '\n' ? 1 : 0)));
        for (std::uint64_t cut = 0; cut <= table.bytes.size() + 1; ++cut) {
            p.RangeBegin = 0;
            p.RangeEnd = cut;
            const Pallion::RangeRows front = Pallion::countRows(p, file);
            p.RangeBegin = cut;
            p.RangeEnd = Pallion::WholeFileEnd;
            const Pallion::RangeRows back = Pallion::countRows(p, file);
            // A range that begins inside the header reads its lines as rows: the driver never cuts there.
            std::size_t headerEnd = 0;
            for (std::uint32_t h = 0; h < table.header; ++h) headerEnd = table.bytes.find('\n', headerEnd) + 1;
            if (cut < headerEnd) continue;
            EXPECT_EQ(front.Rows + back.Rows, whole.Rows) << cut;
            EXPECT_EQ(front.Lines + back.Lines, whole.Lines) << cut;
        }
    }
}

namespace {

// Rows "i i*0.5 -i 7": 31 bytes or so each, `rows` of them, one bad token at `badRow` (0-based) if asked.
std::string numbered(int rows, int badRow = -1, const char* bad = "x") {
    std::string text;
    for (int i = 0; i < rows; ++i)
        text += std::to_string(i) + ' ' + (i == badRow ? std::string(bad) : std::to_string(i * 0.5)) + ' ' +
                std::to_string(-i) + " 7\n";
    return text;
}

}  // namespace

TEST(Ranges, AFailureInAMiddleRangeIsTheFirstInFileOrderWithItsLineAndTheBlocksBeforeIt) {
    TempDir dir;
    struct Case {
        const char* name;
        const char* bad;
        bool whole;
        const char* ends;
    };
    const Case cases[] = {
        {"thrown", "x", false, "invalid_argument: stod"},
        {"refused", "1.5kg", true,
         "Ascii2Z9::run: not a number in full for point: \"1.5kg\" in column 1 of line 5001 of file: "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        reference::Settings s;
        // A later row fails too: only the first in file order counts.
        std::string text = numbered(5000) + numbered(3000, 0, c.bad) + numbered(2000, 1500, c.bad);
        s.files = {dir.write(std::string(c.name) + ".txt", text)};
        s.parse = "P:point:0+1+2,I:int:3";
        s.chunkSize = 700;
        s.wholeTokens = c.whole;
        const ranged::Shot expected = ranged::sequential(s);
        const std::string& ends = expected.run.exception.empty() ? expected.run.result : expected.run.exception;
        ASSERT_EQ(ends.rfind(c.ends, 0), 0u) << ends;
        EXPECT_EQ(expected.run.lineCount, 5000u);
        EXPECT_EQ(expected.run.fragments.size(), 2u * 7u);  // the full blocks before row 5001, in both fields
        const std::uint64_t size = text.size();
        for (unsigned threads : {2u, 4u, 7u}) {
            std::vector<std::uint64_t> cuts;
            for (unsigned i = 1; i < threads; ++i) cuts.push_back(size * i / threads);
            EXPECT_EQ(ranged::inRanges(s, cuts, threads), expected) << threads << " threads";
        }
    }
}

namespace {

// Says stop at its first report, and counts them, on whatever thread it is called.
class StopAtOnce : public Ravelin::LoaderProgress {
public:
    bool report(const std::string&, std::uint32_t, std::uint32_t) override {
        ++reports;
        caller = std::this_thread::get_id();
        return false;
    }
    std::atomic<int> reports{0};
    std::thread::id caller;
};

}  // namespace

TEST(Ranges, ProgressOnTheCallersThreadStopsEveryRange) {
    TempDir dir;
    std::string text;
    for (int i = 0; i < 4; ++i) text += numbered(100000);
    reference::Settings s;
    s.files = {dir.write("large.txt", text)};
    s.chunkSize = 100000;
    Pallion::Parameter p = reference::libraryParameter(s);
    StopAtOnce* progress = nullptr;
    p.Progress = progress = new StopAtOnce;
    Tessel::Grid grid;
    const std::vector<Pallion::Tools::TableRange> ranges = Pallion::Tools::planRanges(p, 4);
    ASSERT_EQ(ranges.size(), 4u);
    const std::string result = Pallion::Tools::convertRanges(grid, p, ranges, 4);
    EXPECT_EQ(result, "Ascii2Z9::run: user interruption");
    EXPECT_EQ(p.Failure.Kind, Pallion::FailureKind::Interrupted);
    EXPECT_GE(progress->reports.load(), 1);
    EXPECT_EQ(progress->caller, std::this_thread::get_id());
    EXPECT_LT(p.LineCount, 400000u);  // stopped before the end
    // What was kept is whole blocks, as a sequential run that stopped keeps.
    const auto values = testsupport::fieldValues<Quillon::PhysicalSpace::point>(grid, "Positions");
    EXPECT_EQ(values.size() % 100000, 0u);
}

TEST(Ranges, BlocksLeaveInFileOrderKeptOrNotOnOneOrSeveralThreads) {
    TempDir dir;
    std::string text;
    for (int i = 0; i < 12; ++i) text += numbered(100000);
    const std::string file = dir.write("blocks.txt", text);
    for (const unsigned threads : {1u, 3u}) {
        for (const bool keep : {true, false}) {
            SCOPED_TRACE(std::to_string(threads) + (keep ? " kept" : " not kept"));
            Pallion::Tools::TableOptions options;
            options.files = {file};
            options.parse = "P:point:0+1+2,I:int:3";
            options.block = 250000;
            options.threads = threads;
            std::vector<std::string> seen;
            std::vector<double> firsts;
            Pallion::Tools::BlockRoute route;
            route.keepBlocks = keep;
            route.onBlock = [&](const Pallion::Tools::FlushedBlock& block) {
                seen.push_back(Pallion::blockName(block.file, block.number) + ":" +
                               std::to_string(block.columns.size()) + ":" + block.columns[0].first + ":" +
                               std::to_string(block.columns[0].second->elementCount()));
                const auto* rows = static_cast<const double*>(block.columns[0].second->rawData());
                firsts.push_back(block.columns[0].second->elementCount() > 0 ? rows[0] : -1);
                return std::string();
            };
            Tessel::Grid grid;
            Pallion::Parameter p;
            const Pallion::Tools::TableRun run =
                Pallion::Tools::runTable(grid, p, options, {}, {}, Pallion::Tools::OptionWords::CommandLine, route);
            ASSERT_TRUE(run.converted()) << run.failure;
            const std::vector<std::string> blocks = {"blocks0:2:P:250000", "blocks1:2:P:250000", "blocks2:2:P:250000",
                                                     "blocks3:2:P:250000", "blocks4:2:P:200000"};
            EXPECT_EQ(seen, blocks);
            EXPECT_EQ(firsts, (std::vector<double>{0, 50000, 0, 50000, 0}));  // rows 0, 250000, ... of "i" % 100000
            ASSERT_EQ(grid.fields().size(), 2u);
            EXPECT_EQ(grid.fields()[0]->fragments().size(), keep ? 5u : 0u);
            EXPECT_EQ(grid.notes().size(), 1u);
        }
    }
    // A sink that refuses a block ends the run with its text as an output
    // that cannot be written, whether the blocks are kept (handed on after
    // the run) or not (handed on while later ranges are converted).
    for (const bool keep : {true, false}) {
        Pallion::Tools::TableOptions options;
        options.files = {file};
        options.threads = 2;
        options.block = 250000;
        Pallion::Tools::BlockRoute route;
        route.onBlock = [](const Pallion::Tools::FlushedBlock& block) {
            return block.number == 1 ? std::string("disk full") : std::string();
        };
        route.keepBlocks = keep;
        Tessel::Grid grid;
        Pallion::Parameter p;
        const Pallion::Tools::TableRun run =
            Pallion::Tools::runTable(grid, p, options, {}, {}, Pallion::Tools::OptionWords::CommandLine, route);
        EXPECT_EQ(run.end, Pallion::Tools::RunEnd::Unwritten) << keep;
        EXPECT_EQ(run.failure, "disk full") << keep;
    }
}

// Blocks that are not kept are few at any time, even where the sink is slower
// than the conversion: a range waits until the blocks before it are handed on.
TEST(Ranges, BlocksNotKeptAreFewAtOnceBehindASlowSink) {
    TempDir dir;
    reference::Settings s;
    s.files = {dir.write("slow.txt", numbered(200000))};
    s.parse = "P:point:0+1+2,I:int:3";
    s.chunkSize = 2000;
    Pallion::Parameter p = reference::libraryParameter(s);
    const std::vector<Pallion::Tools::TableRange> ranges = Pallion::Tools::planRanges(p, 2, 64 << 10);
    ASSERT_GT(ranges.size(), 40u);  // of about 2400 rows each
    std::uint64_t seen = 0, most = 0;
    Pallion::Tools::BlockRoute route;
    route.keepBlocks = false;
    route.onBlock = [&](const Pallion::Tools::FlushedBlock& block) {
        EXPECT_EQ(block.number, seen++);
        // The rows converted so far (as the caller's thread last summed them) beyond this block's.
        most = std::max(most, p.LineCount - std::min<std::uint64_t>(p.LineCount, seen * 2000));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return std::string();
    };
    Tessel::Grid grid;
    EXPECT_EQ(Pallion::Tools::convertRanges(grid, p, ranges, 2, route), "");
    EXPECT_EQ(seen, 101u);  // 100 full blocks and the empty last one
    // Four ranges a thread and the block the first of them reaches into; not the whole table.
    EXPECT_LE(most, 12u * 2400u) << most << " rows ahead of the sink";
    EXPECT_EQ(p.LineCount, 200000u);

    // A failure in a middle range: the blocks before its row are handed on, in order, and none after.
    s.files = {dir.write("failing.txt", numbered(150001, 150000))};
    Pallion::Parameter failing = reference::libraryParameter(s);
    seen = 0;
    route.onBlock = [&](const Pallion::Tools::FlushedBlock& block) {
        EXPECT_EQ(block.number, seen++);
        return std::string();
    };
    Tessel::Grid other;
    const auto failingRanges = Pallion::Tools::planRanges(failing, 2, 64 << 10);
    EXPECT_THROW(Pallion::Tools::convertRanges(other, failing, failingRanges, 2, route), std::invalid_argument);
    EXPECT_EQ(seen, 75u);  // rows 0 to 149999
}

namespace {

// The fields, fragment names and bytes, and notes of a grid, as one text each.
std::vector<std::string> gridText(const Tessel::Grid& grid) {
    std::vector<std::string> text;
    for (const Tessel::FieldPtr& field : grid.fields())
        for (const Tessel::Field::Fragment& fragment : field->fragments())
            for (const Tessel::MemBase::Array& array : fragment.arrays)
                text.push_back(field->fieldName() + '/' + fragment.id->name + '/' +
                               std::string(static_cast<const char*>(array->rawData()), array->byteSize()));
    for (const Tessel::Grid::Note& note : grid.notes()) text.push_back(note.text);
    return text;
}

}  // namespace

// The real tables, their rows repeated until the file is cut into ranges, as
// the program reads them (everything guessed): the grid of three threads is
// that of one.
TEST(Ranges, RealTablesRepeatedGiveTheGridOfOneThread) {
    const std::filesystem::path real = testsupport::realDataDir();
    if (real.empty()) GTEST_SKIP() << "no folder of real tables";
    TempDir dir;
    int compared = 0;
    for (const auto& entry : std::filesystem::directory_iterator(real)) {
        const std::string extension = entry.path().extension().string();
        if (extension != ".txt" && extension != ".pts") continue;
        SCOPED_TRACE(entry.path().filename().string());
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), {});
        const std::size_t body = bytes.find('\n') + 1;  // the first line stays a header where it is one
        if (body == 0 || body >= bytes.size()) continue;
        std::string text = bytes.substr(0, body);
        while (text.size() < 2 * Pallion::Tools::SmallestSplitFile) text += bytes.substr(body);
        Pallion::Tools::TableOptions options;
        options.files = {dir.write(entry.path().filename().string(), text)};
        options.block = 5000;
        std::vector<std::string> grids[2];
        std::string failures[2];
        for (const unsigned threads : {1u, 3u}) {
            options.threads = threads;
            Tessel::Grid grid;
            Pallion::Parameter p;
            failures[threads > 1] = Pallion::Tools::runTable(grid, p, options).failure;
            grids[threads > 1] = gridText(grid);
        }
        EXPECT_EQ(failures[1], failures[0]);
        EXPECT_TRUE(grids[1] == grids[0]) << grids[0].size() << " against " << grids[1].size() << " texts";
        ++compared;
    }
    EXPECT_GT(compared, 3);
}

// A table given as one block whose memory is large enough to be put in place
// on several threads before it is zeroed: the grid of two threads is that of
// one, and no element is left zero where the file has a value.
TEST(Ranges, OneLargeBlockOnTwoThreadsIsTheGridOfOne) {
    TempDir dir;
    Pallion::Tools::TableOptions options;
    options.files = {dir.write("large.txt", numbered(900000))};  // about 24 MB of points: 21 MB of memory
    options.parse = "P:point:0+1+2,I:int:3";
    std::vector<std::string> grids[2];
    for (const unsigned threads : {1u, 2u}) {
        options.threads = threads;
        Tessel::Grid grid;
        Pallion::Parameter p;
        ASSERT_EQ(Pallion::Tools::runTable(grid, p, options).failure, "");
        grids[threads > 1] = gridText(grid);
        const auto points = testsupport::fieldValues<Quillon::PhysicalSpace::point>(grid, "P");
        ASSERT_EQ(points.size(), 900000u);
        EXPECT_EQ(points[899999][0], 899999.0);
        EXPECT_EQ(points[450001][2], -450001.0);
    }
    EXPECT_TRUE(grids[1] == grids[0]);
}
