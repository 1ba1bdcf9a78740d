// Text table conversion: parameters, parse string, reading loop, token
// conversion and the fragments that reach the grid.
#include <gtest/gtest.h>

#include <clocale>
#include <fstream>
#include <sstream>

#include "TestSupport.hpp"
#include "pallion/array/MemArray.hpp"
#include "pallion/convert/detail/Ascii2Z9.hpp"
#include "pallion/convert/detail/Parse.hpp"

using namespace Pallion;
using Tessel::Grid;
using testsupport::fileList;
using testsupport::fragmentNames;
using testsupport::fragmentValues;
using testsupport::TempDir;

namespace {

struct Recorder : Ravelin::LoaderProgress {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> reports;
    std::size_t stopAt = SIZE_MAX;
    bool report(const std::string& message, std::uint32_t value, std::uint32_t total) override {
        EXPECT_EQ(message, "Read line nr.:");
        reports.emplace_back(value, total);
        return reports.size() < stopAt;
    }
};

}  // namespace

TEST(Parameters, SpeakTellsTheSettingsByteForByte) {
    Parameter p;
    EXPECT_EQ(p.speak(),
              "\nDelimiter: < > \nHeaderLines: 0 \nParse: Positions:point:0+1+2 \nChunkSize: 10000000 \nEPSG: -1 ");
    p.Delimiter = 't';
    p.Parse = "";
    p.HeaderLines = 3;
    p.EPSG = 0;
    EXPECT_EQ(p.speak(), "\nDelimiter: <t> \nHeaderLines: 3 \nParse:  \nChunkSize: 10000000 \nEPSG: 0 ");
    Grid grid;
    p.Parse = "a:b";  // the parser fails, the tab fix-up has happened all the same
    ascii2z9(grid, p);
    EXPECT_EQ(p.Delimiter, '\t');
    EXPECT_NE(p.speak().find("<\t> "), std::string::npos);
}

TEST(Parse, SplitKeepsEmptyPiecesButNoTrailingOne) {
    auto cut = [](const std::string& text, char d) {
        std::vector<std::string> out{"kept"};
        split(text.data(), text.size(), out, d);
        out.erase(out.begin());
        return out;
    };
    using V = std::vector<std::string>;
    EXPECT_EQ(cut("1,2,3,", ','), (V{"1", "2", "3"}));
    EXPECT_EQ(cut("1,,3", ','), (V{"1", "", "3"}));
    EXPECT_EQ(cut(",1", ','), (V{"", "1"}));
    EXPECT_EQ(cut(",,", ','), (V{"", ""}));
    EXPECT_EQ(cut("", ','), V{});
    EXPECT_EQ(cut(std::string("a b c\0d e", 9), ' '), (V{"a", "b", "c"}));
    EXPECT_EQ(cut(std::string("\0a", 2), ' '), V{});
    EXPECT_EQ(cut("a  b", ' '), (V{"a", "", "b"}));
}

