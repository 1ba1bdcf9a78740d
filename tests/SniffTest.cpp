// The hosts' defaults: the dialect the sniffer picks, the files of a list held against the first, rows in file
// order, and the real tables converted with the defaults to the values their text holds.
#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>

#include "TestSupport.hpp"
#include "pallion/Pallion.hpp"
#include "pallion/tools/Preflight.hpp"
#include "pallion/tools/Sniff.hpp"

namespace {

using Pallion::Tools::TableOptions;
using Pallion::Tools::WhitespaceDelimiter;

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Resolves `options` and converts as a host does; gives the failure (sniffer's or library's) or "".
std::string convertAsHost(Tessel::Grid& grid, const TableOptions& options, Pallion::Tools::Resolved* out = nullptr) {
    const auto resolved = Pallion::Tools::resolveOptions(options);
    if (out) *out = resolved;
    if (!resolved.failure.empty()) return resolved.failure;
    Pallion::Parameter p;
    Pallion::Tools::fillParameter(p, options, resolved, Pallion::Tools::judgedRows(options.files));
    try {
        return Pallion::ascii2z9(grid, p);
    } catch (const std::exception& e) {
        return std::string("exception: ") + e.what();
    }
}

// The points of the field, each component in the shortest text that reads back to it.
std::string pointsText(const Tessel::Grid& grid) {
    if (grid.field("Positions").isNull()) return "";
    std::string out;
    for (const auto& p : testsupport::fieldValues<Tessel::Point>(grid, "Positions"))
        for (std::size_t i = 0; i < 3; ++i) {
            char text[32];
            out.append(text, std::to_chars(text, text + sizeof text, p[i]).ptr) += i < 2 ? ' ' : ';';
        }
    return out;
}

}  // namespace

