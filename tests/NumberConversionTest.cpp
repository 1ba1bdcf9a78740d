// The fast number conversion against the standard functions over a million
// generated tokens; bench/number_diff runs ten million and more.
#include <gtest/gtest.h>

#include <cfenv>
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
// The standard functions round as the calling thread's rounding mode says;
// the fast way rounds to nearest and must step aside under any other mode.
TEST(NumberConversion, FollowsTheRoundingModeOfTheCallingThread) {
    static const char* const tokens[] = {"3.14159265358979323846",
                                         "-3.14159265358979323846",
                                         "0.1",
                                         "-0.1",
                                         "512345.678",
                                         "-2.5e-3",
                                         "1e23",
                                         "0.30000000000000004",
                                         "7"};
    const double nearest = Pallion::standardNumber<double>("0.1");
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        ASSERT_EQ(std::fesetround(mode), 0);
        const bool modeMatters =
            Pallion::standardNumber<double>("0.1") != nearest || Pallion::standardNumber<double>("-0.1") != -nearest;
        std::vector<std::string> differing;
        for (const char* token : tokens)
            if (!numbertokens::sameAsStandard<double>(token) || !numbertokens::sameAsStandard<float>(token))
                differing.push_back(token);
        std::fesetround(FE_TONEAREST);
        EXPECT_TRUE(modeMatters) << "rounding mode " << mode;
        for (const std::string& token : differing)
            ADD_FAILURE() << "rounding mode " << mode << ": converts unlike the standard function: \"" << token << '"';
    }
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
