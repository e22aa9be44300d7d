#include "TinyFramework/Common/TinyTime.h"
#include "tests/TinyFramework/CalendarReference.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <functional>
#include <string>

namespace {

using CalendarReference::DayOfWeek;
using CalendarReference::UtcSeconds;
using TinyFramework::GetTimestampMilliseconds;
using TinyFramework::TinyTime;
using TinyFramework::TinyTimeSpan;

struct CalendarDate {
    int year;
    int month;
    int day;
};

// Dates across the range that the C runtime's 64-bit time covers, with the leap days and the
// century years around them.
const CalendarDate kSweep[] = {
    {1970, 1, 2},  {1971, 6, 30}, {1999, 12, 31}, {2000, 2, 28}, {2000, 2, 29},
    {2000, 3, 1},  {2023, 2, 28}, {2023, 3, 1},   {2024, 2, 29}, {2038, 1, 19},
    {2038, 1, 20}, {2100, 2, 28}, {2100, 3, 1},   {2400, 2, 29}, {2999, 12, 30},
};

// What the call throws as a wide string, or a text saying that it threw nothing.
std::wstring ThrownText(const std::function<void()>& call) {
    try {
        call();
    } catch (const wchar_t* text) {
        return text;
    }
    return L"(nothing thrown)";
}

FILETIME FileTimeOfUtcSeconds(int64_t seconds) {
    ULARGE_INTEGER value;
    value.QuadPart = static_cast<ULONGLONG>(seconds + 11644473600LL) * 10000000ULL;
    FILETIME fileTime;
    fileTime.dwLowDateTime = value.LowPart;
    fileTime.dwHighDateTime = value.HighPart;
    return fileTime;
}

SYSTEMTIME SystemTimeOf(int year, int month, int day, int hour, int minute, int second) {
    SYSTEMTIME systemTime = {};
    systemTime.wYear = static_cast<WORD>(year);
    systemTime.wMonth = static_cast<WORD>(month);
    systemTime.wDay = static_cast<WORD>(day);
    systemTime.wHour = static_cast<WORD>(hour);
    systemTime.wMinute = static_cast<WORD>(minute);
    systemTime.wSecond = static_cast<WORD>(second);
    return systemTime;
}

// The timestamp made straight from the local clock, with a zeroed tm as GetTimestampMilliseconds
// takes it.
int64_t DirectTimestampMilliseconds() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    tm calendar = {};
    calendar.tm_year = now.wYear - 1900;
    calendar.tm_mon = now.wMonth - 1;
    calendar.tm_mday = now.wDay;
    calendar.tm_hour = now.wHour;
    calendar.tm_min = now.wMinute;
    calendar.tm_sec = now.wSecond;
    return _mktime64(&calendar) * 1000 + now.wMilliseconds;
}

TEST(TinyTimeTest, MomentBefore1970ThrowsInvalidArgs) {
    EXPECT_EQ(ThrownText([] { (void)TinyTime(1969, 6, 15, 12, 0, 0); }), L"Invalid args");
}

TEST(TinyTimeTest, MomentAfter3000ThrowsInvalidArgs) {
    EXPECT_EQ(ThrownText([] { (void)TinyTime(3001, 6, 15, 12, 0, 0); }), L"Invalid args");
}

TEST(TinyTimeTest, LeapDayOf1900IsBeforeTheRangeAndThrows) {
    EXPECT_EQ(ThrownText([] { (void)TinyTime(1900, 2, 29, 12, 0, 0); }), L"Invalid args");
}

TEST(TinyTimeTest, ThirtiethOfFebruaryIsNormalisedToMarch) {
    EXPECT_EQ(TinyTime(2023, 2, 30, 12, 0, 0), TinyTime(2023, 3, 2, 12, 0, 0));
}

TEST(TinyTimeTest, OverflowingTimeOfDayIsNormalised) {
    EXPECT_EQ(TinyTime(2023, 1, 1, 25, 61, 61), TinyTime(2023, 1, 2, 2, 2, 1));
}