// What each table makes of the options left to guess: the dialect, the header and the fields, or the refusal.
TEST(HostSniff, DialectNamesAndRefusalsFromTheFirstLines) {
    testsupport::TempDir dir;
    struct Case {
        std::string content;
        char delimiter;
        std::uint32_t header;
        std::string parse;  // or a part of the failure
        std::string comments = {};
        bool decimalComma = false;
        std::string named = {};  // the parse string as named, "auto" where empty
    };
    const std::string xyz = "Positions:point:0+1+2";
    const std::vector<Case> cases = {
        {"  1.000    2.000   3.000\n 14.000   25.000  36.000\n", WhitespaceDelimiter, 0, xyz, ""},
        {"   289814.15\t4320978.61  170.76\n", WhitespaceDelimiter, 0, xyz, ""},
        {"1 2 3\n\n4 5 6\n\n", ' ', 0, xyz, ""},
        {"# lidar export\n# x y z\n1  2 3\n4 5  6\n", WhitespaceDelimiter, 0, xyz, "#"},
        {"//X Y Z I\n1 2 3 4\n", ' ', 0, xyz + ",I:double:3", "//"},
        {"# made by hand\n\nx;y;z\n1;2;3\n", ';', 3, xyz, "#"},
        {"# 2 columns only\n1 2 3\n", ' ', 0, xyz, "#"},  // the comment's count is not the data's: no names
        {"512348,123;5403210,456;312,5\n", ';', 0, xyz, "", true},
        {"1,5;2,5;3,5\n", ';', 0, xyz, "", true},
        {"289814,15 4320978,61 170,76\n", ' ', 0, xyz, "", true},
        {"1, 2, 3\n4, 5, 6\n", ',', 0, xyz, ""},
        {"x y z a a\n1 2 3 4 5\n", ' ', 1, xyz + ",a:double:3,a.1:double:4", ""},
        {"Positions x y z\n9 1 2 3\n", ' ', 1, "Positions:point:1+2+3,Positions.1:double:0", ""},
        {"1 2 3 4 5\n6 7 8 9 10\n", ' ', 0, xyz + ",Column3:double:3,Column4:double:4", ""},
        {"2\n1 2 3 9\n4 5 6 9\n", ' ', 1, xyz + ",Intensity:float:3", ""},
        {"x,y,z\n1,5,2,5,3,5\n", ',', 1, "the header (line 1) has 3 name(s), but the data has 6 column(s) (line 2)",
         ""},
        {"x y z\r1 2 3\r4 5 6\r", ' ', 0, "has CR-only line ends", ""},
        {"1 2 3\n", ' ', 0, "the field \"A\" is named by two entries (\"A:double:0\" and \"A:float:1\")", "", false,
         "A:double:0,A:float:1"},
    };
    for (const Case& c : cases) {
        TableOptions options;
        options.files = {dir.write("t.txt", c.content)};
        if (!c.named.empty()) options.parse = c.named;
        const auto resolved = Pallion::Tools::resolveOptions(options);
        if (!resolved.failure.empty()) {
            EXPECT_TRUE(has(resolved.failure, c.parse)) << c.content << ": " << resolved.failure;
            continue;
        }
        EXPECT_EQ(resolved.delimiter, c.delimiter) << c.content;
        EXPECT_EQ(resolved.headerLines, c.header) << c.content;
        EXPECT_EQ(resolved.parse, c.parse) << c.content;
        EXPECT_EQ(resolved.commentPrefix, c.comments) << c.content;
        EXPECT_EQ(resolved.decimalComma, c.decimalComma) << c.content;
        EXPECT_TRUE(resolved.skipEmptyLines && resolved.wholeTokens) << c.content;
        // Each guess is told.
        const auto told = [&](const std::string& start) {
            return std::ranges::any_of(resolved.guessed, [&](const auto& line) { return line.starts_with(start); });
        };
        EXPECT_EQ(told("comments: "), !c.comments.empty()) << c.content;
        EXPECT_EQ(told("decimal comma: "), c.decimalComma) << c.content;
        EXPECT_TRUE(told("delimiter: " + Pallion::Tools::delimiterName(c.delimiter))) << c.content;
    }

    // A header line is read whole, however long: 8000 names over 8000 columns.
    std::string header, row;
    for (int i = 0; i < 8000; ++i) {
        header.append(i ? " n" : "n").append(std::to_string(i));
        row.append(i ? " " : "").append(std::to_string(i));
    }
    TableOptions wide;
    wide.files = {dir.write("wide.txt", header + '\n' + row + '\n')};
    const auto resolved = Pallion::Tools::resolveOptions(wide);
    ASSERT_EQ(resolved.failure, "");
    ASSERT_EQ(resolved.headerNames.size(), 8000u);
    EXPECT_EQ(resolved.headerNames.back(), "n7999");
    EXPECT_TRUE(resolved.parse.ends_with(",n7999:double:7999")) << resolved.parse.substr(resolved.parse.size() - 40);
}

// Every later file is held against the first before anything is converted.
TEST(HostSniff, LaterFilesRefusedWhereTheyDifferFromTheFirst) {
    testsupport::TempDir dir;
    const std::string ha = dir.write("ha.txt", "x y z intensity\n1 2 3 0.5\n");
    const std::string plain = dir.write("plain.txt", "1 2 3\n4 5 6\n");
    for (const auto& [first, later, part] : std::vector<std::tuple<std::string, std::string, std::string>>{
             {ha, "z y x intensity\n30 20 10 0.7\n", "in another order (\"z\" \"y\" \"x\" \"intensity\")"},
             {ha, "x y z i\n1 2 3 0.5\n", "the header names \"x\" \"y\" \"z\" \"i\", but the first file"},
             {ha, "4 5 6 0.1\n", "line 1 is data, but the first file " + ha + " has a header there"},
             {plain, "x y z\n7 8 9\n", "line 1 is words (\"x\" \"y\" \"z\"), but the first file"},
             {plain, "1 2 3 4\n", "the data has 4 column(s) (line 1), but the first file " + plain + " has 3"},
             {ha, "x y z intensity\n7 8 9 0.25\n", ""},
         }) {
        TableOptions options;
        options.files = {first, dir.write("later.txt", later)};
        Tessel::Grid grid;
        const std::string failure = convertAsHost(grid, options);
        EXPECT_TRUE(part.empty() ? failure.empty() : has(failure, part)) << later << ": " << failure;
        // Refused before anything is read: no field at all.
        EXPECT_EQ(grid.fields().empty(), !part.empty()) << later;
    }
}

