#include "tellus/Chronometry.hpp"

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

bool leap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int daysIn(int year, int month) {
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && leap(year) ? 29 : days[month - 1];
}

// Days from 1970-01-01 to the date, by the proleptic Gregorian calendar.
long daysFromCivil(int y, int m, int d) {
    y -= m <= 2;
    const long era = (y >= 0 ? y : y - 399) / 400;
    const long yoe = y - era * 400;
    const long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

}  // namespace

Chronometry::Chronometry(const std::string& text) {
    bool ok = false;
    if (text.size() == 8)
        ok = digits(text, 0, 4, Year) && digits(text, 4, 2, Month) && digits(text, 6, 2, Day);
    else if (text.size() == 10 && text[4] == '-' && text[7] == '-')
        ok = digits(text, 0, 4, Year) && digits(text, 5, 2, Month) && digits(text, 8, 2, Day);
    ok = ok && Month >= 1 && Month <= 12 && Day >= 1 && Day <= daysIn(Year, Month);
    if (!ok) throw std::invalid_argument("Tellus::Chronometry: not a date: " + text);
    // 1970-01-01 was a Thursday (4).
    const long days = daysFromCivil(Year, Month, Day);
    WeekDay = static_cast<std::uint16_t>(((days % 7) + 7 + 4) % 7);
}

std::string Chronometry::ddmmyyyy(char separator) const {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%02d%c%02d%c%04d", Day, separator, Month, separator, Year);
    return buffer;
}

}  // namespace Tellus
