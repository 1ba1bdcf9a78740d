// The fast number conversion against the standard functions on the tokens
// where it can go wrong; bench/number_diff and the fuzz target run the same
// comparison over random tokens.
#include <gtest/gtest.h>

#include "NumberTokens.hpp"

TEST(NumberConversion, HardTokensGiveTheSameBitsOrExceptionAsTheStandardFunctions) {
    for (const std::string token : numbertokens::HardTokens) {
        EXPECT_TRUE(numbertokens::sameAsStandard<double>(token)) << "double: \"" << token << '"';
        EXPECT_TRUE(numbertokens::sameAsStandard<float>(token)) << "float: \"" << token << '"';
        EXPECT_TRUE(numbertokens::sameAsStandard<int>(token)) << "int: \"" << token << '"';
    }
}
