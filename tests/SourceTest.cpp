// Reading through a Source: compressed tables against their plain text, a
// truncated or corrupt stream, and byte ranges that together read a file once.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "TestSupport.hpp"
#include "pallion/Pallion.hpp"
#include "pallion/tools/CompressedSource.hpp"
#include "tessel/Grid.hpp"

using testsupport::fieldValues;
using testsupport::tableParameter;
using testsupport::TempDir;

namespace {

// Rows "i i*0.5" with a header; the last without a line end.  Long enough to
// span several of the reader's and the decompressor's blocks.
std::string numberedTable(int rows) {
    std::string text = "index half\n";
    for (int i = 0; i < rows; ++i)
        text += std::to_string(i) + ' ' + std::to_string(i * 0.5) + (i + 1 < rows ? "\n" : "");
    return text;
}

bool haveTool(const std::string& tool) { return std::system(("command -v " + tool + " >/dev/null").c_str()) == 0; }

struct Converted {
    std::string failure;
    std::vector<double> values;
    Pallion::FailureRecord record;
};

Converted convert(const std::string& file, std::uint64_t begin = 0, std::uint64_t end = ~std::uint64_t{0}) {
    Pallion::Parameter p = tableParameter({file}, "I:double:0", 1000);
    p.HeaderLines = 1;
    p.RangeBegin = begin;
    p.RangeEnd = end;
    p.OpenSource = Pallion::Tools::openTableSource;
    Tessel::Grid grid;
    Converted out;
    out.failure = Pallion::ascii2z9(grid, p);
    if (grid.field("I")) out.values = fieldValues<double>(grid, "I");
    out.record = p.Failure;
    return out;
}

// The command that compresses `plain` into `packed`, one per format.
struct Format {
    const char* extension;
    const char* tool;
    const char* command;
};
const Format Formats[] = {
    {"gz", "gzip", "gzip -c plain > packed"},
    {"bz2", "bzip2", "bzip2 -c plain > packed"},
    {"xz", "xz", "xz -c plain > packed"},
    {"zst", "zstd", "zstd -q -c plain > packed"},
    {"zip", "zip", "zip -q packed.zip plain && mv packed.zip packed"},
};

std::string pack(const TempDir& dir, const Format& format, const std::string& name) {
    std::string command = format.command;
    command.replace(command.find("plain"), 5, "plain.txt");
    for (std::size_t at; (at = command.find("packed")) != std::string::npos;) command.replace(at, 6, name);
    const std::string shell = "cd '" + dir.path().string() + "' && " + command;
    if (std::system(shell.c_str()) != 0) return {};
    return (dir.path() / name).string();
}

}  // namespace

