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

}  // namespace

Chronometry::Chronometry(const std::string& text) {
    bool ok = false;
    if (text.size() == 8)
        ok = digits(text, 0, 4, Year) && digits(text, 4, 2, Month) && digits(text, 6, 2, Day);
    else if (text.size() == 10 && text[4] == '-' && text[7] == '-')
        ok = digits(text, 0, 4, Year) && digits(text, 5, 2, Month) && digits(text, 8, 2, Day);
    const std::chrono::year_month_day date{std::chrono::year(Year), std::chrono::month(static_cast<unsigned>(Month)),
                                           std::chrono::day(static_cast<unsigned>(Day))};
    if (!ok || !date.ok()) throw std::invalid_argument("Tellus::Chronometry: not a date: " + text);
    WeekDay = static_cast<std::uint16_t>(std::chrono::weekday(std::chrono::sys_days(date)).c_encoding());
}

std::string Chronometry::ddmmyyyy(char separator) const {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%02d%c%02d%c%04d", Day, separator, Month, separator, Year);
    return buffer;
}

}  // namespace Tellus
