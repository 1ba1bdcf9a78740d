#include "pallion/convert/detail/NumberConversion.hpp"

#include "pallion/convert/detail/FastNumbers.hpp"

namespace Pallion {

template <class C>
C convertNumber(std::string_view token) {
    C value{};
    const char* end = nullptr;
    if ((!std::is_floating_point_v<C> || detail::fastFloatingHolds()) &&
        detail::fastNumber(token.data(), token.data() + token.size(), value, end))
        return value;
    return standardNumber<C>(std::string(token));
}

template double convertNumber<double>(std::string_view);
template float convertNumber<float>(std::string_view);
template int convertNumber<int>(std::string_view);
template unsigned char convertNumber<unsigned char>(std::string_view);
template unsigned short convertNumber<unsigned short>(std::string_view);
template unsigned int convertNumber<unsigned int>(std::string_view);

}  // namespace Pallion