TEST(TinyTimeTest, ThirteenthMonthIsNormalisedToTheNextYear) {
    EXPECT_EQ(TinyTime(2023, 13, 1, 12, 0, 0), TinyTime(2024, 1, 1, 12, 0, 0));
}

TEST(TinyTimeTest, LeapDayOf2100IsNormalisedToMarchFirst) {
    EXPECT_EQ(TinyTime(2100, 2, 29, 12, 0, 0), TinyTime(2100, 3, 1, 12, 0, 0));
}

TEST(TinyTimeTest, LeapDayOf2000IsKept) {
    const TinyTime time(2000, 2, 29, 12, 0, 0);
    EXPECT_EQ(time.GetMonth(), 2);
    EXPECT_EQ(time.GetDay(), 29);
}

TEST(TinyTimeTest, SystemTimeOf1899GivesZero) {
    EXPECT_EQ(TinyTime(SystemTimeOf(1899, 12, 31, 12, 0, 0)).GetTime(), 0);
}

TEST(TinyTimeTest, SystemTimeBetween1900And1970Throws) {
    EXPECT_EQ(ThrownText([] { (void)TinyTime(SystemTimeOf(1950, 6, 15, 12, 0, 0)); }),
              L"Invalid args");
}

TEST(TinyTimeTest, SystemTimeIsTakenAsLocalTime) {
    EXPECT_EQ(TinyTime(SystemTimeOf(2023, 5, 17, 13, 45, 30)), TinyTime(2023, 5, 17, 13, 45, 30));
}

TEST(TinyTimeTest, FileTimeBefore1900GivesZero) {
    EXPECT_EQ(TinyTime(FileTimeOfUtcSeconds(UtcSeconds(1700, 6, 15, 12, 0, 0))).GetTime(), 0);
}

TEST(TinyTimeTest, DosDateAndTimeUnpackIntoTheirFields) {
    const WORD dosDate = ((2023 - 1980) << 9) | (5 << 5) | 17;
    const WORD dosTime = (13 << 11) | (45 << 5) | (30 / 2);
    EXPECT_EQ(TinyTime(dosDate, dosTime), TinyTime(2023, 5, 17, 13, 45, 30));
}

TEST(TinyTimeTest, FileTimesOfTheSweepGoThroughTheLocalFileTime) {
    // The platform makes a local file time with the zone's present bias, whatever the date's
    // own daylight saving; a date in the other season comes out an hour off. So the sweep is
    // checked against that path, and the exact count against the present moment below.
    for (const CalendarDate& date : kSweep) {
        const FILETIME fileTime =
            FileTimeOfUtcSeconds(UtcSeconds(date.year, date.month, date.day, 12, 0, 0));
        FILETIME localFileTime;
        SYSTEMTIME localTime;
        ASSERT_TRUE(FileTimeToLocalFileTime(&fileTime, &localFileTime));
        ASSERT_TRUE(FileTimeToSystemTime(&localFileTime, &localTime));
        EXPECT_EQ(TinyTime(fileTime), TinyTime(localTime))
            << date.year << "-" << date.month << "-" << date.day;
    }
}

TEST(TinyTimeTest, FileTimeOfThePresentGivesItsSecondsSince1970) {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER value;
    value.LowPart = now.dwLowDateTime;
    value.HighPart = now.dwHighDateTime;
    const int64_t seconds = static_cast<int64_t>(value.QuadPart / 10000000ULL) - 11644473600LL;
    EXPECT_EQ(TinyTime(FileTimeOfUtcSeconds(seconds)).GetTime(), seconds);
}

TEST(TinyTimeTest, GmtCalendarOfTheSweepMatchesTheIndependentCount) {
    for (const CalendarDate& date : kSweep) {
        const TinyTime time(UtcSeconds(date.year, date.month, date.day, 12, 34, 56));
        tm calendar = {};
        ASSERT_EQ(time.GetGmtTm(&calendar), &calendar);
        EXPECT_EQ(calendar.tm_year, date.year - 1900);
        EXPECT_EQ(calendar.tm_mon, date.month - 1);
        EXPECT_EQ(calendar.tm_mday, date.day);
        EXPECT_EQ(calendar.tm_hour, 12);
        EXPECT_EQ(calendar.tm_min, 34);
        EXPECT_EQ(calendar.tm_sec, 56);
        EXPECT_EQ(calendar.tm_wday, DayOfWeek(date.year, date.month, date.day));
    }
}

