// The full differential run of the number conversion: N generated tokens (10
// million unless told), each through convertNumber and through standardNumber (std::stod,
// std::stof, std::stoi) as double, float, int and unsigned char; exits 1 on any
// difference.
//
//   number_diff [N] [SEED]
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "NumberTokenMaker.hpp"

int main(int argc, char** argv) {
    const std::uint64_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 10'000'000;
    const std::uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
    std::uint64_t fast = 0;
    const auto start = std::chrono::steady_clock::now();
    const auto differing = numbertokens::differingTokens(seed, count, 20, fast);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    for (const std::string& token : differing) std::printf("differs: \"%s\"\n", token.c_str());
    std::printf(
        "%llu tokens x 4 conversions (double, float, int, unsigned char), %llu through the fast double path, %zu "
        "differing, %.1f s\n",
        static_cast<unsigned long long>(count), static_cast<unsigned long long>(fast), differing.size(), seconds);
    return differing.empty() ? 0 : 1;
}
