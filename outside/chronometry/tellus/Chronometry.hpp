// A calendar date read from a text, with its week day by the Gregorian calendar.
//
// Accepted forms: YYYYMMDD and YYYY-MM-DD, nothing before or after.  Anything
// else, or a day that the month does not have, throws std::invalid_argument
// with the text "Tellus::Chronometry: not a date: " and the text given, its
// control bytes escaped (a NUL as \0), so that the message shows all of it.
#pragma once

#include "tellus/Export.hpp"

#include <cstdint>
#include <string>

namespace Tellus {

class TELLUS_API Chronometry {
public:
    explicit Chronometry(const std::string& text);

    // Day, month and four-digit year, two digits each for day and month, joined by `separator`.
    std::string ddmmyyyy(char separator) const;

    int Year = 0;
    int Month = 0;
    int Day = 0;
    std::uint16_t WeekDay = 0;  // Sunday = 0 ... Saturday = 6
};

}  // namespace Tellus
