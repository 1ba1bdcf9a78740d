// Text table conversion: parameters, parse string, and what the entry leaves
// in the grid; the rows themselves are held against the plain reading in
// ReadingDifferentialTest.cpp.
#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <functional>

#include "ReferenceConversion.hpp"
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

namespace {

struct Readings {
    bool whole = false, whitespace = false, empty = false, comma = false;
    std::string comment = "";
};

void apply(Parameter& p, const Readings& r) {
    p.WholeTokens = r.whole;
    p.Whitespace = r.whitespace;
    p.SkipEmptyLines = r.empty;
    p.DecimalComma = r.comma;
    p.CommentPrefix = r.comment;
}

// The same number's bits, so that -0 and 0 or two NaNs are told apart as they are stored.
bool sameBits(const std::vector<Tessel::Point>& a, const std::vector<Tessel::Point>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(Tessel::Point)) == 0;
}

}  // namespace

// Each reading of one table, written the way the reading expects, gives the
// values of the plain table of the same numbers, bit for bit.
TEST(Readings, EachDialectGivesThePlainTablesValues) {
    struct Case {
        const char* name;
        std::string text;
        Readings readings;
        char delimiter = ' ';
    };
    const std::string plain = "1.5 -2 3e2\n4.25 5 -0.1\n";
    const Case cases[] = {
        {"runs of blanks", "  1.5\t -2   3e2 \n4.25  5\t\t-0.1\n", {.whitespace = true}},
        {"long runs",
         "1.5          \t   -2\t\t\t\t\t\t\t\t\t3e2\n          4.25 \t \t \t \t \t5 -0.1\n",
         {.whitespace = true}},
        {"runs of blanks, CRLF", "1.5  -2 3e2\r\n 4.25 5 -0.1 \r\n", {.whitespace = true}},
        {"aligned, trailing blanks, whole",
         "         1.5          -2         3e2    \n        4.25           5        -0.1\t \n",
         {.whole = true, .whitespace = true}},
        {"comments", "# x y z\n1.5 -2 3e2\n#1 2 3\n4.25 5 -0.1\n", {.comment = "#"}},
        {"comment behind blanks", "  // x\n1.5  -2 3e2\n4.25 5 -0.1\n", {.whitespace = true, .comment = "//"}},
        {"empty lines", "\n1.5 -2 3e2\n\n  \t\n\r\n4.25 5 -0.1\n\n\n", {.empty = true}},
        {"decimal comma", "1,5;-2;3e2\n4,25;5;-0,1\n", {.comma = true}, ';'},
        {"decimal comma, blanks", "1,5  -2 3e2\n4,25 5\t-0,1\n", {.whitespace = true, .comma = true}},
        {"whole, padded", "1.5 , -2 ,3e2\n 4.25,5\t,-0.1 \r\n", {.whole = true}, ','},
        {"whole, tab-delimited CRLF", "1.5\t-2\t3e2\r\n4.25\t5\t-0.1\r\n", {.whole = true}, '\t'},
        {"everything",
         "# h\n\n  1,5\t-2  3e2\r\n\n4,25 5 -0,1\n  \n",
         {.whole = true, .whitespace = true, .empty = true, .comma = true, .comment = "#"}},
    };
    TempDir dir;
    Grid reference;
    Parameter r = tableParameter({dir.write("plain.txt", plain)}, "Positions:point:0+1+2", 1);
    ASSERT_EQ(ascii2z9(reference, r), "");
    const auto expected = fieldValues<Tessel::Point>(reference, "Positions");
    ASSERT_EQ(expected.size(), 2u);
    for (const Case& c : cases) {
        for (std::uint32_t block : {1u, 1000u}) {  // a row at a block's end takes the standard way
            Grid grid;
            Parameter p = tableParameter({dir.write("t.txt", c.text)}, "Positions:point:0+1+2", block);
            p.Delimiter = c.delimiter;
            apply(p, c.readings);
            EXPECT_EQ(ascii2z9(grid, p), "") << c.name;
            EXPECT_TRUE(sameBits(fieldValues<Tessel::Point>(grid, "Positions"), expected)) << c.name;
            EXPECT_EQ(p.Failure.Kind, FailureKind::None) << c.name;
        }
    }
}

