// The fast half of the token conversion, inline for the row loop.  This header
// belongs to the library's own sources; NumberConversion.hpp is the public
// face and tells what the conversion takes and gives.
#pragma once

#include <cfenv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <system_error>
#include <type_traits>

#include <fast_float/fast_float.h>

#include "pallion/detail/Platform.hpp"

namespace Pallion::detail {

inline bool isDigit(char c) noexcept { return static_cast<unsigned char>(c - '0') < 10; }

// Whether the fast way gives the standard functions' floating-point values in
// the calling thread's present state: it reads '.' as the decimal point and
// rounds to nearest, as std::stod and std::stof do only under a locale that
// writes '.' and the rounding mode FE_TONEAREST.  Integers do not depend on
// either.
inline bool fastFloatingHolds() noexcept { return std::fegetround() == FE_TONEAREST && platform::decimalPointIsDot(); }

// Whether the mantissa of the number in [first, end) has a digit other than 0,
// that is whether a result of zero came from underflow.
inline bool mantissaHasNonZeroDigit(const char* first, const char* end) noexcept {
    for (; first != end && *first != 'e' && *first != 'E'; ++first)
        if (*first >= '1' && *first <= '9') return true;
    return false;
}

// Powers of ten that F holds exactly, and the largest integer below which F
// holds every integer.
template <class F>
struct ExactDecimal;
template <>
struct ExactDecimal<double> {
    static constexpr int maxExponent = 22;
    static constexpr std::uint64_t maxMantissa = std::uint64_t{1} << 53;
    static constexpr double powers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                        1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
};
template <>
struct ExactDecimal<float> {
    static constexpr int maxExponent = 10;
    static constexpr std::uint64_t maxMantissa = std::uint64_t{1} << 24;
    static constexpr float powers[] = {1e0f, 1e1f, 1e2f, 1e3f, 1e4f, 1e5f, 1e6f, 1e7f, 1e8f, 1e9f, 1e10f};
};

// The shape of most tables, [-]digits[.digits] with no exponent and few
// digits: when the digits as an integer and the power of ten of the fraction
// are both exact in F, their quotient is one correctly rounded division,
// which is the value the standard functions give under round-to-nearest.
// `Point` is the decimal separator: '.' for the standard functions' reading,
// ',' for a table written with decimal commas.
template <class F, char Point = '.'>
[[gnu::always_inline]] inline bool plainDecimal(const char* first, const char* last, F& value,
                                                const char*& end) noexcept {
    const bool negative = first != last && *first == '-';
    const char* p = first + negative;
    std::uint64_t mantissa = 0;
    const char* digits = p;
    for (; p != last && isDigit(*p); ++p) mantissa = mantissa * 10 + static_cast<unsigned>(*p - '0');
    auto count = p - digits;
    int fraction = 0;
    if (p != last && *p == Point) {
        const char* fractionDigits = ++p;
        for (; p != last && isDigit(*p); ++p) mantissa = mantissa * 10 + static_cast<unsigned>(*p - '0');
        fraction = static_cast<int>(p - fractionDigits);
        count += fraction;
    }
    // 19 digits never wrap the mantissa; an exponent or a hexadecimal number needs the full parser.
    if (count == 0 || count > 19 || fraction > ExactDecimal<F>::maxExponent || mantissa > ExactDecimal<F>::maxMantissa)
        return false;
    if (p != last && (*p == 'e' || *p == 'E' || *p == 'x' || *p == 'X')) return false;
    const F magnitude = static_cast<F>(mantissa) / ExactDecimal<F>::powers[fraction];
    value = negative ? -magnitude : magnitude;
    end = p;
    return true;
}

// The floating-point numbers that plainDecimal leaves (an exponent, many
// digits): the full parser, kept out of line, so that the row loops that
// inline fastNumber stay small and the compiler inlines it into every one.
template <class F, char Point>
[[gnu::noinline]] bool fullDecimal(const char* first, const char* last, F& value, const char*& end) noexcept {
    F parsed;
    const auto [stop, error] = fast_float::from_chars_advanced(
        first, last, parsed, fast_float::parse_options{fast_float::chars_format::general, Point});
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

// Converts the number at the start of [first, last) into C (double, float or
// one of the integer types) and gives its end, true only where the standard
// conversion is certain to give the same value (NumberConversion.hpp tells
// which tokens those are); false, with nothing written, where it decides.
// Floating-point values are exact only while fastFloatingHolds(), which the
// caller checks.  With `Point` ',' a floating-point number is read as the
// same text with '.' in place of ',' would be, and a '.' ends it.
// Always inlined: a row loop calls it for every token, and the many row loops
// of the opt-in readings would otherwise exhaust the compiler's inlining
// budget for their translation unit and call it out of line.
template <class C, char Point = '.'>
[[gnu::always_inline]] inline bool fastNumber(const char* first, const char* last, C& value,
                                              const char*& end) noexcept {
    if constexpr (std::is_floating_point_v<C>) {
        const char* p = first + (first != last && *first == '-');
        if (p == last || !(isDigit(*p) || *p == Point)) return false;
        if (plainDecimal<C, Point>(first, last, value, end)) return true;
        // Through locals of its own, so that the caller's value and end, whose
        // addresses the out-of-line call would take, can stay in registers.
        C parsed;
        const char* stop;
        if (!fullDecimal<C, Point>(first, last, parsed, stop)) return false;
        value = parsed;
        end = stop;
        return true;
    } else {
        // std::stoi's value: an int, of which C keeps the low bits.
        const bool negative = first != last && *first == '-';
        const char* p = first + negative;
        const char* digits = p;
        std::uint64_t magnitude = 0;
        for (; p != last && isDigit(*p); ++p) {
            magnitude = magnitude * 10 + static_cast<unsigned>(*p - '0');
            if (magnitude > 2147483648ULL) return false;  // beyond 32 bits: the standard function throws
        }
        if (p == digits || (!negative && magnitude > 2147483647ULL)) return false;
        const auto wide =
            static_cast<int>(negative ? -static_cast<std::int64_t>(magnitude) : static_cast<std::int64_t>(magnitude));
        value = static_cast<C>(wide);
        end = p;
        return true;
    }
}

}  // namespace Pallion::detail