TEST(Parse, MessagesInTheOrderOfTheChecks) {
    auto parse = [](const std::string& text, Parameter& p) {
        p.Parse = text;
        return parseUserInputToContainer(p);
    };
    auto fresh = [&](const std::string& text) {
        Parameter p;
        return parse(text, p);
    };
    EXPECT_EQ(fresh(",P:point:0+1+2"), "\nparseUserInputToContainer: parse string wrong: ,P:point:0+1+2");
    EXPECT_EQ(fresh("A:double::"), "parseUserInputToContainer: column number wrong: ");
    EXPECT_EQ(fresh("A:Double:1"), "parseUserInputToContainer: type not supported: Double");
    EXPECT_EQ(fresh("A: double:1"), "parseUserInputToContainer: type not supported:  double");
    EXPECT_EQ(fresh("A:point:4"), "parseUserInputToContainer: column number wrong: 4");  // a point needs three

    Parameter empty;
    EXPECT_EQ(parse("", empty), "");
    EXPECT_TRUE(empty.Container.empty());
    Parameter q;
    EXPECT_EQ(parse("P:point:0+1+2,Name:double:", q),
              "\nparseUserInputToContainer: parse string wrong: P:point:0+1+2,Name:double:");
    EXPECT_EQ(q.Container.size(), 1u);  // entries before the faulty one stay
    Parameter t;
    EXPECT_EQ(parse("A:nosuch:1+7", t), "parseUserInputToContainer: column number wrong: 1+7");  // count before type
    EXPECT_EQ(t.HighestColumnIndex, 7u);  // numbers are taken in before the count is tested

    Parameter ok;
    EXPECT_EQ(parse(":double:2abc+0+1,:uint8_t:5,", ok), "");
    ASSERT_EQ(ok.Container.size(), 2u);
    EXPECT_EQ(ok.Container[0].FieldName, "");
    EXPECT_EQ(ok.Container[0].Columns, (std::vector<std::uint32_t>{2, 0, 1}));
    EXPECT_EQ(ok.HighestColumnIndex, 5u);
    Parameter neg;
    EXPECT_EQ(parse("A:int:-1", neg), "");
    EXPECT_EQ(neg.HighestColumnIndex, 4294967295u);

    Parameter bad;
    try {
        parse("A:double:0,B:int:+1++2", bad);
        FAIL();
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "stoi");
    }
    EXPECT_EQ(bad.Container.size(), 1u);
    EXPECT_THROW(fresh("A:int:99999999999"), std::out_of_range);
}

TEST(Convert, FragmentLayoutAcrossTwoFilesWithBlocksOfTwo) {
    TempDir dir;
    const auto a = dir.write("a.txt", "1 10\n2 20\n3 30\n");
    const auto b = dir.write("b.txt", "4 40\n5 50");  // no line end after the last line
    Grid grid;
    Parameter p;
    p.Files = fileList({a, b});
    p.Parse = "First:int:0,Second:double:1,Third:uint16_t:1";
    p.ChunkSize = 2;
    std::vector<std::string> calls;
    p.OnFragment = [&](const ChunkPtr& chunk, const std::string& field, const std::string& file) {
        calls.push_back(field + "@" + std::filesystem::path(file).filename().string() + "#" +
                        std::to_string(chunk->elementCount()));
    };
    EXPECT_EQ(ascii2z9(grid, p), "");
    EXPECT_EQ(fragmentNames(grid, "First"), (std::vector<std::string>{"a0", "b1", "b2"}));
    EXPECT_EQ(fragmentValues<int>(grid, "First", "a0"), (std::vector<int>{1, 2}));
    EXPECT_EQ(fragmentValues<int>(grid, "First", "b1"), (std::vector<int>{3, 4}));
    EXPECT_EQ(fragmentValues<int>(grid, "First", "b2"), (std::vector<int>{5}));
    EXPECT_EQ(fragmentValues<double>(grid, "Second", "b1"), (std::vector<double>{30, 40}));
    EXPECT_EQ(p.LineCount, 5u);
    EXPECT_EQ(p.FragmentCount, 2u);
    EXPECT_EQ(p.CurrentFile, b);
    // Three columns, two full blocks and a shorter one: in holder order, double before int.
    ASSERT_EQ(calls.size(), 9u);
    EXPECT_EQ(calls[0], "Second@a.txt#2");
    EXPECT_EQ(calls[1], "First@a.txt#2");
    EXPECT_EQ(calls[2], "Third@a.txt#2");
    EXPECT_EQ(calls[8], "Third@b.txt#1");
    // The fragments own the very chunks the rows were written into.
    EXPECT_EQ(grid.field("First")->fragments()[0].arrays.size(), 1u);
}

