// The fast number conversion against the standard functions over a million
// generated tokens; bench/number_diff runs ten million and more.
#include <gtest/gtest.h>

#include <clocale>

#include "NumberTokens.hpp"

namespace {
#ifdef PALLION_SANITIZE
constexpr std::uint64_t TokenCount = 200'000;
#else
constexpr std::uint64_t TokenCount = 1'000'000;
#endif
}  // namespace

TEST(NumberConversion, GivesTheSameBitsOrExceptionAsTheStandardFunctions) {
    std::uint64_t fast = 0;
    const auto differing = numbertokens::differingTokens(20261123, TokenCount, 20, fast);
    for (const std::string& token : differing)
        ADD_FAILURE() << "converts unlike the standard function: \"" << token << '"';
    // The shapes must reach both paths, or the comparison proves little.
    EXPECT_GT(fast, TokenCount / 3);
    EXPECT_LT(fast, TokenCount * 9 / 10);
}
TEST(NumberConversion, LeavesADecimalCommaLocaleToTheStandardFunction) {
    const std::string previous = std::setlocale(LC_NUMERIC, nullptr);
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr && std::setlocale(LC_NUMERIC, "de_DE") == nullptr)
        GTEST_SKIP() << "no locale with a decimal comma is installed";
    const double point = Pallion::convertNumber<double>("1.5");
    const double comma = Pallion::convertNumber<double>("1,5");
    const float commaFloat = Pallion::convertNumber<float>("2,25");
    std::setlocale(LC_NUMERIC, previous.c_str());
    EXPECT_EQ(point, 1.0);  // the standard function stops at the '.'
    EXPECT_EQ(comma, 1.5);
    EXPECT_EQ(commaFloat, 2.25f);
}
