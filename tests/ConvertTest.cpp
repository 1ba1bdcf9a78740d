// Text table conversion: parameters, parse string, and what the entry leaves
// in the grid; the rows themselves are held against the plain reading in
// ReadingDifferentialTest.cpp.
#include <gtest/gtest.h>

#include <clocale>

#include "TestSupport.hpp"
#include "pallion/array/MemArray.hpp"
#include "pallion/convert/detail/Ascii2Z9.hpp"
#include "pallion/convert/detail/Parse.hpp"

using namespace Pallion;
using Tessel::Grid;
using testsupport::fieldValues;
using testsupport::fragmentNames;
using testsupport::tableParameter;
using testsupport::TempDir;

TEST(Parameters, SpeakTellsTheSettingsByteForByte) {
    Parameter p;
    EXPECT_EQ(p.speak(),
              "\nDelimiter: < > \nHeaderLines: 0 \nParse: Positions:point:0+1+2 \nChunkSize: 10000000 \nEPSG: -1 ");
    p.Delimiter = 't';
    p.Parse = "a:b";  // the parser fails, the tab fix-up has happened all the same
    p.HeaderLines = 3;
    p.EPSG = 0;
    Grid grid;
    ascii2z9(grid, p);
    EXPECT_EQ(p.speak(), "\nDelimiter: <\t> \nHeaderLines: 3 \nParse: a:b \nChunkSize: 10000000 \nEPSG: 0 ");
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

// Each parse string with its text, the entries kept before a failure and the
// highest column taken in (numbers are taken in before their count is tested).
TEST(Parse, MessagesInTheOrderOfTheChecks) {
    struct Case {
        std::string parse, result;
        std::size_t entries;
        std::uint32_t highest;
    };
    const std::string wrong = "\nparseUserInputToContainer: parse string wrong: ";
    const std::string count = "parseUserInputToContainer: column number wrong: ";
    const std::string type = "parseUserInputToContainer: type not supported: ";
    const Case cases[] = {
        {",P:point:0+1+2", wrong + ",P:point:0+1+2", 0, 0},
        {"P:point:0+1+2,Name:double:", wrong + "P:point:0+1+2,Name:double:", 1, 2},
        {"A:double::", count, 0, 0},
        {"A:point:4", count + "4", 0, 4},       // a point needs three columns
        {"A:nosuch:1+7", count + "1+7", 0, 7},  // the count before the type
        {"A:Double:1", type + "Double", 0, 1},
        {"A: double:1", type + " double", 0, 1},
        {"", "", 0, 0},
        {":double:2abc+0+1,:uint8_t:5,", "", 2, 5},
        {"A:int:-1", "", 1, 4294967295u},
    };
    for (const Case& c : cases) {
        Parameter p;
        p.Parse = c.parse;
        EXPECT_EQ(parseUserInputToContainer(p), c.result) << c.parse;
        EXPECT_EQ(p.Container.size(), c.entries) << c.parse;
        EXPECT_EQ(p.HighestColumnIndex, c.highest) << c.parse;
        if (c.entries == 2) {  // the name before the first colon, even an empty one; columns in order
            EXPECT_EQ(p.Container[0].FieldName, "");
            EXPECT_EQ(p.Container[0].Columns, (std::vector<std::uint32_t>{2, 0, 1}));
        }
    }
    Parameter bad;
    bad.Parse = "A:double:0,B:int:+1++2";
    EXPECT_THROW(parseUserInputToContainer(bad), std::invalid_argument);
    EXPECT_EQ(bad.Container.size(), 1u);  // the entries before the throw stay
    bad.Parse = "A:int:99999999999";
    EXPECT_THROW(parseUserInputToContainer(bad), std::out_of_range);
}

// OnFragment sees the very chunk that becomes the fragment: what it changes is in the grid.
TEST(Convert, OnFragmentEditsTheChunkThatBecomesTheFragment) {
    TempDir dir;
    Grid grid;
    Parameter p = tableParameter({dir.write("heights.txt", "1\n2\n3\n")}, "H:double:0", 2);
    p.OnFragment = [](const ChunkPtr& chunk, const std::string&, const std::string&) {
        for (double& h : *dynamic_cast<Ravelin::Chunk<double>*>(chunk.get())) h = -h;
    };
    EXPECT_EQ(ascii2z9(grid, p), "");
    EXPECT_EQ(fieldValues<double>(grid, "H"), (std::vector<double>{-1, -2, -3}));
}

TEST(Convert, WaysOutOfTheEntryAndWhatTheGridHolds) {
    TempDir dir;
    {  // wrong parse string: nothing reaches the grid
        Grid grid;
        Parameter p = tableParameter({}, "A:point");
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
        auto* code = dynamic_cast<Ravelin::Chunk<int>*>(grid.attributes().getAttribute("EPSG").get());
        EXPECT_EQ(code ? code->vector() : std::vector<int>{}, std::vector<int>{25832});
        EXPECT_GT(grid.timeStamp(), before);
        ASSERT_EQ(grid.notes().size(), 1u);
        EXPECT_EQ(grid.notes()[0].converter, "ascii2z9");
        EXPECT_EQ(grid.notes()[0].text, p.speak());
    }
    {  // empty parse string, EPSG 0: no attribute, no time stamp
        Grid grid;
        Parameter p = tableParameter({"x"}, "");
        p.EPSG = 0;
        EXPECT_EQ(ascii2z9(grid, p), "Ascii2Z9::run: container typeid field-name and column-number");
        EXPECT_EQ(grid.attributes().size(), 0u);
        EXPECT_EQ(grid.timeStamp(), 0u);
        EXPECT_EQ(grid.notes().size(), 1u);
    }
    {  // a stop by the progress object: the flushed rows, the attribute and the info stay
        struct StopAtThird : Ravelin::LoaderProgress {
            int reports = 0;
            bool report(const std::string& message, std::uint32_t, std::uint32_t) override {
                EXPECT_EQ(message, "Read line nr.:");
                return ++reports < 3;
            }
        };
        Grid grid;
        Parameter p = tableParameter({dir.write("s.txt", "0\n1\n2\n3\n")}, "V:int:0", 1);
        p.Progress = new StopAtThird;
        p.EPSG = 1;
        EXPECT_EQ(ascii2z9(grid, p), "Ascii2Z9::run: user interruption");
        EXPECT_EQ(fragmentNames(grid, "V"), (std::vector<std::string>{"s0", "s1"}));
        EXPECT_FALSE(grid.attributes().getAttribute("EPSG").isNull());
        EXPECT_EQ(grid.notes().size(), 1u);
    }
    {  // an exception leaves before the info is noted
        Grid grid;
        Parameter p = tableParameter({dir.write("x.txt", "1 2 3\nx 2 3\n")});
        EXPECT_THROW(ascii2z9(grid, p), std::invalid_argument);
        EXPECT_TRUE(grid.notes().empty());
    }
}

TEST(Convert, ALocaleWithADecimalCommaIsHonouredAsTheStandardFunctionsDo) {
    const std::string previous = std::setlocale(LC_NUMERIC, nullptr);
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr) GTEST_SKIP() << "locale de_DE.UTF-8 is not installed";
    TempDir dir;
    Grid grid;
    Parameter p = tableParameter({dir.write("de.txt", "1.5 2,5 3 2,25\n")}, "Positions:point:0+1+2,F:float:3", 4);
    const std::string result = ascii2z9(grid, p);
    std::setlocale(LC_NUMERIC, previous.c_str());
    EXPECT_EQ(result, "");
    EXPECT_EQ(fieldValues<Tessel::Point>(grid, "Positions"),
              (std::vector<Tessel::Point>{Quillon::make<Tessel::Point>(1.0, 2.5, 3.0)}));  // stod stops at the '.'
    EXPECT_EQ(fieldValues<float>(grid, "F"), std::vector<float>{2.25f});
}
