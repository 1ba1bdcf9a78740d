// The element of one row from the tokens of its line, the standard way: each
// component through convertNumber, whose exceptions pass through unchanged.
// Beside it, the opt-in readings of one token: decimal commas, and the check
// that a token is a number in full that fits its type.
#pragma once

#include <cctype>
#include <charconv>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "pallion/array/ElementTraits.hpp"
#include "pallion/convert/detail/NumberConversion.hpp"

namespace Pallion {

// Writes the element of one row: the first column for a scalar, the first
// three, in order, for a point, vector or colour.
template <class T>
inline void storeElement(T& target, const std::vector<std::string>& tokens, const std::vector<std::uint32_t>& columns) {
    using Traits = Tessel::ElementTraits<T>;
    if constexpr (Traits::components == 3) {
        using C = typename Traits::Component;
        target[0] = convertNumber<C>(tokens[columns[0]]);
        target[1] = convertNumber<C>(tokens[columns[1]]);
        target[2] = convertNumber<C>(tokens[columns[2]]);
    } else {
        target = convertNumber<T>(tokens[columns[0]]);
    }
}

inline bool isBlank(char c) { return c == ' ' || c == '\t'; }

// A token of a decimal-comma table as the standard functions read it: ','
// and '.' trade places, so that ',' is the decimal point and a '.' ends the
// number as any other letter would.
inline std::string withDecimalPoint(std::string_view token) {
    std::string text(token);
    for (char& c : text)
        if (c == ',' || c == '.') c = c == ',' ? '.' : ',';
    return text;
}

// The token's value as the reading without the whole-token check takes it:
// convertNumber, on the token with its decimal commas read as points where
// `decimalComma`.  Its exceptions pass through.
template <class C>
C readNumber(const std::string& token, bool decimalComma) {
    return decimalComma ? convertNumber<C>(withDecimalPoint(token)) : convertNumber<C>(token);
}

enum class TokenVerdict : std::uint8_t { Stored, NotWhole, OutOfRange };

// Reads `token` whole, without throwing: blanks and tabs around it are
// allowed; a floating-point token must be what std::stod (std::stof) reads in
// full, hexadecimal refused, and within the type's range (an overflow or a
// subnormal value is OutOfRange, as it is std::out_of_range for the standard
// function); an integer token is an optional sign and decimal digits, and its
// value must lie within C (0 to 255 for a byte, 0 to 4294967295 for an
// unsigned int).  The value is the standard function's, or, above 2147483647
// in an unsigned int, the number itself.
template <class C>
TokenVerdict readWhole(std::string_view token, bool decimalComma, C& value) {
    while (!token.empty() && isBlank(token.front())) token.remove_prefix(1);
    while (!token.empty() && isBlank(token.back())) token.remove_suffix(1);
    if (token.empty()) return TokenVerdict::NotWhole;
    const std::size_t sign = token[0] == '+' || token[0] == '-' ? 1 : 0;
    if constexpr (std::is_floating_point_v<C>) {
        if (std::isspace(static_cast<unsigned char>(token[0])) != 0) return TokenVerdict::NotWhole;
        if (token.size() > sign + 1 && token[sign] == '0' && (token[sign + 1] == 'x' || token[sign + 1] == 'X'))
            return TokenVerdict::NotWhole;
        const std::string text = decimalComma ? withDecimalPoint(token) : std::string(token);
        try {
            std::size_t used = 0;
            C read;
            if constexpr (std::is_same_v<C, double>)
                read = std::stod(text, &used);
            else
                read = std::stof(text, &used);
            if (used != text.size()) return TokenVerdict::NotWhole;
            value = read;
            return TokenVerdict::Stored;
        } catch (const std::invalid_argument&) {
            return TokenVerdict::NotWhole;
        } catch (const std::out_of_range&) {
            return TokenVerdict::OutOfRange;
        }
    } else {
        if (token.size() == sign) return TokenVerdict::NotWhole;
        std::uint64_t magnitude = 0;
        bool huge = false;
        for (std::size_t i = sign; i < token.size(); ++i) {
            const char c = token[i];
            if (c < '0' || c > '9') return TokenVerdict::NotWhole;
            magnitude = magnitude * 10 + static_cast<unsigned>(c - '0');
            huge = huge || magnitude > (std::uint64_t{1} << 40);
        }
        if (huge) return TokenVerdict::OutOfRange;
        const std::int64_t wide =
            token[0] == '-' ? -static_cast<std::int64_t>(magnitude) : static_cast<std::int64_t>(magnitude);
        if (wide < std::int64_t{std::numeric_limits<C>::min()} || wide > std::int64_t{std::numeric_limits<C>::max()})
            return TokenVerdict::OutOfRange;
        value = static_cast<C>(wide);
        return TokenVerdict::Stored;
    }
}

// A component's value as a text: the shortest that reads back to it for a
// floating-point value, decimal for an integer.
template <class C>
std::string numberText(C value) {
    if constexpr (std::is_floating_point_v<C>) {
        char buffer[64];
        const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
        return {buffer, result.ptr};
    } else {
        return std::to_string(+value);
    }
}

}  // namespace Pallion