// Each kind of token the whole-token check refuses, with its text and record,
// behind a header, a comment and an empty line that the line number counts;
// and tokens it takes, with their values.
TEST(Readings, WholeTokensRefuseEachKindWithItsText) {
    struct Case {
        std::string type, token, said, stored;  // said: "" for a token taken, with `stored` its value
        FailureKind kind = FailureKind::TokenInvalid;
    };
    const std::string notWhole = "not a number in full for ", range = "out of range for ";
    const Case cases[] = {
        {"int", "1e2", notWhole, "1"},
        {"int", "0x10", notWhole, "0"},
        {"int", "5.9", notWhole, "5"},
        {"int", "12abc", notWhole, "12"},
        {"int", "- 5", notWhole, "invalid_argument"},
        {"uint32_t", "-5", range, "4294967291", FailureKind::TokenOutOfRange},
        {"uint8_t", "300", range, "44", FailureKind::TokenOutOfRange},
        {"rgb", "256", range, "0", FailureKind::TokenOutOfRange},
        {"uint16_t", "70000", range, "4464", FailureKind::TokenOutOfRange},
        {"int", "3000000000", range, "out_of_range", FailureKind::TokenOutOfRange},
        {"float", "3.5kg", notWhole, "3.5"},
        {"double", "-65.089279:", notWhole, "-65.089279"},
        {"double", "0x1p3", notWhole, "8"},
        {"double", "abc", notWhole, "invalid_argument"},
        {"float", "1e39", range, "out_of_range", FailureKind::TokenOutOfRange},
        {"double", "1e-320", range, "out_of_range", FailureKind::TokenOutOfRange},
        {"uint32_t", "4294967295", "", "4294967295"},
        {"uint8_t", " +255\t", "", "255"},
        {"int", "-2147483648", "", "-2147483648"},
        {"double", " -0.25 ", "", "-0.25"},
        {"float", "inf", "", "inf"},
    };
    TempDir dir;
    for (const Case& c : cases) {
        const bool triple = c.type == "rgb";
        const std::string parse = "V:" + c.type + ":1" + (triple ? "+0+0" : "");
        const std::string file = dir.write("w.txt", "a;b\n#c\n\n7;" + c.token + "\n");
        Grid grid;
        Parameter p = tableParameter({file}, parse, 4);
        p.Delimiter = ';';
        p.HeaderLines = 1;
        apply(p, {.whole = true, .empty = true, .comment = "#"});
        const std::string result = ascii2z9(grid, p);
        if (c.said.empty()) {
            EXPECT_EQ(result, "") << c.token;
            EXPECT_EQ(p.LineCount, 1u) << c.token;
            const auto first = [&]<class T>() { return numberText(fieldValues<T>(grid, "V").at(0)); };
            const std::string got = c.type == "uint32_t"  ? first.operator()<unsigned>()
                                    : c.type == "uint8_t" ? first.operator()<unsigned char>()
                                    : c.type == "int"     ? first.operator()<int>()
                                    : c.type == "double"  ? first.operator()<double>()
                                                          : first.operator()<float>();
            EXPECT_EQ(got, c.stored) << c.token;
            continue;
        }
        const bool throws = c.stored == "invalid_argument" || c.stored == "out_of_range";
        const std::string tail =
            throws ? "; the plain reading throws std::" + c.stored : "; it would be stored as " + c.stored;
        EXPECT_EQ(result, "Ascii2Z9::run: " + c.said + c.type + ": \"" + c.token +
                              "\" in column 1 of line 4 of file: " + file + tail);
        const FailureRecord& f = p.Failure;
        EXPECT_EQ(f.Kind, c.kind) << c.token;
        EXPECT_EQ(f.File, file);
        EXPECT_EQ(f.Line, 4u) << c.token;
        EXPECT_EQ(f.Column, 1) << c.token;
        EXPECT_EQ(f.Token, c.token);
        EXPECT_EQ(f.Type, c.type);
        EXPECT_EQ(f.Stored, throws ? "" : c.stored) << c.token;
        EXPECT_EQ(p.LineCount, 0u) << c.token;
    }
}