// The dialects the sniffer picks, converted with the host's defaults: exactly the values written, or refused.
TEST(HostDefaults, EachDialectConvertsToTheValuesWritten) {
    testsupport::TempDir dir;
    for (const auto& [content, want] : std::vector<std::pair<std::string, std::string>>{
             {"  1.250    2.500   3.750\n 14.000   25.000  36.000\n", "1.25 2.5 3.75;14 25 36;"},
             {"# lidar\n# x y z\n1  2 3\n\n4 5  6\n", "1 2 3;4 5 6;"},
             {"x y z\r\n1 2 3\r\n4 5 6\r\n\r\n", "1 2 3;4 5 6;"},
             {"512348,123;5403210,456;312,5\n", "512348.123 5403210.456 312.5;"},
             {"289814,15 4320978,61 170,76\n", "289814.15 4320978.61 170.76;"},
             {"x , y , z\n1 , 2 , 3\n", "1 2 3;"},
             {"1 2 3.5kg\n", "refused: 3.5kg"},
             {"-6.3 -13.9 -65.089279:\n", "refused: -65.089279:"},
         }) {
        TableOptions options;
        options.files = {dir.write("t.txt", content)};
        Tessel::Grid grid;
        const std::string failure = convertAsHost(grid, options);
        if (want.starts_with("refused: "))
            EXPECT_TRUE(has(failure, std::string(1, '"').append(want.substr(9)).append("\" in column 2 of line 1")) &&
                        pointsText(grid).empty())
                << content << ": " << failure;
        else
            EXPECT_EQ(failure + pointsText(grid), want) << content;
    }
}

// Two files whose fragment names meet (a11 block 0 and a1 block 10 are both a110): rows stay in file order,
// and the meeting is told.
TEST(HostDefaults, FragmentsKeepFileOrderWhenTheirNamesMeet) {
    testsupport::TempDir dir;
    std::string a11, a1;
    for (int i = 0; i < 2; ++i) a11 += std::to_string(i) + " 0 0\n";
    for (int i = 0; i < 11; ++i) a1 += std::to_string(100 + i) + " 0 0\n";
    auto p = testsupport::tableParameter({dir.write("a11.txt", a11), dir.write("a1.txt", a1)}, "P:point:0+1+2", 1);
    Tessel::Grid grid;
    ASSERT_EQ(Pallion::ascii2z9(grid, p), "");
    std::string xs;
    for (const auto& point : testsupport::fieldValues<Tessel::Point>(grid, "P"))
        xs += std::to_string(static_cast<int>(point[0])) + ' ';
    EXPECT_EQ(xs, "0 1 100 101 102 103 104 105 106 107 108 109 110 ");
    const auto shared = Pallion::Tools::sharedFragmentNames(grid);
    // The block count runs on across files: a11 gives a110 a111, a1 then a12 ... a110 a111 a112.
    ASSERT_EQ(shared.size(), 2u);
    EXPECT_TRUE(has(shared[0], "field P: the fragment name \"a110\" is stored 2 times")) << shared[0];
    EXPECT_TRUE(has(shared[1], "field P: the fragment name \"a111\" is stored 2 times")) << shared[1];
}