TEST(Convert, EmptyLastFragmentAndOnFragmentEditingInPlace) {
    TempDir dir;
    const auto file = dir.write("points.txt", "1 2 3\n4 5 6\n7 8 9\n10 11 12\n");
    Grid grid;
    Parameter p;
    p.Files = fileList({file});
    p.ChunkSize = 2;
    p.OnFragment = [](const ChunkPtr& chunk, const std::string&, const std::string&) {
        auto* points = dynamic_cast<Ravelin::Chunk<Tessel::Point>*>(chunk.get());
        for (auto& point : *points) point[2] = -point[2];
    };
    EXPECT_EQ(ascii2z9(grid, p), "");
    EXPECT_EQ(fragmentNames(grid, "Positions"), (std::vector<std::string>{"points0", "points1", "points2"}));
    auto last = fragmentValues<Tessel::Point>(grid, "Positions", "points1");
    ASSERT_EQ(last.size(), 2u);
    EXPECT_EQ(last[1], Quillon::make<Tessel::Point>(10.0, 11.0, -12.0));
    EXPECT_TRUE((fragmentValues<Tessel::Point>(grid, "Positions", "points2").empty()));
    auto* empty = grid.field("Positions")->fragment("points2")->arrays[0].get();
    EXPECT_EQ(empty->elementCount(), 0u);
}

TEST(Convert, TokenConversionNarrowsAndPassesStandardExceptions) {
    TempDir dir;
    const std::string parse = "I:int:0,U8:uint8_t:1,U16:uint16_t:2,U32:uint32_t:3,F:float:4,C:rgb:1+2+3";
    Grid grid;
    Parameter p;
    p.Files = fileList({dir.write("n.txt", "1 2 3 4 5\n1 2 3 4 1e39x\n")});
    p.Parse = parse;
    p.ChunkSize = 16;
    // "1e39x" is out of range for float: the exception leaves ascii2z9.
    try {
        ascii2z9(grid, p);
        FAIL();
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "stof");
    }
    // What was read is in chunks that never reached the grid: the fields have no fragment.
    EXPECT_TRUE(grid.field("I")->fragments().empty());

    Grid grid2;
    Parameter q;
    q.Files = fileList(
        {dir.write("m.txt", "1.5 300 70000 -1 7,5\n1e5 256 -1 2147483647 1e38\n12abc -1 0 0 0x10\n+5 0 0 0 -0\r\n")});
    q.Parse = parse;
    q.ChunkSize = 16;
    EXPECT_EQ(ascii2z9(grid2, q), "");
    EXPECT_EQ(fragmentValues<int>(grid2, "I", "m0"), (std::vector<int>{1, 1, 12, 5}));
    EXPECT_EQ(fragmentValues<unsigned char>(grid2, "U8", "m0"), (std::vector<unsigned char>{44, 0, 255, 0}));
    EXPECT_EQ(fragmentValues<unsigned short>(grid2, "U16", "m0"), (std::vector<unsigned short>{4464, 65535, 0, 0}));
    EXPECT_EQ(fragmentValues<unsigned int>(grid2, "U32", "m0"),
              (std::vector<unsigned int>{4294967295u, 2147483647u, 0, 0}));
    EXPECT_EQ(fragmentValues<float>(grid2, "F", "m0"),
              (std::vector<float>{7.0f, 1e38f, 16.0f, -0.0f}));  // stof reads hexadecimal
    auto colours = fragmentValues<Tessel::Colour>(grid2, "C", "m0");
    ASSERT_EQ(colours.size(), 4u);
    EXPECT_EQ(colours[0], (Quillon::make<Tessel::Colour, unsigned char>(44, 112, 255)));
}

TEST(Convert, EarlierHolderDecidesWhichFaultyTokenShows) {
    TempDir dir;
    Grid grid;
    Parameter p;
    p.Files = fileList({dir.write("f.txt", "1 2\nx y\n")});
    p.ChunkSize = 8;
    p.Parse = "A:int:0,B:double:1";  // the int column stands first in line and parse string
    try {
        ascii2z9(grid, p);
        FAIL();
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "stod");
    }
    EXPECT_EQ(p.LineCount, 1u);
    EXPECT_TRUE(grid.notes().empty());  // the info is not noted when an exception leaves

    Grid grid2;
    Parameter q;
    q.Files = fileList({dir.write("g.txt", "2147483648\n")});
    q.Parse = "A:uint32_t:0";
    q.ChunkSize = 8;
    EXPECT_THROW(ascii2z9(grid2, q), std::out_of_range);
    Parameter e;
    e.ChunkSize = 8;
    e.Files = fileList({dir.write("h.txt", "1  2 3\n")});  // two blanks: the y token is empty
    EXPECT_THROW(ascii2z9(grid2, e), std::invalid_argument);
}

