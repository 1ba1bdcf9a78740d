#include "tellus/Chronometry.hpp"

#include <chrono>
#include <cstdio>
#include <stdexcept>

namespace Tellus {

namespace {

bool digits(const std::string& text, std::size_t from, std::size_t count, int& value) {
    value = 0;
    for (std::size_t i = from; i < from + count; ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
        value = value * 10 + (text[i] - '0');
    }
    return true;
}

// The text as it can be read in a message: a NUL or another control byte
// would end or garble it, so each is written as \0 or \xNN, and a backslash
// as two.
std::string visible(const std::string& text) {
    static constexpr char Hex[] = "0123456789abcdef";
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\0')
            shown += "\\0";
        else if (c == '\\')
            shown += "\\\\";
        else if (byte < 0x20 || byte == 0x7f)
            shown += std::string("\\x") + Hex[byte >> 4] + Hex[byte & 15];
        else
            shown += c;
    }
    return shown;
}

}  // namespace

Chronometry::Chronometry(const std::string& text) {
    bool ok = false;
    if (text.size() == 8)
        ok = digits(text, 0, 4, Year) && digits(text, 4, 2, Month) && digits(text, 6, 2, Day);
    else if (text.size() == 10 && text[4] == '-' && text[7] == '-')
        ok = digits(text, 0, 4, Year) && digits(text, 5, 2, Month) && digits(text, 8, 2, Day);
    const std::chrono::year_month_day date{std::chrono::year(Year), std::chrono::month(static_cast<unsigned>(Month)),
                                           std::chrono::day(static_cast<unsigned>(Day))};
    if (!ok || !date.ok()) throw std::invalid_argument("Tellus::Chronometry: not a date: " + visible(text));
    WeekDay = static_cast<std::uint16_t>(std::chrono::weekday(std::chrono::sys_days(date)).c_encoding());
}

std::string Chronometry::ddmmyyyy(char separator) const {
    // Put together piece by piece: a NUL separator is a byte of the text like any other.
    char number[16];
    std::string text;
    std::snprintf(number, sizeof number, "%02d", Day);
    text += number;
    text += separator;
    std::snprintf(number, sizeof number, "%02d", Month);
    text += number;
    text += separator;
    std::snprintf(number, sizeof number, "%04d", Year);
    return text + number;
}

}  // namespace Tellus
