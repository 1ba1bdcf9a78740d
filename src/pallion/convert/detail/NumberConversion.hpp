// Converting one token to a number, bit for bit as std::stod, std::stof and
// std::stoi do it, at the speed of the best number parsers.
//
// Each fast function takes the token's bytes [first, last) and gives true, the
// value and the end of the number only when the token has a shape whose value
// the standard function is certain to give as well:
//   - double and float: an optional '-', then a digit or a '.', the value a
//     finite normal number, or a zero whose digits are all zero;
//   - int: an optional '-' and decimal digits whose value fits 32 bits.
// Everything else gives false: leading white space, a '+', hexadecimal
// ("0x1p3" is 8 to std::stod), "inf" and "nan" in every spelling, values that
// overflow, and subnormal or underflowing values, for which glibc reports
// ERANGE.  The caller then asks the standard function, which gives the same
// value or throws its own exception.
//
// What follows the number is never looked at, as with the standard functions:
// "12abc" is 12 and "3.5\r" is 3.5.
//
// The standard functions follow the locale's decimal point (LC_NUMERIC); the
// fast functions always read '.'.  They are therefore used only while
// decimalPointIsDot() holds; convertNumber checks it on every call.
#pragma once

#include <string_view>

namespace Pallion {

// True when the calling thread's locale writes the decimal point as '.'.
bool decimalPointIsDot() noexcept;

bool fastDouble(const char* first, const char* last, double& value, const char*& end) noexcept;
bool fastFloat(const char* first, const char* last, float& value, const char*& end) noexcept;
bool fastInt(const char* first, const char* last, int& value, const char*& end) noexcept;

// The value of `token` as std::stod (C double), std::stof (C float) or std::stoi
// (C int) gives it, with the same exception where they throw one.
template <class C>
C convertNumber(std::string_view token);

extern template double convertNumber<double>(std::string_view);
extern template float convertNumber<float>(std::string_view);
extern template int convertNumber<int>(std::string_view);

}  // namespace Pallion