TEST(Convert, ProgressReportsWithSmallAndLargeEstimatesAndAStop) {
    TempDir dir;
    std::string small;
    for (int i = 0; i < 5; ++i) small += std::to_string(i) + "\n";
    std::string large;
    for (int i = 0; i < 250; ++i) large += "7\n";  // 500 bytes of lines of 1: estimate 500, step 5
    auto* recorder = new Recorder;
    Parameter p;
    p.Progress = recorder;
    p.Files = fileList({dir.write("s.txt", small), dir.write("l.txt", large)});
    p.Parse = "V:int:0";
    p.ChunkSize = 1000;
    Grid grid;
    EXPECT_EQ(ascii2z9(grid, p), "");
    // Small file: estimate 10 / 1 = 10, step 1, a report per line.
    ASSERT_GE(recorder->reports.size(), 5u);
    for (std::uint32_t i = 0; i < 5; ++i) EXPECT_EQ(recorder->reports[i], std::make_pair(i, 10u));
    // Large file: LineCount runs on from 5; reports at multiples of 5 up to 250.
    EXPECT_EQ(recorder->reports[5], std::make_pair(5u, 500u));
    EXPECT_EQ(recorder->reports.back(), std::make_pair(250u, 500u));
    EXPECT_EQ(recorder->reports.size(), 5u + 50u);

    auto* stopper = new Recorder;
    stopper->stopAt = 3;
    Parameter q;
    q.Progress = stopper;
    q.Files = fileList({dir.write("s2.txt", small)});
    q.Parse = "V:int:0";
    q.ChunkSize = 1;
    q.EPSG = 1;
    Grid grid2;
    EXPECT_EQ(ascii2z9(grid2, q), "Ascii2Z9::run: user interruption");
    EXPECT_EQ(fragmentNames(grid2, "V"), (std::vector<std::string>{"s20", "s21"}));  // flushed rows stay
    EXPECT_FALSE(grid2.attributes().getAttribute("EPSG").isNull());
    EXPECT_EQ(grid2.notes().size(), 1u);
}

TEST(Convert, WaysOutOfTheEntryAndWhatTheGridHolds) {
    TempDir dir;
    {  // wrong parse string: nothing reaches the grid
        Grid grid;
        Parameter p;
        p.Parse = "A:point";
        p.EPSG = 4326;
        EXPECT_EQ(ascii2z9(grid, p), "\nparseUserInputToContainer: parse string wrong: A:point");
        EXPECT_FALSE(grid.hasCartesianRepresentation());
        EXPECT_TRUE(grid.notes().empty());
        EXPECT_EQ(grid.attributes().size(), 0u);
    }
    {  // no files: representation, attribute and info all the same
        Grid grid;
        Parameter p;
        p.EPSG = 25832;
        const auto before = grid.timeStamp();
        EXPECT_EQ(ascii2z9(grid, p), "Ascii2Z9::run: no input files");
        EXPECT_TRUE(grid.hasCartesianRepresentation());
        auto epsg = grid.attributes().getAttribute("EPSG");
        auto* code = dynamic_cast<Ravelin::Chunk<int>*>(epsg.get());
        ASSERT_NE(code, nullptr);
        EXPECT_EQ(code->vector(), std::vector<int>{25832});
        EXPECT_GT(grid.timeStamp(), before);
        ASSERT_EQ(grid.notes().size(), 1u);
        EXPECT_EQ(grid.notes()[0].converter, "ascii2z9");
        EXPECT_EQ(grid.notes()[0].text, p.speak());
        EXPECT_TRUE(grid.fields().empty());
    }
    {  // empty parse string, EPSG 0: no attribute, no time stamp
        Grid grid;
        Parameter p;
        p.Files = fileList({"x"});
        p.Parse = "";
        p.EPSG = 0;
        EXPECT_EQ(ascii2z9(grid, p), "Ascii2Z9::run: container typeid field-name and column-number");
        EXPECT_EQ(grid.attributes().size(), 0u);
        EXPECT_EQ(grid.timeStamp(), 0u);
        EXPECT_EQ(grid.notes().size(), 1u);
    }
    {  // a block size of 0 is refused before any chunk is made
        Grid grid;
        Parameter p;
        p.Files = fileList({dir.write("z.txt", "1 2 3\n")});
        p.ChunkSize = 0;
        EXPECT_EQ(ascii2z9(grid, p), "Ascii2Z9::run: ChunkSize is 0: a block needs at least one row");
        EXPECT_TRUE(grid.fields().empty());
    }
}