TEST(CompressedSource, EachFormatReadsAsThePlainFileAndFailsOnABrokenStream) {
    TempDir dir;
    const std::string plain = dir.write("plain.txt", numberedTable(300000));
    const Converted expected = convert(plain);
    ASSERT_EQ(expected.failure, "");
    ASSERT_EQ(expected.values.size(), 300000u);
    for (const Format& format : Formats) {
        SCOPED_TRACE(format.extension);
        if (!haveTool(format.tool)) {
            std::cout << "skipped: no " << format.tool << '\n';
            continue;
        }
        const std::string packed = pack(dir, format, std::string("table.") + format.extension);
        ASSERT_FALSE(packed.empty());
        const Converted whole = convert(packed);
        EXPECT_EQ(whole.failure, "");
        EXPECT_EQ(whole.values, expected.values);
        // The helpers see the text, not the compressed bytes.
        Pallion::Tools::SourceStream text(packed);
        std::string header;
        std::getline(text, header);
        EXPECT_EQ(header, "index half");

        // Cut short, and with bytes overwritten in the middle: a failure that names the file.
        std::string bytes;
        {
            std::ifstream in(packed, std::ios::binary);
            bytes.assign(std::istreambuf_iterator<char>(in), {});
        }
        // Counted as the text is taken: short of the file's size until the text ends, then all of it.
        const Pallion::Tools::CompressedBytesRead counted = std::make_shared<std::atomic<std::uint64_t>>(0);
        const Pallion::SourcePtr source = Pallion::Tools::countingTableSources(counted)(packed, {});
        std::string buffer(std::size_t{1} << 20, '\0');
        // It pauses before each block, so that the reader's host hears of it.
        std::vector<std::uint64_t> seen;
        std::uint64_t textBytes = 0;
        for (std::int64_t n; (n = source->read(buffer.data(), buffer.size())) != 0;) {
            ASSERT_NE(n, Pallion::Source::Failed);
            if (n == Pallion::Source::Interrupted)
                seen.push_back(*counted);
            else
                textBytes += static_cast<std::uint64_t>(n);
        }
        EXPECT_EQ(textBytes, numberedTable(300000).size());
        ASSERT_GT(seen.size(), 2u);
        EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
        EXPECT_GT(seen.front(), 0u);
        EXPECT_LT(seen.front(), bytes.size());
        EXPECT_EQ(counted->load(), bytes.size());
        // The pauses are the conversion's progress reports: a progress that says
        // stop at its third report stops it part-way, as Ctrl-C does.
        struct StopAtThird : Ravelin::LoaderProgress {
            int reports = 0;
            bool report(const std::string&, std::uint32_t, std::uint32_t) override { return ++reports < 3; }
        };
        Pallion::Parameter stopped = tableParameter({packed}, "I:double:0", 1000);
        stopped.HeaderLines = 1;
        stopped.OpenSource = Pallion::Tools::countingTableSources(counted);
        stopped.Progress = Ravelin::ProgressPtr(new StopAtThird);
        Tessel::Grid partial;
        EXPECT_EQ(Pallion::ascii2z9(partial, stopped), "Ascii2Z9::run: user interruption");
        EXPECT_EQ(stopped.Failure.Kind, Pallion::FailureKind::Interrupted);
        EXPECT_GT(stopped.LineCount, 0u);
        EXPECT_LT(stopped.LineCount, 300000u);
        const std::string cut =
            dir.write(std::string("cut.") + format.extension, bytes.substr(0, bytes.size() * 2 / 3));
        const Converted failed = convert(cut);
        EXPECT_EQ(failed.failure.rfind("Ascii2Z9::run: cannot read file: " + cut + ": ", 0), 0u) << failed.failure;
        EXPECT_EQ(failed.record.Kind, Pallion::FailureKind::ReadFailed);
        EXPECT_EQ(failed.record.File, cut);
        // The blocks flushed before the failure are those of the plain text.
        ASSERT_LT(failed.values.size(), expected.values.size());
        EXPECT_TRUE(std::equal(failed.values.begin(), failed.values.end(), expected.values.begin()));

        // Bytes overwritten in the middle: a decompressor may hand out some
        // garbage before it sees the damage, which may then fail as text; it
        // never passes as a table.
        std::string corrupt = bytes;
        for (std::size_t i = bytes.size() / 2; i < bytes.size() / 2 + 64; ++i)
            corrupt[i] = static_cast<char>(~corrupt[i]);
        const std::string bad = dir.write(std::string("bad.") + format.extension, corrupt);
        try {
            const Converted damaged = convert(bad);
            EXPECT_NE(damaged.failure, "");
            if (damaged.record.Kind == Pallion::FailureKind::ReadFailed) {
                EXPECT_EQ(damaged.record.File, bad);
            }
        } catch (const std::exception&) {  // a token of garbage, as std::stod refuses it
        }
    }
}

TEST(CompressedSource, AZipOfTwoMembersIsRefused) {
    if (!haveTool("zip")) GTEST_SKIP() << "no zip";
    TempDir dir;
    dir.write("a.txt", numberedTable(10));
    dir.write("b.txt", numberedTable(10));
    ASSERT_EQ(std::system(("cd '" + dir.path().string() + "' && zip -q two.zip a.txt b.txt").c_str()), 0);
    const Converted out = convert((dir.path() / "two.zip").string());
    EXPECT_NE(out.failure.find("more than one member"), std::string::npos) << out.failure;
    EXPECT_EQ(out.record.Kind, Pallion::FailureKind::ReadFailed);
}