TEST(TinyTimeTest, GmtCalendarAgreesWithTheRuntime) {
    for (const CalendarDate& date : kSweep) {
        const __time64_t seconds = UtcSeconds(date.year, date.month, date.day, 6, 7, 8);
        tm expected = {};
        ASSERT_EQ(_gmtime64_s(&expected, &seconds), 0);
        tm actual = {};
        ASSERT_EQ(TinyTime(seconds).GetGmtTm(&actual), &actual);
        EXPECT_EQ(actual.tm_year, expected.tm_year);
        EXPECT_EQ(actual.tm_yday, expected.tm_yday);
        EXPECT_EQ(actual.tm_hour, expected.tm_hour);
    }
}

TEST(TinyTimeTest, LocalFieldsOfTheSweepComeBackAsGiven) {
    for (const CalendarDate& date : kSweep) {
        const TinyTime time(date.year, date.month, date.day, 12, 34, 56);
        EXPECT_EQ(time.GetYear(), date.year);
        EXPECT_EQ(time.GetMonth(), date.month);
        EXPECT_EQ(time.GetDay(), date.day);
        EXPECT_EQ(time.GetHour(), 12);
        EXPECT_EQ(time.GetMinute(), 34);
        EXPECT_EQ(time.GetSecond(), 56);
        EXPECT_EQ(time.GetDayOfWeek(), DayOfWeek(date.year, date.month, date.day) + 1);
    }
}

TEST(TinyTimeTest, LocalTimeAgreesWithTheRuntimesMktime) {
    for (const CalendarDate& date : kSweep) {
        tm calendar = {};
        calendar.tm_year = date.year - 1900;
        calendar.tm_mon = date.month - 1;
        calendar.tm_mday = date.day;
        calendar.tm_hour = 12;
        calendar.tm_isdst = -1;
        EXPECT_EQ(TinyTime(date.year, date.month, date.day, 12, 0, 0).GetTime(),
                  _mktime64(&calendar));
    }
}

TEST(TinyTimeTest, AsSystemTimeGivesLocalFieldsWithoutMilliseconds) {
    SYSTEMTIME systemTime;
    memset(&systemTime, 0xFF, sizeof(systemTime));
    ASSERT_TRUE(TinyTime(2024, 2, 29, 23, 59, 58).GetAsSystemTime(systemTime));
    EXPECT_EQ(systemTime.wYear, 2024);
    EXPECT_EQ(systemTime.wMonth, 2);
    EXPECT_EQ(systemTime.wDay, 29);
    EXPECT_EQ(systemTime.wDayOfWeek, 4);
    EXPECT_EQ(systemTime.wHour, 23);
    EXPECT_EQ(systemTime.wMinute, 59);
    EXPECT_EQ(systemTime.wSecond, 58);
    EXPECT_EQ(systemTime.wMilliseconds, 0);
}

TEST(TinyTimeTest, DatePartsFailWithZeroAndTimePartsWithMinusOne) {
    // Beyond the year 3000 the runtime has no calendar form.
    const TinyTime time(40000000000LL);
    EXPECT_EQ(time.GetYear(), 0);
    EXPECT_EQ(time.GetMonth(), 0);
    EXPECT_EQ(time.GetDay(), 0);
    EXPECT_EQ(time.GetDayOfWeek(), 0);
    EXPECT_EQ(time.GetHour(), -1);
    EXPECT_EQ(time.GetMinute(), -1);
    EXPECT_EQ(time.GetSecond(), -1);
}

TEST(TinyTimeTest, ConversionsOfAMomentWithoutCalendarFormFail) {
    const TinyTime time(-86400LL * 400);
    tm calendar = {};
    SYSTEMTIME systemTime = {};
    EXPECT_EQ(time.GetGmtTm(&calendar), nullptr);
    EXPECT_EQ(time.GetLocalTm(&calendar), nullptr);
    EXPECT_FALSE(time.GetAsSystemTime(systemTime));
}