TEST(Convert, BadFilesGiveTheirTexts) {
    TempDir dir;
    const auto good = dir.write("good.txt", "1 2 3\n");
    auto run = [&](std::initializer_list<std::string> names, const std::string& parse = "Positions:point:0+1+2",
                   std::uint32_t header = 0) {
        Grid grid;
        Parameter p;
        p.Files = fileList(names);
        p.Parse = parse;
        p.HeaderLines = header;
        p.ChunkSize = 64;
        std::string result = ascii2z9(grid, p);
        auto field = grid.field(p.Container.empty() ? "" : p.Container[0].FieldName);
        std::size_t fragments = field.isNull() ? 0 : field->fragments().size();
        return std::make_pair(result, fragments);
    };
    const auto missing = (dir.path() / "missing.txt").string();
    EXPECT_EQ(run({good, missing}), std::make_pair("Ascii2Z9::run: cannot open file: " + missing, std::size_t{0}));
    EXPECT_EQ(run({dir.path().string()}).first, "Ascii2Z9::run: cannot open file: " + dir.path().string());
    EXPECT_EQ(run({dir.write("empty.txt", "")}), std::make_pair(std::string(), std::size_t{1}));
    // Skipping ends with the file: the largest count is no failure and takes no time.
    EXPECT_EQ(run({good, good}, "Positions:point:0+1+2", 4294967295u), std::make_pair(std::string(), std::size_t{1}));
    EXPECT_EQ(
        run({dir.write("gap.txt", "1 2 3\n\n4 5 6\n")}).first,
        "Ascii2Z9::run: User column index out of range: Highest Column Index: 2. Number of tokens in this line: 0");
    EXPECT_EQ(
        run({dir.write("two.txt", "1 2 3\n4 5\n")}).first,
        "Ascii2Z9::run: User column index out of range: Highest Column Index: 2. Number of tokens in this line: 2");
    EXPECT_EQ(run({dir.write("neg.txt", "1 2 3\n")}, "A:int:-1").first,
              "Ascii2Z9::run: User column index out of range: Highest Column Index: 4294967295. Number of tokens in "
              "this line: 3");
    // A NUL ends the line for the splitter; a CR stays in the last token, which stod reads past.
    Grid grid;
    Parameter p;
    p.ChunkSize = 64;
    p.Files = fileList({dir.write("nul.txt", std::string("1 2 3\0 junk\r\n4 5 6\r\n", 20))});
    EXPECT_EQ(ascii2z9(grid, p), "");
    auto points = fragmentValues<Tessel::Point>(grid, "Positions", "nul0");
    ASSERT_EQ(points.size(), 2u);
    EXPECT_EQ(points[1], Quillon::make<Tessel::Point>(4.0, 5.0, 6.0));
}

