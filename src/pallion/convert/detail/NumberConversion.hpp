// Token to number: the one conversion of a token into a component of a
// column, bit for bit as std::stod, std::stof and std::stoi do it, at the
// speed of the best number parsers.
//
// convertNumber<C> takes a fast way where the token has a shape whose value
// the standard function is certain to give as well:
//   - double and float: an optional '-', then a digit or a '.', the value a
//     finite normal number, or a zero whose digits are all zero; and only
//     while the locale writes the decimal point as '.' and the rounding mode
//     is round-to-nearest, both checked on every call;
//   - the integer types: an optional '-' and decimal digits whose value fits
//     an int.
// Everything else goes to standardNumber<C>: leading white space, a '+',
// hexadecimal ("0x1p3" is 8 to std::stod), "inf" and "nan" in every spelling,
// values that overflow, and subnormal or underflowing values, for which glibc
// reports ERANGE.  It gives the same value or throws its own exception.
//
// What follows the number is never looked at, as with the standard functions:
// "12abc" is 12 and "3.5\r" is 3.5.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>

#include "pallion/Extensions.hpp"

namespace Pallion {

// The value of `token` as standardNumber<C> gives it, with the same exception
// where it throws one.
template <class C>
C convertNumber(std::string_view token);

extern template double convertNumber<double>(std::string_view);
extern template float convertNumber<float>(std::string_view);
extern template int convertNumber<int>(std::string_view);
extern template unsigned char convertNumber<unsigned char>(std::string_view);
extern template unsigned short convertNumber<unsigned short>(std::string_view);
extern template unsigned int convertNumber<unsigned int>(std::string_view);

}  // namespace Pallion
