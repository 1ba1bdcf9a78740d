// Converting real tables written by others.  The values the library gives are
// held against an independent reading of the same file (line by line, strtod
// on each token).  Skips where the folder of real tables is absent.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "TestSupport.hpp"
#include "pallion/array/MemArray.hpp"
#include "pallion/convert/detail/Ascii2Z9.hpp"

using namespace Pallion;
using Tessel::Grid;

namespace {

#define REQUIRE_REAL_DATA()                          \
    const auto realDir = testsupport::realDataDir(); \
    if (realDir.empty()) GTEST_SKIP() << "the real tables (../shared/data/real beside the project) are absent"

// Tokens of each data line, read without the library: CR removed, split at the delimiter.
std::vector<std::vector<std::string>> oracle(const std::filesystem::path& file, char delimiter, int header) {
    std::ifstream in(file, std::ios::binary);
    std::vector<std::vector<std::string>> rows;
    std::string line;
    for (int i = 0; i < header; ++i) std::getline(in, line);
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        std::vector<std::string> tokens;
        std::stringstream stream(line);
        std::string token;
        while (std::getline(stream, token, delimiter)) tokens.push_back(token);
        rows.push_back(tokens);
    }
    return rows;
}

std::string convert(Grid& grid, const std::filesystem::path& file, const std::string& parse, char delimiter,
                    std::uint32_t header, std::uint32_t chunk = 4096) {
    Parameter p;
    p.Files = testsupport::fileList({file.string()});
    p.Parse = parse;
    p.Delimiter = delimiter;
    p.HeaderLines = header;
    p.ChunkSize = chunk;
    return ascii2z9(grid, p);
}

void expectPoints(const Grid& grid, const std::string& field, const std::vector<std::vector<std::string>>& rows, int x,
                  int y, int z) {
    auto points = testsupport::fieldValues<Tessel::Point>(grid, field);
    ASSERT_EQ(points.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(points[i][0], std::strtod(rows[i][x].c_str(), nullptr)) << "row " << i;
        EXPECT_EQ(points[i][1], std::strtod(rows[i][y].c_str(), nullptr)) << "row " << i;
        EXPECT_EQ(points[i][2], std::strtod(rows[i][z].c_str(), nullptr)) << "row " << i;
    }
}

}  // namespace

TEST(RealData, CommaTablesWithHeadersAndCrlf) {
    REQUIRE_REAL_DATA();
    for (const char* name : {"pdal_utm17_1.txt", "pdal_crlf_test.txt", "pdal_quoted.txt"}) {
        Grid grid;
        EXPECT_EQ(convert(grid, realDir / name, "Positions:point:0+1+2", ',', 1), "") << name;
        expectPoints(grid, "Positions", oracle(realDir / name, ',', 1), 0, 1, 2);
    }
    Grid grid;
    const auto file = realDir / "pdal_crlf_test2.txt";
    EXPECT_EQ(convert(grid, file, "Positions:point:0+1+2,Intensity:uint16_t:3", ' ', 1, 3), "");
    const auto rows = oracle(file, ' ', 1);
    expectPoints(grid, "Positions", rows, 0, 1, 2);
    auto intensity = testsupport::fieldValues<unsigned short>(grid, "Intensity");
    ASSERT_EQ(intensity.size(), 10u);
    EXPECT_EQ(intensity[9], 9);
    EXPECT_EQ(grid.field("Intensity")->fragments().size(), 4u);  // 3 + 3 + 3 + 1 rows
}

TEST(RealData, ColumnsOutOfOrderAndColours) {
    REQUIRE_REAL_DATA();
    Grid autzen;
    const auto file = realDir / "pdal_autzen_point_format_3.txt";
    EXPECT_EQ(convert(autzen, file, "Positions:point:2+3+5,Colour:rgb:0+1+4", ',', 1), "");
    expectPoints(autzen, "Positions", oracle(file, ',', 1), 2, 3, 5);

    Grid rock;
    const auto rockFile = realDir / "jfm_rock_face_xyzrgb.txt";
    EXPECT_EQ(convert(rock, rockFile, "Positions:point:0+1+2,Colour:rgb:3+4+5", ' ', 1, 500), "");
    const auto rows = oracle(rockFile, ' ', 1);
    ASSERT_EQ(rows.size(), 1133u);
    expectPoints(rock, "Positions", rows, 0, 1, 2);
    auto colours = testsupport::fieldValues<Tessel::Colour>(rock, "Colour");
    ASSERT_EQ(colours.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
        for (int c = 0; c < 3; ++c) EXPECT_EQ(colours[i][c], std::atoi(rows[i][3 + c].c_str())) << "row " << i;
    EXPECT_EQ(rock.field("Colour")->fragments().size(), 3u);
}

TEST(RealData, ExponentsCrlfAndGluedCharacters) {
    REQUIRE_REAL_DATA();
    Grid bunny;
    const auto file = realDir / "open3d_bunnyData.pts";
    EXPECT_EQ(convert(bunny, file, "Positions:point:0+1+2", ' ', 1, 10000), "");
    const auto rows = oracle(file, ' ', 1);
    ASSERT_EQ(rows.size(), 30571u);
    expectPoints(bunny, "Positions", rows, 0, 1, 2);

    Grid sample;
    EXPECT_EQ(convert(sample, realDir / "open3d_point_cloud_sample3.pts", "Positions:point:0+1+2", ' ', 1), "");
    auto points = testsupport::fieldValues<Tessel::Point>(sample, "Positions");
    ASSERT_EQ(points.size(), 10u);
    EXPECT_EQ(points[9][2], -65.089279);  // the colon glued to the number is ignored
}

TEST(RealData, FilesBreakingTheRulesFailWithTheirTexts) {
    REQUIRE_REAL_DATA();
    Grid messy;
    EXPECT_EQ(
        convert(messy, realDir / "pdal_utm17_3_messy.txt", "Positions:point:0+1+2", ',', 1),
        "Ascii2Z9::run: User column index out of range: Highest Column Index: 2. Number of tokens in this line: 0");
    ASSERT_FALSE(messy.field("Positions").isNull());
    EXPECT_TRUE(messy.field("Positions")->fragments().empty());

    Grid header;
    try {
        convert(header, realDir / "pdal_utm17_1.txt", "Positions:point:0+1+2", ',', 0);
        FAIL() << "the header line is no number";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "stod");
    }
}