// Each line is read in one pass where its tokens are plain, and the standard
// way where they are not; both must give the standard values, and the
// tokens of a line must be there whenever someone can look at them.
TEST(Convert, PlainAndUnusualTokensGiveTheStandardValuesAndTokensShowAtAFlush) {
    TempDir dir;
    const auto file = dir.write("mixed.txt",
                                "1.5 -2 3e2 7\r\n"             // CR in the last token
                                "0x1p3 +4 \t5 -0\n"            // hexadecimal, a plus, leading white space
                                "12abc 1.5.5 .5 2147483647\n"  // trailing garbage
                                "1 2 3 4 5 6\n");              // tokens no column reads
    Grid grid;
    Parameter p;
    p.Files = fileList({file});
    p.Parse = "P:point:0+1+2,I:int:3";
    p.ChunkSize = 2;
    std::vector<std::vector<std::string>> seen;
    p.OnFragment = [&](const ChunkPtr&, const std::string& field, const std::string&) {
        if (field == "P") seen.push_back(p.Tokens);
    };
    EXPECT_EQ(ascii2z9(grid, p), "");
    using Tessel::Point;
    EXPECT_EQ(fragmentValues<Point>(grid, "P", "mixed0"),
              (std::vector<Point>{Quillon::make<Point>(1.5, -2.0, 300.0), Quillon::make<Point>(8.0, 4.0, 5.0)}));
    EXPECT_EQ(fragmentValues<Point>(grid, "P", "mixed1"),
              (std::vector<Point>{Quillon::make<Point>(12.0, 1.5, 0.5), Quillon::make<Point>(1.0, 2.0, 3.0)}));
    EXPECT_EQ(fragmentValues<int>(grid, "I", "mixed0"), (std::vector<int>{7, 0}));
    EXPECT_EQ(fragmentValues<int>(grid, "I", "mixed1"), (std::vector<int>{2147483647, 4}));
    ASSERT_EQ(seen.size(), 3u);  // two full blocks and the empty last one
    EXPECT_EQ(seen[0], (std::vector<std::string>{"0x1p3", "+4", "\t5", "-0"}));
    EXPECT_EQ(seen[1], (std::vector<std::string>{"1", "2", "3", "4"}));  // the rest of the line stays unsplit
    EXPECT_TRUE(seen[2].empty());
    EXPECT_TRUE(p.Tokens.empty());

    // A delimiter that can stand inside a number still only splits.
    Grid eGrid;
    Parameter e;
    e.Files = fileList({dir.write("e.txt", "1e2e3\n-4.5e+6e7\n")});
    e.Delimiter = 'e';
    e.ChunkSize = 4;
    EXPECT_EQ(ascii2z9(eGrid, e), "");
    EXPECT_EQ(fragmentValues<Point>(eGrid, "Positions", "e0"),
              (std::vector<Point>{Quillon::make<Point>(1.0, 2.0, 3.0), Quillon::make<Point>(-4.5, 6.0, 7.0)}));

    // A failing line leaves its tokens behind: a NUL ends it after three tokens.
    Grid nulGrid;
    Parameter n;
    n.Files = fileList({dir.write("nul.txt", std::string("1 2 3 4\n5 6 7\0 8\n", 18))});
    n.Parse = "P:point:0+1+2,I:int:3";
    n.ChunkSize = 4;
    EXPECT_EQ(
        ascii2z9(nulGrid, n),
        "Ascii2Z9::run: User column index out of range: Highest Column Index: 3. Number of tokens in this line: 3");
    EXPECT_EQ(n.Tokens, (std::vector<std::string>{"5", "6", "7"}));
    EXPECT_EQ(n.LineCount, 1u);

    // So does a token that no conversion takes.
    Grid badGrid;
    Parameter b;
    b.Files = fileList({dir.write("bad.txt", "1 2 3\n4 1e-310 6\n")});
    b.ChunkSize = 4;
    EXPECT_THROW(ascii2z9(badGrid, b), std::out_of_range);
    EXPECT_EQ(b.Tokens, (std::vector<std::string>{"4", "1e-310", "6"}));
    EXPECT_EQ(b.LineCount, 1u);
}

