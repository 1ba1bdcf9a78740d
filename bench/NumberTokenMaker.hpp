// The random tokens of the full differential run of the number conversion:
// shapes where a fast conversion can go wrong, and their comparison with the
// standard functions, token by token.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "NumberTokens.hpp"
#include "pallion/convert/detail/FastNumbers.hpp"

namespace numbertokens {

// Makes tokens of the shapes where a fast conversion can go wrong.
class TokenMaker {
public:
    explicit TokenMaker(std::uint64_t seed) : random(seed) {}

    std::string next() {
        std::string token = body();
        decorate(token);
        return token;
    }

private:
    std::uint64_t below(std::uint64_t n) { return random() % n; }

    std::string digits(std::size_t count) {
        std::string text;
        for (std::size_t i = 0; i < count; ++i) text += static_cast<char>('0' + below(10));
        return text;
    }

    std::string printf(const char* format, auto... values) {
        char text[512];
        std::snprintf(text, sizeof text, format, values...);
        return text;
    }

    double anyDouble() {
        double value;
        do {
            const std::uint64_t bits = random();
            std::memcpy(&value, &bits, sizeof value);
        } while (!std::isfinite(value));
        return value;
    }

    std::string body() {
        switch (below(16)) {
            case 0:  // short decimals, as tables have them
                return std::to_string(below(1000000)) + "." + digits(below(4));
            case 1:  // long mantissas, 17 to 25 significant digits and more
                return digits(1 + below(3)) + "." + digits(14 + below(30));
            case 2:  // every double, shortest and over-long forms
                return printf("%.*g", static_cast<int>(1 + below(25)), anyDouble());
            case 3: {  // near and exactly between two doubles
                const double low = anyDouble();
                const long double middle = (static_cast<long double>(low) + std::nextafter(low, INFINITY)) / 2;
                return printf("%.*Le", static_cast<int>(16 + below(30)), middle);
            }
            case 4: {  // exact halfway cases: odd integers above 2^53, scaled by powers of two
                const std::uint64_t odd = (std::uint64_t{1} << 53) + (below(std::uint64_t{1} << 53) | 1);
                const int shift = static_cast<int>(below(24));
                return printf("%.*Lf", shift, std::ldexp(static_cast<long double>(odd), -shift));
            }
            case 5: {  // near and between two floats
                const float low =
                    static_cast<float>(below(1u << 30)) * std::ldexp(1.0f, static_cast<int>(below(200)) - 150);
                const double middle = (static_cast<double>(low) + std::nextafter(low, INFINITY)) / 2;
                return printf("%.*e", static_cast<int>(6 + below(20)), middle);
            }
            case 6:  // exponents near the limits of double and float
                return digits(1 + below(3)) + "." + digits(below(5)) + "e" + (below(2) ? "-" : "") +
                       std::to_string(below(2) ? 290 + below(40) : 30 + below(20));
            case 7:  // subnormals and underflow
                return printf(
                    "%.*e", static_cast<int>(below(20)),
                    std::ldexp(static_cast<double>(below(1u << 20) + 1), -1074 + static_cast<int>(below(60))));
            case 8:  // integers near the 32-bit limits
                return std::to_string(static_cast<std::int64_t>(below(2) ? 2147483647 : -2147483648LL) +
                                      static_cast<std::int64_t>(below(5)) - 2);
            case 9:  // integers of any width, with leading zeros
                return std::string(below(3), '0') + digits(1 + below(12));
            case 10: {  // hexadecimal, infinity and not-a-number in their spellings
                static const char* const words[] = {"0x1p3", "0X1.8p1",  "0x",       "0x.8",    "0xg",
                                                    "inf",   "INF",      "infinity", "Infinit", "nan",
                                                    "NaN",   "nan(123)", "nan(",     "in",      "0x1P-1074"};
                return words[below(std::size(words))];
            }
            case 11: {  // odd corners of the grammar
                static const char* const words[] = {"",
                                                    ".",
                                                    "-",
                                                    "+",
                                                    "-.",
                                                    ".e5",
                                                    "1e",
                                                    "1e+",
                                                    "1.e5",
                                                    "5.",
                                                    ".5",
                                                    "0e999999",
                                                    "1e-999999",
                                                    "00x1",
                                                    "-0",
                                                    "-0.0",
                                                    "1e400",
                                                    "1e-400",
                                                    "4.9e-324",
                                                    "1e-310",
                                                    "2.2250738585072014e-308",
                                                    "1.17549435e-38",
                                                    "3.4028235e38",
                                                    "3.4028236e38",
                                                    "1.5,2"};
                return words[below(std::size(words))];
            }
            case 12:  // exponent forms
                return digits(1 + below(4)) + (below(2) ? "e" : "E") +
                       (below(3) == 0 ? "+"
                        : below(2)    ? "-"
                                      : "") +
                       digits(1 + below(3));
            case 13:  // zeros written many ways
            {
                std::string zero(1 + below(3), '0');
                zero += '.';
                zero.append(below(30), '0');
                if (below(2)) {
                    zero += 'e';
                    zero += digits(1 + below(4));
                }
                return zero;
            }
            default:  // fixed-point values of a few digits
                return printf("%.*f", static_cast<int>(below(10)), anyDouble() / std::pow(10.0, 290 + below(30)));
        }
    }

    void decorate(std::string& token) {
        switch (below(12)) {
            case 0:
                token = std::string("-") += token;
                break;
            case 1:
                token = std::string("+") += token;
                break;
            case 2:
                token = std::string(below(2) ? " " : "\t\n\v\f\r ") += token;
                break;
            case 3:
                token += "\r";
                break;
            case 4:
                token += below(2) ? "abc" : "e";
                break;
            case 5:
                token += "x1";
                break;
            default:
                break;
        }
    }

    std::mt19937_64 random;
};

// Converts `count` made tokens each way; gives the tokens that differ (at most
// `keep` of them) and, through `fast`, how many the fast double path took.
inline std::vector<std::string> differingTokens(std::uint64_t seed, std::uint64_t count, std::size_t keep,
                                                std::uint64_t& fast) {
    TokenMaker maker(seed);
    std::vector<std::string> differing;
    fast = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::string token = maker.next();
        if (!(sameAsStandard<double>(token) && sameAsStandard<float>(token) && sameAsStandard<int>(token) &&
              sameAsStandard<unsigned char>(token)) &&
            differing.size() < keep)
            differing.push_back(token);
        double value;
        const char* end;
        fast += Pallion::detail::fastNumber(token.data(), token.data() + token.size(), value, end);
    }
    return differing;
}

}  // namespace numbertokens
