#pragma once

#include <cstdint>

// Calendar arithmetic done without the platform, so that the framework's date values and the
// platform conversions under them are checked against an independent count.
namespace CalendarReference {

// Days from 1970-01-01 to a date of the proleptic Gregorian calendar (negative before it).
inline int64_t DaysFromCivil(int64_t year, int month, int day) {
    year -= month <= 2 ? 1 : 0;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

// Seconds since 1970-01-01 00:00:00 of a UTC date and time.
inline int64_t UtcSeconds(int year, int month, int day, int hour, int minute, int second) {
    return DaysFromCivil(year, month, day) * 86400 + hour * 3600 + minute * 60 + second;
}

// 0 for Sunday.
inline int DayOfWeek(int year, int month, int day) {
    const int64_t days = DaysFromCivil(year, month, day);
    // 1970-01-01 was a Thursday.
    return static_cast<int>(((days % 7) + 7 + 4) % 7);
}

// 1 for January 1st.
inline int DayOfYear(int year, int month, int day) {
    return static_cast<int>(DaysFromCivil(year, month, day) - DaysFromCivil(year, 1, 1) + 1);
}

// The variant date of a date and time: whole days since 1899-12-30, and the time of day as a
// fraction that counts forward within the day also before that day (1899-12-29 06:00 is -1.25).
inline double VariantDate(int year, int month, int day, int hour, int minute, int second) {
    const int64_t days = DaysFromCivil(year, month, day) - DaysFromCivil(1899, 12, 30);
    const double fraction = (hour * 3600 + minute * 60 + second) / 86400.0;
    return days >= 0 ? static_cast<double>(days) + fraction : static_cast<double>(days) - fraction;
}

}  // namespace CalendarReference
