#include "pallion/convert/detail/NumberConversion.hpp"

#include <langinfo.h>

#include <string>

#include "pallion/convert/detail/FastNumbers.hpp"

namespace Pallion {

bool decimalPointIsDot() noexcept {
    const char* radix = nl_langinfo(RADIXCHAR);
    return radix != nullptr && radix[0] == '.' && radix[1] == '\0';
}

bool fastDouble(const char* first, const char* last, double& value, const char*& end) noexcept {
    return detail::fastFloating(first, last, value, end);
}

bool fastFloat(const char* first, const char* last, float& value, const char*& end) noexcept {
    return detail::fastFloating(first, last, value, end);
}

bool fastInt(const char* first, const char* last, int& value, const char*& end) noexcept {
    return detail::fastInteger(first, last, value, end);
}

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

template double convertNumber<double>(std::string_view);
template float convertNumber<float>(std::string_view);
template int convertNumber<int>(std::string_view);

}  // namespace Pallion