TEST(Convert, ALocaleWithADecimalCommaIsHonouredAsTheStandardFunctionsDo) {
    const std::string previous = std::setlocale(LC_NUMERIC, nullptr);
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr) GTEST_SKIP() << "locale de_DE.UTF-8 is not installed";
    TempDir dir;
    Grid grid;
    Parameter p;
    p.Files = fileList({dir.write("de.txt", "1.5 2,5 3\n")});
    p.ChunkSize = 4;
    const std::string result = ascii2z9(grid, p);
    std::setlocale(LC_NUMERIC, previous.c_str());
    EXPECT_EQ(result, "");
    EXPECT_EQ(fragmentValues<Tessel::Point>(grid, "Positions", "de0"),
              (std::vector<Tessel::Point>{Quillon::make<Tessel::Point>(1.0, 2.5, 3.0)}));
}

TEST(Convert, WhatAHostMeets) {
    TempDir dir;
    using Tessel::Point;
    using testsupport::fieldValues;
    auto convert = [](Grid& grid, Parameter& p, Ravelin::StringListPtr names) {
        p.Files = std::move(names);
        p.ChunkSize = 64;
        return ascii2z9(grid, p);
    };
    // Header lines are skipped in every file: the second file's header is no number.
    const auto a = dir.write("a.txt", "x y z\n1 2 3\n");
    const auto b = dir.write("b.txt", "u v w\n4 5 6\n");
    Grid headers;
    Parameter h;
    h.HeaderLines = 1;
    EXPECT_EQ(convert(headers, h, fileList({a, b, a})), "");  // the same file listed twice is read twice
    EXPECT_EQ(fieldValues<Point>(headers, "Positions"),
              (std::vector<Point>{Quillon::make<Point>(1.0, 2.0, 3.0), Quillon::make<Point>(4.0, 5.0, 6.0),
                                  Quillon::make<Point>(1.0, 2.0, 3.0)}));

    // Tabs given as the letter t; a vector row; a scalar entry with three columns
    // stores its first and only needs the others to exist.
    Grid tabs;
    Parameter t;
    t.Delimiter = 't';
    t.Parse = "V:tvector:2+1+0,S:int:3+0+4";
    EXPECT_EQ(convert(tabs, t, fileList({dir.write("tabs.txt", "1\t2.5\t3\t9\t0\n")})), "");
    const auto vectors = fieldValues<Tessel::TVector>(tabs, "V");
    ASSERT_EQ(vectors.size(), 1u);
    EXPECT_EQ(vectors[0], (Quillon::make<Tessel::TVector>(3.0, 2.5, 1.0)));
    EXPECT_EQ(fieldValues<int>(tabs, "S"), std::vector<int>{9});
    Grid short_;
    Parameter s;
    s.Delimiter = 't';
    s.Parse = "S:int:3+0+4";
    EXPECT_EQ(
        convert(short_, s, fileList({dir.write("four.txt", "1\t2\t3\t9\n")})),
        "Ascii2Z9::run: User column index out of range: Highest Column Index: 4. Number of tokens in this line: 4");

    // Two entries with one field name both reach the field, as two arrays of one
    // fragment; a stem with several dots keeps all but the last.
    Grid same;
    Parameter two;
    two.Parse = "Same:double:0,Same:float:1";
    EXPECT_EQ(convert(same, two, fileList({dir.write("scan.part.2.txt", "1.5 2.5\n")})), "");
    EXPECT_EQ(fragmentNames(same, "Same"), std::vector<std::string>{"scan.part.20"});
    const auto* fragment = same.field("Same")->fragment("scan.part.20");
    ASSERT_EQ(fragment->arrays.size(), 2u);
    EXPECT_EQ(*static_cast<const double*>(fragment->arrays[0]->rawData()), 1.5);
    EXPECT_EQ(*static_cast<const float*>(fragment->arrays[1]->rawData()), 2.5f);
}
