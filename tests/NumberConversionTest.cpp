// The fast number conversion against the standard functions on the tokens
// where it can go wrong (NumberTokens.hpp).
#include <gtest/gtest.h>

#include <cfenv>

#include "NumberTokens.hpp"

// The standard functions round as the calling thread's rounding mode says;
// the fast way rounds to nearest and must step aside under any other mode.
TEST(NumberConversion, HardTokensGiveTheStandardBitsOrExceptionUnderEveryRoundingMode) {
    const double nearest = Pallion::standardNumber<double>("0.1");
    for (const int mode : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        ASSERT_EQ(std::fesetround(mode), 0);
        const bool modeMatters = mode == FE_TONEAREST || Pallion::standardNumber<double>("0.1") != nearest ||
                                 Pallion::standardNumber<double>("-0.1") != -nearest;
        std::vector<std::string> differing;
        for (const std::string token : numbertokens::HardTokens)
            if (!numbertokens::sameAsStandard<double>(token) || !numbertokens::sameAsStandard<float>(token) ||
                !numbertokens::sameAsStandard<int>(token))
                differing.push_back(token);
        std::fesetround(FE_TONEAREST);
        EXPECT_TRUE(modeMatters) << "rounding mode " << mode;
        for (const std::string& token : differing)
            ADD_FAILURE() << "rounding mode " << mode << ": converts unlike the standard function: \"" << token << '"';
    }
}
