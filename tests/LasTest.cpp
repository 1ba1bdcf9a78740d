// The LAS writer's parts that the read-back through another reader
// (tests/las_outputs.py) does not reach: the --las-scale text, the decimals
// of a double, and a grid whose fields differ in length.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "TestSupport.hpp"
#include "pallion/Pallion.hpp"
#include "pallion/tools/LasWriter.hpp"

namespace {

TEST(Las, ScaleText) {
    using Scale = std::array<double, 3>;
    const struct {
        const char* text;
        std::optional<Scale> scale;
    } cases[] = {
        {"0.001", Scale{0.001, 0.001, 0.001}},
        {"0.01,0.01,1e-3", Scale{0.01, 0.01, 0.001}},
        {"", std::nullopt},
        {"0", std::nullopt},
        {"-0.01", std::nullopt},
        {"0.01x", std::nullopt},
        {"0.01,0.01", std::nullopt},
        {"1,2,3,4", std::nullopt},
        {"1,,3", std::nullopt},
        {"inf", std::nullopt},
        {"nan", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(Pallion::Tools::parseLasScale(c.text), c.scale) << c.text;
}

TEST(Las, DecimalsOfADouble) {
    const struct {
        double value;
        int decimals;
    } cases[] = {
        {0, 0},
        {-17, 0},
        {0.1, 1},
        {-2.5, 1},
        {5800000.123, 3},
        {0.000000001, 9},
        {0.123456789, 9},
        {1e-10, -1},
        {0.1 + 0.2, -1},
        {4503599627.37049, 5},
        {90071992547.409921, -1},
        {1e15, 0},
        {123456.78901, 5},
        {std::nan(""), -1},
    };
    for (const auto& c : cases) EXPECT_EQ(Pallion::Tools::decimalsOf(c.value), c.decimals) << c.value;
}

// Two tables converted into one grid: the point field has the rows of both,
// the intensity those of the first only; a LAS record needs both.
TEST(Las, FieldsOfDifferentCountsRefused) {
    const testsupport::TempDir dir;
    Tessel::Grid grid;
    Pallion::Parameter first =
        testsupport::tableParameter({dir.write("a.txt", "1 2 3 10\n4 5 6 20\n")}, "P:point:0+1+2,Intensity:uint16_t:3");
    ASSERT_EQ(Pallion::ascii2z9(grid, first), "");
    Pallion::Parameter second = testsupport::tableParameter({dir.write("b.txt", "7 8 9\n")}, "P:point:0+1+2");
    ASSERT_EQ(Pallion::ascii2z9(grid, second), "");
    const std::string file = (dir.path() / "g.las").string();
    EXPECT_EQ(Pallion::Tools::writeLas(grid, file).failure,
              "cannot write " + file +
                  ": a LAS point record takes one element of every field, but the fields' element counts differ: P "
                  "3, Intensity 2");
    EXPECT_FALSE(std::filesystem::exists(file));
}

}  // namespace
