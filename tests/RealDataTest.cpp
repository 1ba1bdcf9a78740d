// Real tables written by others, converted by ascii2z9 and by the plain reading with the same
// outcome; skipped where the folder of real tables (../shared/data/real) is absent.
#include <gtest/gtest.h>

#include "ReferenceConversion.hpp"
#include "TestSupport.hpp"

namespace {

struct RealTable {
    std::string file, parse;
    char delimiter;
    std::uint32_t chunk;
    std::uint64_t rows;
    std::string expected;  // result text, or "kind: what()" of the exception
    std::uint32_t header = 1;
};

const std::string Point = "Positions:point:0+1+2";
const RealTable RealTables[] = {
    {"pdal_utm17_1.txt", Point, ',', 4096, 10, ""},
    {"pdal_crlf_test.txt", Point, ',', 4096, 10, ""},
    {"pdal_quoted.txt", Point, ',', 4096, 9, ""},
    {"pdal_crlf_test2.txt", Point + ",Intensity:uint16_t:3", ' ', 3, 10, ""},
    {"pdal_autzen_point_format_3.txt", "Positions:point:2+3+5,Colour:rgb:0+1+4", ',', 4096, 106, ""},
    {"jfm_rock_face_xyzrgb.txt", Point + ",Colour:rgb:3+4+5", ' ', 500, 1133, ""},
    {"open3d_bunnyData.pts", Point, ' ', 10000, 30571, ""},        // CRLF, exponents such as -3.7e-005
    {"open3d_point_cloud_sample3.pts", Point, ' ', 4096, 10, ""},  // a colon glued to the last number
    {"pdal_utm17_3_messy.txt", Point, ',', 4096, 0,
     "Ascii2Z9::run: User column index out of range: Highest Column Index: 2. Number of tokens in this line: 0"},
    {"pdal_utm17_1.txt", Point, ',', 4096, 0, "invalid_argument: stod", 0},  // the header read as a row
};

class RealData : public testing::TestWithParam<RealTable> {};

}  // namespace

TEST_P(RealData, ConvertsAsThePlainReading) {
    const auto dir = testsupport::realDataDir();
    if (dir.empty()) GTEST_SKIP() << "the real tables (../shared/data/real beside the project) are absent";
    const RealTable& table = GetParam();
    const reference::Settings settings{.files = {(dir / table.file).string()},
                                       .headerLines = table.header,
                                       .parse = table.parse,
                                       .delimiter = table.delimiter,
                                       .chunkSize = table.chunk};
    const reference::Outcome got = reference::libraryReading(settings);
    EXPECT_EQ(got, reference::plainReading(settings));
    EXPECT_EQ(got.exception.empty() ? got.result : got.exception, table.expected);
    EXPECT_EQ(got.lineCount, table.rows);
}

INSTANTIATE_TEST_SUITE_P(Tables, RealData, testing::ValuesIn(RealTables), [](const auto& info) {
    std::string name = std::to_string(info.index) + "_" + info.param.file;
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
});