// Ranges: the lines that start in [begin, end), the header only at byte 0.
TEST(ByteRange, RangesThatMeetReadEveryLineOnce) {
    TempDir dir;
    // A header, CRLF line ends, a line longer than the ranges, a last line without a line end.
    const std::string text = "h1 h2\r\n10 1\r\n11 1\n" + std::string(40, '7') + " 1\n13 1\r\n14 1";
    const std::string plain = dir.write("plain.txt", text);
    std::vector<std::string> files{plain};
    if (haveTool("gzip")) files.push_back(pack(dir, Formats[0], "plain.txt.gz"));  // read through, not sought
    const std::vector<double> all{10, 11, 7777777777777777777777777777777777777777.0, 13, 14};

    const std::size_t crlf = text.find("\r\n") + 1;  // between the CR and the LF
    const std::size_t longLine = text.find("7777");
    const std::size_t lineEnd = longLine - 1;  // the line feed before the long line
    struct Case {
        const char* what;
        std::vector<std::uint64_t> cuts;  // range boundaries between 0 and the end
    };
    const Case cases[] = {
        {"on a line end", {lineEnd}},
        {"right after a line end", {lineEnd + 1}},
        {"in the middle of a CRLF", {crlf}},
        {"in the header", {2}},
        {"in the last line without a line end", {text.size() - 2}},
        {"inside a line longer than a range", {longLine + 5, longLine + 15, longLine + 25}},
        {"empty ranges and one at the very end", {lineEnd, lineEnd, text.size()}},
    };
    for (const std::string& file : files) {
        for (const Case& c : cases) {
            SCOPED_TRACE(file + ": " + c.what);
            std::vector<double> joined;
            std::uint64_t begin = 0;
            std::vector<std::uint64_t> cuts = c.cuts;
            cuts.push_back(text.size() + 1);
            for (std::uint64_t end : cuts) {
                const Converted part = convert(file, begin, end);
                EXPECT_EQ(part.failure, "");
                joined.insert(joined.end(), part.values.begin(), part.values.end());
                begin = end;
            }
            EXPECT_EQ(joined, all);
        }
    }
    // A range that begins where a line begins holds that line; one that
    // begins a byte later does not.
    EXPECT_EQ(convert(plain, lineEnd + 1).values.front(), 7777777777777777777777777777777777777777.0);
    EXPECT_EQ(convert(plain, lineEnd + 2).values.front(), 13);
}

TEST(ByteRange, AnySplitOfALargeTableGivesTheSequentialRows) {
    TempDir dir;
    const std::string text = numberedTable(400000);  // several MiB: ranges cross the reader's blocks
    const std::string plain = dir.write("plain.txt", text);
    std::vector<std::string> files{plain};
    if (haveTool("zstd")) files.push_back(pack(dir, Formats[3], "plain.txt.zst"));
    const std::vector<double> expected = convert(plain).values;
    ASSERT_EQ(expected.size(), 400000u);
    std::mt19937_64 random(7);
    for (const std::string& file : files) {
        for (int round = 0; round < 3; ++round) {
            std::vector<std::uint64_t> cuts;
            for (int i = 0; i < 4; ++i) cuts.push_back(random() % text.size());
            std::sort(cuts.begin(), cuts.end());
            cuts.push_back(text.size());
            std::vector<double> joined;
            std::uint64_t begin = 0;
            for (std::uint64_t end : cuts) {
                const Converted part = convert(file, begin, end);
                joined.insert(joined.end(), part.values.begin(), part.values.end());
                begin = end;
            }
            EXPECT_EQ(joined, expected) << file << " round " << round;
        }
    }
}
