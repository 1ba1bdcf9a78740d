// Converting one token to a number, bit for bit as std::stod, std::stof and
// std::stoi do it, at the speed of std::from_chars.
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

#include <charconv>
#include <cmath>
#include <cstdint>
#include <langinfo.h>
#include <limits>
#include <string>
#include <string_view>
#include <system_error>

namespace Pallion {

// True when the calling thread's locale writes the decimal point as '.'.
inline bool decimalPointIsDot() noexcept {
    const char* radix = nl_langinfo(RADIXCHAR);
    return radix != nullptr && radix[0] == '.' && radix[1] == '\0';
}

namespace detail {

inline bool isDigit(char c) noexcept { return static_cast<unsigned char>(c - '0') < 10; }

// Whether the mantissa of the number in [first, end) has a digit other than 0,
// that is whether a result of zero came from underflow.
inline bool mantissaHasNonZeroDigit(const char* first, const char* end) noexcept {
    for (; first != end && *first != 'e' && *first != 'E'; ++first)
        if (*first >= '1' && *first <= '9') return true;
    return false;
}

template <class F>
inline bool fastFloating(const char* first, const char* last, F& value, const char*& end) noexcept {
    const char* p = first + (first != last && *first == '-');
    if (p == last || !(isDigit(*p) || *p == '.')) return false;
    F parsed;
    const auto [stop, error] = std::from_chars(first, last, parsed, std::chars_format::general);
    if (error != std::errc()) return false;
    if (stop != last && (*stop == 'x' || *stop == 'X')) return false;  // a hexadecimal number
    const F magnitude = std::fabs(parsed);
    if (magnitude > std::numeric_limits<F>::max()) return false;
    if (!(magnitude >= std::numeric_limits<F>::min()) && (magnitude != 0 || mantissaHasNonZeroDigit(first, stop)))
        return false;  // subnormal, or underflow to zero
    value = parsed;
    end = stop;
    return true;
}

}  // namespace detail

inline bool fastDouble(const char* first, const char* last, double& value, const char*& end) noexcept {
    return detail::fastFloating(first, last, value, end);
}

inline bool fastFloat(const char* first, const char* last, float& value, const char*& end) noexcept {
    return detail::fastFloating(first, last, value, end);
}

inline bool fastInt(const char* first, const char* last, int& value, const char*& end) noexcept {
    const bool negative = first != last && *first == '-';
    const char* p = first + negative;
    const char* digits = p;
    std::uint64_t magnitude = 0;
    for (; p != last && detail::isDigit(*p); ++p) {
        magnitude = magnitude * 10 + static_cast<unsigned>(*p - '0');
        if (magnitude > 2147483648ULL) return false;  // beyond 32 bits: the standard function throws
    }
    if (p == digits || (!negative && magnitude > 2147483647ULL)) return false;
    value = static_cast<int>(negative ? -static_cast<std::int64_t>(magnitude) : static_cast<std::int64_t>(magnitude));
    end = p;
    return true;
}

// The value of `token` as std::stod (C double), std::stof (C float) or std::stoi
// (C int) gives it, with the same exception where they throw one.
template <class C>
C convertNumber(std::string_view token) {
    const char* first = token.data();
    const char* last = first + token.size();
    C value{};
    const char* end = nullptr;
    if constexpr (std::is_same_v<C, double>) {
        if (decimalPointIsDot() && fastDouble(first, last, value, end)) return value;
        return std::stod(std::string(token));
    } else if constexpr (std::is_same_v<C, float>) {
        if (decimalPointIsDot() && fastFloat(first, last, value, end)) return value;
        return std::stof(std::string(token));
    } else {
        static_assert(std::is_same_v<C, int>, "numbers are read as double, float or int");
        if (fastInt(first, last, value, end)) return value;
        return std::stoi(std::string(token));
    }
}

}  // namespace Pallion