// The real tables with the host's defaults, each to the numbers its text holds.
TEST(HostDefaults, RealTablesConvertToTheirTextsValues) {
    const auto real = testsupport::realDataDir();
    if (real.empty()) GTEST_SKIP() << "the real tables (../shared/data/real beside the project) are absent";
    struct Table {
        std::string file;
        std::uint32_t header;
        std::vector<int> xyz;  // the columns of x, y, z
        std::string failure;   // a part of it, with the defaults; then converted with lenient
    };
    for (const Table& t : std::vector<Table>{
             {"pdal_utm17_1.txt", 1, {0, 1, 2}, ""},
             {"pdal_crlf_test.txt", 1, {0, 1, 2}, ""},
             {"pdal_crlf_test2.txt", 1, {0, 1, 2}, ""},
             {"pdal_quoted.txt", 1, {0, 1, 2}, ""},
             {"pdal_autzen_point_format_3.txt", 1, {2, 3, 5}, ""},
             {"jfm_rock_face_xyzrgb.txt", 1, {0, 1, 2}, ""},
             {"open3d_bunnyData.pts", 1, {0, 1, 2}, ""},
             // The first data row holds a fourth column the header does not name: it is not read.
             {"pdal_utm17_3_messy.txt", 1, {0, 1, 2}, ""},
             {"open3d_point_cloud_sample3.pts", 1, {0, 1, 2}, "line 11"},
         }) {
        const std::string path = (real / t.file).string();
        // The numbers as the text holds them: header lines and empty lines out, split at blanks and commas.
        std::vector<Tessel::Point> want;
        std::ifstream in(path, std::ios::binary);
        std::string line;
        for (std::uint32_t n = 0; std::getline(in, line); ++n) {
            if (n < t.header || line.find_first_not_of(" \r") == std::string::npos) continue;
            for (char& c : line)
                if (c == ',' || c == '\r' || c == ':') c = ' ';
            std::istringstream words(line);
            std::vector<double> values;
            for (double v; words >> v;) values.push_back(v);
            want.push_back(Quillon::make<Tessel::Point>(values.at(t.xyz[0]), values.at(t.xyz[1]), values.at(t.xyz[2])));
        }
        TableOptions options;
        options.files = {path};
        Pallion::Tools::Resolved resolved;
        Tessel::Grid grid;
        std::string failure = convertAsHost(grid, options, &resolved);
        EXPECT_EQ(resolved.headerLines, t.header) << t.file;
        Tessel::Grid lenient;
        if (!t.failure.empty()) {
            EXPECT_TRUE(has(failure, t.failure)) << t.file << ": " << failure;
            options.lenient = true;
            failure = convertAsHost(lenient, options);
        }
        ASSERT_EQ(failure, "") << t.file;
        const auto got = testsupport::fieldValues<Tessel::Point>(t.failure.empty() ? grid : lenient, "Positions");
        EXPECT_EQ(got.size(), want.size()) << t.file;
        EXPECT_TRUE(got == want) << t.file;
    }
}

// A lenient run's check of the first rows reads them in the dialect: comments, empty lines, runs of blanks and
// decimal commas give no warning, and the one token cut short is told at its line as an editor counts it.
TEST(HostDefaults, LenientCheckReadsTheRowsInTheDialect) {
    testsupport::TempDir dir;
    TableOptions options;
    options.files = {dir.write("t.txt", "# x y z\n  1,5   2,5  3,5\n\n  4,5   5,5  6,5kg\n  7,5   8,5  9,5\n")};
    options.lenient = true;
    const auto resolved = Pallion::Tools::resolveOptions(options);
    Pallion::Parameter p;
    Pallion::Tools::fillParameter(p, options, resolved, std::nullopt);
    EXPECT_FALSE(p.WholeTokens);
    const auto checked = Pallion::Tools::preflight(p);
    EXPECT_EQ(checked.rowsChecked, 3u);
    ASSERT_EQ(checked.count, 1u);
    EXPECT_EQ(checked.warnings[0].lineNumber, 4u);
    EXPECT_EQ(checked.warnings[0].token, "6.5kg");
}
