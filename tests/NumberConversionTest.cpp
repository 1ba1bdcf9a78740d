// The fast number conversion against the standard functions on the tokens
// where it can go wrong; bench/number_diff and the fuzz target run the same
// comparison over random tokens.
#include <gtest/gtest.h>

#include <cfenv>

#include "NumberTokens.hpp"

TEST(NumberConversion, HardTokensGiveTheSameBitsOrExceptionAsTheStandardFunctions) {
    for (const std::string token : numbertokens::HardTokens) {
        EXPECT_TRUE(numbertokens::sameAsStandard<double>(token)) << "double: \"" << token << '"';
        EXPECT_TRUE(numbertokens::sameAsStandard<float>(token)) << "float: \"" << token << '"';
        EXPECT_TRUE(numbertokens::sameAsStandard<int>(token)) << "int: \"" << token << '"';
    }
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
