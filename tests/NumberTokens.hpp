// The fast number conversion held against the standard functions (the same bits, or the same exception
// kind and text), and the hand-picked tokens where it can go wrong; shared with the fuzz target and the bench.
#pragma once

#include <stdexcept>
#include <string>

#include "pallion/convert/detail/NumberConversion.hpp"

namespace numbertokens {

inline constexpr const char* HardTokens[] = {
    // Plain decimals, each one correctly rounded division of two exact numbers.
    "0.3", "-123.456", "4320978.61", "0.000001",
    // The grammar's corners.
    "", ".", "-", "+", "-.", ".e5", "1e", "1e+", "1.e5", "5.", "+.5e-3", "1.5,2", "12abc", "1.5.5", "1e5\r", " 12",
    "\t\n\v\f\r 7", "00012",
    // Hexadecimal, infinity and not-a-number, which only the standard functions read.
    "0x1p3", "0X1.8p1", "0x", "inf", "-Infinity", "in", "nan(123)",
    // Limits of int, double and float, overflow, subnormals and underflow.
    "2147483647", "2147483648", "-2147483648", "-2147483649", "123456789012345678901234567890",
    "1.7976931348623157e308", "1.7976931348623159e308", "1e400", "2.2250738585072014e-308", "2.2250738585072011e-308",
    "1e-310", "4.9e-324", "2.4703282292062327e-324", "1e-400", "0e999999", "1e-999999", "-0", "3.4028235e38",
    "3.40282357e38", "1.17549435e-38", "7.038531e-26", "8.589973e9",
    // Long mantissas and exact halfway cases.
    "3.14159265358979323846", "9007199254740993", "9007199254740993.0000000000000000001", "1.000000059604644775390625",
    "1.00000005960464477539062499", "0.000000000000000000000000000000000000001e39"};

// What a conversion gives: the value's bytes, or the exception's kind and text (always longer).
template <class C, class F>
std::string outcomeOf(F&& convert) {
    try {
        const C value = convert();
        return std::string(reinterpret_cast<const char*>(&value), sizeof value);
    } catch (const std::invalid_argument& e) {
        return std::string("invalid_argument: ") + e.what();
    } catch (const std::out_of_range& e) {
        return std::string("out_of_range: ") + e.what();
    }
}

// Whether convertNumber<C> gives for `token` what the standard function gives.
template <class C>
bool sameAsStandard(const std::string& token) {
    return outcomeOf<C>([&] { return Pallion::convertNumber<C>(token); }) ==
           outcomeOf<C>([&] { return Pallion::standardNumber<C>(token); });
}

}  // namespace numbertokens