// The record of each way a conversion can fail, the texts of the plain
// reading unchanged; a standard exception still leaves, after the record.
TEST(Readings, TheRecordTellsEveryFailure) {
    struct StopAtSecond : Ravelin::LoaderProgress {
        int calls = 0;
        bool report(const std::string&, std::uint32_t, std::uint32_t) override { return ++calls < 2; }
    };
    struct Case {
        const char* name;
        std::string text, parse = "Positions:point:0+1+2";
        std::function<void(Parameter&)> adjust = {};
        FailureKind kind;
        std::uint64_t line = 0;
        std::int64_t column = -1;
        std::string token = "", thrown = "";
        std::uint64_t highest = 0, tokens = 0;
    };
    TempDir dir;
    const std::string missing = (dir.path() / "missing.txt").string();
    const Case cases[] = {
        {.name = "no files",
         .text = "",
         .adjust = [](Parameter& p) { p.Files = nullptr; },
         .kind = FailureKind::Arguments},
        {.name = "wrong parse string", .text = "", .parse = "a:b", .kind = FailureKind::Arguments},
        {.name = "no column number", .text = "", .parse = "a:int:x", .kind = FailureKind::Arguments, .thrown = "stoi"},
        {.name = "missing file",
         .text = "",
         .adjust = [&](Parameter& p) { p.Files = testsupport::fileList({missing}); },
         .kind = FailureKind::CannotOpen},
        {.name = "too few tokens",
         .text = "x y z\n1 2 3\n4 5\n",
         .adjust = [](Parameter& p) { p.HeaderLines = 1; },
         .kind = FailureKind::TooFewTokens,
         .line = 3,
         .highest = 2,
         .tokens = 2},
        {.name = "too few, comments counted",
         .text = "#\n1 2 3\n#\n\n4 5\n",
         .adjust = [](Parameter& p) { p.CommentPrefix.assign(1, '#'), p.SkipEmptyLines = true; },
         .kind = FailureKind::TooFewTokens,
         .line = 5,
         .highest = 2,
         .tokens = 2},
        {.name = "line too long",
         .text = "1 2 3\n1 2 3 4 5 6 7 8\n",
         .adjust = [](Parameter& p) { p.LineSizeLimit = 10; },
         .kind = FailureKind::LineTooLong,
         .line = 2},
        {.name = "interrupted",
         .text = "1 2 3\n4 5 6\n7 8 9\n",
         .adjust = [](Parameter& p) { p.Progress = new StopAtSecond; },
         .kind = FailureKind::Interrupted,
         .line = 2},
        {.name = "no number",
         .text = "1 2 3\n1 2 x\n",
         .kind = FailureKind::TokenInvalid,
         .line = 2,
         .column = 2,
         .token = "x",
         .thrown = "stod"},
        {.name = "beyond int",
         .text = "1 2 3 4\n1 2 3 99999999999\n",
         .parse = "P:point:0+1+2,I:int:3",
         .kind = FailureKind::TokenOutOfRange,
         .line = 2,
         .column = 3,
         .token = "99999999999",
         .thrown = "stoi"},
        {.name = "decimal comma, no number",
         .text = "1,5;2;3\n1;;3\n",
         .adjust = [](Parameter& p) { p.DecimalComma = true, p.Delimiter = ';'; },
         .kind = FailureKind::TokenInvalid,
         .line = 2,
         .column = 1,
         .token = "",
         .thrown = "stod"},
    };
    for (const Case& c : cases) {
        Grid grid;
        Parameter p = tableParameter({dir.write("r.txt", c.text)}, c.parse, 1);
        p.Failure.Kind = FailureKind::ReadFailed;  // from an earlier run: the conversion starts afresh
        if (c.adjust) c.adjust(p);
        std::string thrown;
        try {
            EXPECT_NE(ascii2z9(grid, p), "") << c.name;
        } catch (const std::logic_error& e) {
            thrown = e.what();
        }
        const FailureRecord& f = p.Failure;
        EXPECT_EQ(thrown, c.thrown) << c.name;
        EXPECT_EQ(f.Kind, c.kind) << c.name;
        EXPECT_EQ(f.Line, c.line) << c.name;
        EXPECT_EQ(f.Column, c.column) << c.name;
        EXPECT_EQ(f.Token, c.token) << c.name;
        EXPECT_EQ(f.HighestColumn, c.highest) << c.name;
        EXPECT_EQ(f.TokensInLine, c.tokens) << c.name;
        if (c.kind != FailureKind::Arguments) {
            EXPECT_EQ(f.File, c.kind == FailureKind::CannotOpen ? missing : p.CurrentFile) << c.name;
        }
    }
    Grid grid;
    Parameter p = tableParameter({dir.write("ok.txt", "1 2 3\n")});
    p.Failure.Kind = FailureKind::TokenInvalid;
    EXPECT_EQ(ascii2z9(grid, p), "");
    EXPECT_EQ(p.Failure.Kind, FailureKind::None);
}

// Real tables under the opt-in readings, against the plain reading's
// reference: the messy table converts (header skipped, its empty lines too,
// blanks around each comma; the fourth token of its first row is read by no
// column and left alone), the .pts table is refused at its stray colon.
TEST(Readings, RealTablesConvertOrAreRefusedAtTheirLine) {
    const auto dir = testsupport::realDataDir();
    if (dir.empty()) GTEST_SKIP() << "the real tables (../shared/data/real beside the project) are absent";
    struct Case {
        std::string file, parse;
        char delimiter;
        std::uint64_t rows;
        std::string expected;  // {file} stands for the file's path
    };
    const std::string point = "Positions:point:0+1+2";
    const Case cases[] = {
        {"pdal_utm17_3_messy.txt", point, ',', 11, ""},
        {"pdal_crlf_test.txt", point, ',', 10, ""},
        {"jfm_rock_face_xyzrgb.txt", point + ",Colour:rgb:3+4+5", ' ', 1133, ""},
        {"open3d_bunnyData.pts", point, ' ', 30571, ""},
        {"open3d_point_cloud_sample3.pts", point, ' ', 9,
         "Ascii2Z9::run: not a number in full for point: \"-65.089279:\" in column 2 of line 11 of file: {file}; it "
         "would be stored as -65.089279"},
    };
    for (const Case& c : cases) {
        const std::string path = (dir / c.file).string();
        const reference::Settings settings{.files = {path},
                                           .headerLines = 1,
                                           .parse = c.parse,
                                           .delimiter = c.delimiter,
                                           .chunkSize = 4096,
                                           .wholeTokens = true,
                                           .skipEmptyLines = true};
        const reference::Outcome got = reference::libraryReading(settings);
        EXPECT_EQ(got, reference::plainReading(settings)) << c.file;
        std::string expected = c.expected;
        if (const auto at = expected.find("{file}"); at != std::string::npos) expected.replace(at, 6, path);
        EXPECT_EQ(got.result, expected) << c.file;
        EXPECT_EQ(got.lineCount, c.rows) << c.file;
    }
}