TEST(TinyTimeTest, CalendarOfANullArgumentIsNull) {
    const TinyTime time(1700000000);
    EXPECT_EQ(time.GetGmtTm(nullptr), nullptr);
    EXPECT_EQ(time.GetLocalTm(nullptr), nullptr);
}

TEST(TinyTimeTest, SecondsAreTakenWithoutCheck) {
    EXPECT_EQ(TinyTime(-5).GetTime(), -5);
    EXPECT_EQ(TinyTime().GetTime(), 0);
}

TEST(TinyTimeTest, SpanArithmeticMovesBySeconds) {
    const TinyTime start(1700000000);
    EXPECT_EQ((start + TinyTimeSpan(90)).GetTime(), 1700000090);
    EXPECT_EQ((start - TinyTimeSpan(90)).GetTime(), 1699999910);
    TinyTime moved = start;
    moved += TinyTimeSpan(1, 0, 0, 0);
    EXPECT_EQ(moved.GetTime(), 1700086400);
    moved -= TinyTimeSpan(0, 1, 0, 0);
    EXPECT_EQ(moved.GetTime(), 1700082800);
    EXPECT_EQ((moved - start).GetTotalSeconds(), 82800);
}

TEST(TinyTimeTest, ComparisonsLookAtTheSeconds) {
    const TinyTime earlier(100);
    const TinyTime later(200);
    EXPECT_TRUE(earlier < later);
    EXPECT_TRUE(earlier <= later);
    EXPECT_TRUE(later > earlier);
    EXPECT_TRUE(later >= earlier);
    EXPECT_TRUE(earlier != later);
    EXPECT_TRUE(earlier == TinyTime(100));
    EXPECT_FALSE(earlier > later);
}

TEST(TinyTimeSpanTest, PartsOfAPositiveSpan) {
    const TinyTimeSpan span(1, 2, 3, 4);
    EXPECT_EQ(span.GetTotalSeconds(), 93784);
    EXPECT_EQ(span.GetTotalMinutes(), 1563);
    EXPECT_EQ(span.GetTotalHours(), 26);
    EXPECT_EQ(span.GetDays(), 1);
    EXPECT_EQ(span.GetHours(), 2);
    EXPECT_EQ(span.GetMinutes(), 3);
    EXPECT_EQ(span.GetSeconds(), 4);
}

TEST(TinyTimeSpanTest, PartsOfANegativeSpanTruncateTowardsZero) {
    const TinyTimeSpan span(-93784);
    EXPECT_EQ(span.GetDays(), -1);
    EXPECT_EQ(span.GetTotalHours(), -26);
    EXPECT_EQ(span.GetHours(), -2);
    EXPECT_EQ(span.GetMinutes(), -3);
    EXPECT_EQ(span.GetSeconds(), -4);
}

TEST(TinyTimeSpanTest, ArithmeticAndComparisons) {
    TinyTimeSpan span(100);
    EXPECT_EQ((span + TinyTimeSpan(20)).GetTotalSeconds(), 120);
    EXPECT_EQ((span - TinyTimeSpan(120)).GetTotalSeconds(), -20);
    span += TinyTimeSpan(5);
    EXPECT_EQ(span.GetTotalSeconds(), 105);
    span -= TinyTimeSpan(10);
    EXPECT_EQ(span.GetTotalSeconds(), 95);
    EXPECT_TRUE(TinyTimeSpan(1) < TinyTimeSpan(2));
    EXPECT_TRUE(TinyTimeSpan(2) >= TinyTimeSpan(2));
    EXPECT_TRUE(TinyTimeSpan(2) == TinyTimeSpan(0, 0, 0, 2));
    EXPECT_FALSE(TinyTimeSpan(2) != TinyTimeSpan(2));
}

TEST(TimestampTest, MillisecondsComeFromTheLocalClockAsStandardTime) {
    const int64_t before = DirectTimestampMilliseconds();
    const int64_t timestamp = GetTimestampMilliseconds();
    const int64_t after = DirectTimestampMilliseconds();
    EXPECT_LE(before, timestamp);
    EXPECT_LE(timestamp, after);
}

}  // namespace
