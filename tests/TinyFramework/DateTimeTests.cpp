#include "TinyFramework/Common/TinyDateTime.h"
#include "TinyFramework/Common/TinyTime.h"
#include "tests/TinyFramework/CalendarReference.h"

#include <gtest/gtest.h>

#include <windows.h>
#include <oleauto.h>

#include <ctime>
#include <string>

namespace {

using CalendarReference::DayOfWeek;
using CalendarReference::DayOfYear;
using CalendarReference::VariantDate;
using TinyFramework::DateTimeInvalid;
using TinyFramework::DateTimeNull;
using TinyFramework::DateTimeValid;
using TinyFramework::TinyDateTime;
using TinyFramework::TinyDateTimeSpan;
using TinyFramework::TinyTime;

struct DateAndTime {
    int year;
    int month;
    int day;
    int hour;
    int minute;
    int second;
};

// From the first year the encoding has to its last, through the zero day, the negative dates
// before it (whose fraction still counts forward) and the leap days of the century years.
const DateAndTime kSweep[] = {
    {100, 1, 1, 0, 0, 0},       {1600, 2, 29, 18, 0, 0},   {1800, 1, 1, 18, 0, 0},
    {1899, 12, 29, 6, 0, 0},    {1899, 12, 29, 12, 0, 0},  {1899, 12, 29, 23, 59, 59},
    {1899, 12, 30, 0, 0, 0},    {1899, 12, 30, 6, 0, 0},   {1899, 12, 31, 0, 0, 1},
    {1900, 1, 1, 0, 0, 0},      {1900, 2, 28, 12, 0, 0},   {1900, 3, 1, 12, 0, 0},
    {1970, 1, 1, 0, 0, 0},      {2000, 2, 29, 13, 45, 30}, {2023, 5, 17, 13, 45, 30},
    {2024, 2, 29, 0, 0, 0},     {2100, 2, 28, 3, 0, 0},    {2100, 3, 1, 21, 0, 0},
    {9999, 12, 31, 23, 59, 59},
};

// Dates that do not exist, which the platform would roll over into another day.
const DateAndTime kImpossible[] = {
    {1900, 2, 29, 0, 0, 0}, {2100, 2, 29, 0, 0, 0}, {2023, 2, 29, 0, 0, 0}, {2023, 2, 30, 0, 0, 0},
    {2023, 4, 31, 0, 0, 0}, {2023, 1, 0, 0, 0, 0},  {2023, 13, 1, 0, 0, 0}, {2023, 1, 1, 24, 0, 0},
    {2023, 1, 1, 0, 60, 0}, {2023, 1, 1, 0, 0, 60},
};

SYSTEMTIME SystemTimeOf(const DateAndTime& date) {
    SYSTEMTIME systemTime = {};
    systemTime.wYear = static_cast<WORD>(date.year);
    systemTime.wMonth = static_cast<WORD>(date.month);
    systemTime.wDay = static_cast<WORD>(date.day);
    systemTime.wHour = static_cast<WORD>(date.hour);
    systemTime.wMinute = static_cast<WORD>(date.minute);
    systemTime.wSecond = static_cast<WORD>(date.second);
    return systemTime;
}

TinyDateTime DateOf(const DateAndTime& date) {
    return TinyDateTime(date.year, date.month, date.day, date.hour, date.minute, date.second);
}

std::string Describe(const DateAndTime& date) {
    return std::to_string(date.year) + "-" + std::to_string(date.month) + "-" +
           std::to_string(date.day) + " " + std::to_string(date.hour) + ":" +
           std::to_string(date.minute) + ":" + std::to_string(date.second);
}

std::wstring Text(const TinyFramework::TinyStringW& text) {
    return std::wstring(text.GetBuffer(), text.GetSize());
}

TinyDateTimeSpan SpanWithStatus(double value, TinyFramework::DateTimeStatus status) {
    TinyDateTimeSpan span(value);
    span.SetStatus(status);
    return span;
}

TinyDateTime DateWithStatus(double value, TinyFramework::DateTimeStatus status) {
    TinyDateTime date(value);
    date.SetStatus(status);
    return date;
}

// --- the encoding, against the platform and an independent count ---

TEST(TinyDateTimeTest, SweepMatchesTheIndependentEncoding) {
    for (const DateAndTime& date : kSweep) {
        const TinyDateTime value = DateOf(date);
        EXPECT_EQ(value.GetStatus(), DateTimeValid) << Describe(date);
        EXPECT_DOUBLE_EQ(value.GetValue(), VariantDate(date.year, date.month, date.day, date.hour,
                                                       date.minute, date.second))
            << Describe(date);
    }
}

TEST(TinyDateTimeTest, SweepMatchesSystemTimeToVariantTime) {
    for (const DateAndTime& date : kSweep) {
        SYSTEMTIME systemTime = SystemTimeOf(date);
        double expected = 0;
        ASSERT_TRUE(SystemTimeToVariantTime(&systemTime, &expected)) << Describe(date);
        EXPECT_EQ(DateOf(date).GetValue(), expected) << Describe(date);
    }
}

TEST(TinyDateTimeTest, SweepComesBackThroughVariantTimeToSystemTime) {
    for (const DateAndTime& date : kSweep) {
        SYSTEMTIME back = {};
        ASSERT_TRUE(VariantTimeToSystemTime(DateOf(date).GetValue(), &back)) << Describe(date);
        EXPECT_EQ(back.wYear, date.year) << Describe(date);
        EXPECT_EQ(back.wMonth, date.month) << Describe(date);
        EXPECT_EQ(back.wDay, date.day) << Describe(date);
        EXPECT_EQ(back.wHour, date.hour) << Describe(date);
        EXPECT_EQ(back.wMinute, date.minute) << Describe(date);
        EXPECT_EQ(back.wSecond, date.second) << Describe(date);
    }
}

TEST(TinyDateTimeTest, SweepFieldsComeBackThroughTheGetters) {
    for (const DateAndTime& date : kSweep) {
        const TinyDateTime value = DateOf(date);
        EXPECT_EQ(value.GetYear(), date.year) << Describe(date);
        EXPECT_EQ(value.GetMonth(), date.month) << Describe(date);
        EXPECT_EQ(value.GetDay(), date.day) << Describe(date);
        EXPECT_EQ(value.GetHour(), date.hour) << Describe(date);
        EXPECT_EQ(value.GetMinute(), date.minute) << Describe(date);
        EXPECT_EQ(value.GetSecond(), date.second) << Describe(date);
        EXPECT_EQ(value.GetDayOfWeek(), DayOfWeek(date.year, date.month, date.day) + 1)
            << Describe(date);
        EXPECT_EQ(value.GetDayOfYear(), DayOfYear(date.year, date.month, date.day))
            << Describe(date);
    }
}

TEST(TinyDateTimeTest, ImpossibleDatesAreInvalid) {
    for (const DateAndTime& date : kImpossible) {
        EXPECT_EQ(DateOf(date).GetStatus(), DateTimeInvalid) << Describe(date);
    }
}

TEST(TinyDateTimeTest, ImpossibleSystemTimesAreInvalid) {
    for (const DateAndTime& date : kImpossible) {
        EXPECT_EQ(TinyDateTime(SystemTimeOf(date)).GetStatus(), DateTimeInvalid) << Describe(date);
    }
}

TEST(TinyDateTimeTest, ThirtiethOfFebruaryIsInvalidAndFormatsSo) {
    const TinyDateTime date(2023, 2, 30, 0, 0, 0);
    EXPECT_EQ(date.GetStatus(), DateTimeInvalid);
    EXPECT_EQ(Text(date.Format(L"%Y-%m-%d")), L"Invalid DateTime");
}

TEST(TinyDateTimeTest, ZeroDayIsZeroAndValid) {
    const TinyDateTime date(1899, 12, 30, 0, 0, 0);
    EXPECT_EQ(date.GetValue(), 0.0);
    EXPECT_EQ(date.GetStatus(), DateTimeValid);
}

TEST(TinyDateTimeTest, DoubleIsTakenWithoutRangeCheck) {
    const TinyDateTime date(3615897.5);
    EXPECT_EQ(date.GetStatus(), DateTimeValid);
    EXPECT_EQ(date.GetValue(), 3615897.5);
}

TEST(TinyDateTimeTest, DefaultIsZeroAndValid) {
    const TinyDateTime date;
    EXPECT_EQ(date.GetValue(), 0.0);
    EXPECT_EQ(date.GetStatus(), DateTimeValid);
}

// --- the other sources ---

TEST(TinyDateTimeTest, VariantDateIsTakenDirectly) {
    VARIANT source;
    VariantInit(&source);
    source.vt = VT_DATE;
    source.date = -1.25;
    const TinyDateTime date(source);
    EXPECT_EQ(date.GetStatus(), DateTimeValid);
    EXPECT_EQ(date.GetValue(), -1.25);
}

TEST(TinyDateTimeTest, VariantOfAnotherTypeIsConverted) {
    VARIANT source;
    VariantInit(&source);
    source.vt = VT_R8;
    source.dblVal = 45000.5;
    const TinyDateTime date(source);
    EXPECT_EQ(date.GetStatus(), DateTimeValid);
    EXPECT_EQ(date.GetValue(), 45000.5);
}

TEST(TinyDateTimeTest, VariantThatIsNoDateIsInvalid) {
    VARIANT source;
    VariantInit(&source);
    source.vt = VT_BSTR;
    source.bstrVal = SysAllocString(L"not a date");
    const TinyDateTime date(source);
    VariantClear(&source);
    EXPECT_EQ(date.GetStatus(), DateTimeInvalid);
}

TEST(TinyDateTimeTest, Time64IsTakenAsLocalTime) {
    const __time64_t seconds = TinyTime(2023, 5, 17, 13, 45, 30).GetTime();
    const TinyDateTime date(seconds);
    EXPECT_EQ(date.GetStatus(), DateTimeValid);
    EXPECT_EQ(date, TinyDateTime(2023, 5, 17, 13, 45, 30));
}

TEST(TinyDateTimeTest, Time32IsTakenAsLocalTime) {
    const __time32_t seconds = static_cast<__time32_t>(TinyTime(2001, 9, 9, 1, 46, 40).GetTime());
    const TinyDateTime date(seconds);
    EXPECT_EQ(date.GetStatus(), DateTimeValid);
    EXPECT_EQ(date, TinyDateTime(2001, 9, 9, 1, 46, 40));
}

TEST(TinyDateTimeTest, TimeWithoutLocalCalendarIsInvalid) {
    EXPECT_EQ(TinyDateTime(static_cast<__time64_t>(-86400)).GetStatus(), DateTimeInvalid);
}

TEST(TinyDateTimeTest, FileTimeIsTakenThroughLocalTime) {
    // 2023-05-17 13:45:30 UTC, in the local time that the platform makes of it.
    ULARGE_INTEGER value;
    value.QuadPart = (1684331130ULL + 11644473600ULL) * 10000000ULL;
    FILETIME fileTime;
    fileTime.dwLowDateTime = value.LowPart;
    fileTime.dwHighDateTime = value.HighPart;
    FILETIME localFileTime;
    SYSTEMTIME local;
    ASSERT_TRUE(FileTimeToLocalFileTime(&fileTime, &localFileTime));
    ASSERT_TRUE(FileTimeToSystemTime(&localFileTime, &local));
    const TinyDateTime date(fileTime);
    EXPECT_EQ(date.GetStatus(), DateTimeValid);
    EXPECT_EQ(date, TinyDateTime(local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute,
                                 local.wSecond));
}

TEST(TinyDateTimeTest, DosDateAndTimeAreUnpacked) {
    const WORD dosDate = ((2023 - 1980) << 9) | (5 << 5) | 17;
    const WORD dosTime = (13 << 11) | (45 << 5) | (30 / 2);
    const TinyDateTime date(dosDate, dosTime);
    EXPECT_EQ(date.GetStatus(), DateTimeValid);
    EXPECT_EQ(date, TinyDateTime(2023, 5, 17, 13, 45, 30));
}

TEST(TinyDateTimeTest, DosDateIsTakenAsThePlatformRollsItOver) {
    // Only the platform's own answer decides here: it takes February 30th as March 2nd.
    const WORD dosDate = ((2023 - 1980) << 9) | (2 << 5) | 30;
    const TinyDateTime date(dosDate, static_cast<WORD>(0));
    EXPECT_EQ(date.GetStatus(), DateTimeValid);
    EXPECT_EQ(date, TinyDateTime(2023, 3, 2, 0, 0, 0));
}

TEST(TinyDateTimeTest, UdateIsConverted) {
    UDATE source = {};
    source.st.wYear = 2023;
    source.st.wMonth = 5;
    source.st.wDay = 17;
    source.st.wHour = 12;
    const TinyDateTime date(source);
    EXPECT_EQ(date.GetStatus(), DateTimeValid);
    EXPECT_EQ(date.GetValue(), 45063.5);
}

TEST(TinyDateTimeTest, UdateBeyondTheLastYearIsInvalid) {
    UDATE source = {};
    source.st.wYear = 10000;
    source.st.wMonth = 1;
    source.st.wDay = 1;
    EXPECT_EQ(TinyDateTime(source).GetStatus(), DateTimeInvalid);
}

TEST(TinyDateTimeTest, SetDateClearsTheTimeOfDay) {
    TinyDateTime date(2023, 5, 17, 13, 45, 30);
    EXPECT_EQ(date.SetDate(2000, 2, 29), DateTimeValid);
    EXPECT_EQ(date.GetValue(), 36585.0);
}

TEST(TinyDateTimeTest, SetTimePutsTheTimeOnTheZeroDay) {
    TinyDateTime date(2023, 5, 17, 13, 45, 30);
    EXPECT_EQ(date.SetTime(18, 0, 0), DateTimeValid);
    EXPECT_EQ(date.GetValue(), 0.75);
}

TEST(TinyDateTimeTest, SetDateOfAnImpossibleDayIsInvalid) {
    TinyDateTime date;
    EXPECT_EQ(date.SetDate(2100, 2, 29), DateTimeInvalid);
    EXPECT_EQ(date.GetStatus(), DateTimeInvalid);
}

TEST(TinyDateTimeTest, NowLiesBetweenTwoReadingsOfTheClock) {
    const TinyDateTime before(_time64(nullptr));
    const TinyDateTime now = TinyDateTime::Now();
    const TinyDateTime after(_time64(nullptr));
    EXPECT_EQ(now.GetStatus(), DateTimeValid);
    EXPECT_TRUE(before <= now);
    EXPECT_TRUE(now <= after);
}

// --- getters and Format ---

TEST(TinyDateTimeTest, GettersOfANonValidDateAnswerMinusOne) {
    const TinyDateTime date = DateWithStatus(45000.5, DateTimeInvalid);
    SYSTEMTIME systemTime;
    EXPECT_FALSE(date.GetAsSystemTime(systemTime));
    EXPECT_EQ(date.GetYear(), -1);
    EXPECT_EQ(date.GetMonth(), -1);
    EXPECT_EQ(date.GetDay(), -1);
    EXPECT_EQ(date.GetHour(), -1);
    EXPECT_EQ(date.GetMinute(), -1);
    EXPECT_EQ(date.GetSecond(), -1);
    EXPECT_EQ(date.GetDayOfWeek(), -1);
}

TEST(TinyDateTimeTest, DayOfYearLooksAtTheValueAlone) {
    // Through the UDATE, which does not know the status: 45000.5 is 2023-03-15.
    EXPECT_EQ(DateWithStatus(45000.5, DateTimeInvalid).GetDayOfYear(), 74);
}

TEST(TinyDateTimeTest, DayOfYearOfAValueBeyondTheCalendarIsMinusOne) {
    EXPECT_EQ(TinyDateTime(1e10).GetDayOfYear(), -1);
}

TEST(TinyDateTimeTest, FormatWritesTheFieldsWithWcsftime) {
    const TinyDateTime date(2023, 5, 17, 13, 45, 30);
    EXPECT_EQ(Text(date.Format(L"%Y-%m-%d %H:%M:%S")), L"2023-05-17 13:45:30");
    EXPECT_EQ(Text(date.Format(L"%A %j")), L"Wednesday 137");
}

TEST(TinyDateTimeTest, FormatOfANegativeDateShowsItsDayAndTime) {
    EXPECT_EQ(Text(TinyDateTime(-1.25).Format(L"%Y-%m-%d %H:%M")), L"1899-12-29 06:00");
}

TEST(TinyDateTimeTest, FormatOfANullDateIsEmpty) {
    EXPECT_EQ(Text(DateWithStatus(45000.5, DateTimeNull).Format(L"%Y")), L"");
}

TEST(TinyDateTimeTest, FormatOfAValueBeyondTheCalendarIsInvalidDateTime) {
    EXPECT_EQ(Text(TinyDateTime(1e10).Format(L"%Y")), L"Invalid DateTime");
}

// --- arithmetic across the zero day ---

TEST(TinyDateTimeTest, ToLinearOfANegativeFractionOfTheZeroDay) {
    EXPECT_EQ(TinyDateTime::ToLinear(-0.25), 0.25);
}

TEST(TinyDateTimeTest, FromLinearKeepsAPositiveFraction) {
    // So -0.25 does not come back from its round trip.
    EXPECT_EQ(TinyDateTime::FromLinear(0.25), 0.25);
}

TEST(TinyDateTimeTest, LinearFormOfANegativeDate) {
    EXPECT_EQ(TinyDateTime::ToLinear(-1.25), -0.75);
    EXPECT_EQ(TinyDateTime::FromLinear(-0.75), -1.25);
    EXPECT_EQ(TinyDateTime::ToLinear(2.5), 2.5);
}

TEST(TinyDateTimeTest, DateLessSpanCrossesTheZeroDay) {
    const TinyDateTime date(1.5);
    const TinyDateTimeSpan span(2.0);
    EXPECT_EQ(TinyDateTime::ToLinear(date.GetValue()) - span.GetValue(), -0.5);
    EXPECT_EQ((date - span).GetValue(), -1.5);
}

TEST(TinyDateTimeTest, DatePlusSpanLandsOnTheRightHourBeforeTheZeroDay) {
    const TinyDateTime date = TinyDateTime(0.25) - TinyDateTimeSpan(0.5);
    EXPECT_EQ(date.GetValue(), -1.75);
    EXPECT_EQ(date.GetDay(), 29);
    EXPECT_EQ(date.GetHour(), 18);
    EXPECT_EQ((date + TinyDateTimeSpan(0.5)).GetValue(), 0.25);
}

TEST(TinyDateTimeTest, DifferenceOfDatesOnBothSidesOfTheZeroDay) {
    const TinyDateTimeSpan difference = TinyDateTime(0.25) - TinyDateTime(-1.25);
    EXPECT_EQ(difference.GetValue(), 1.0);
    EXPECT_EQ(difference.GetStatus(), DateTimeValid);
}

TEST(TinyDateTimeTest, ArithmeticResultIsValidWhateverTheOperands) {
    const TinyDateTime date = DateWithStatus(10.0, DateTimeInvalid);
    const TinyDateTime moved = date + SpanWithStatus(1.0, DateTimeNull);
    EXPECT_EQ(moved.GetStatus(), DateTimeValid);
    EXPECT_EQ(moved.GetValue(), 11.0);
}

TEST(TinyDateTimeTest, CompoundAssignmentMovesTheDate) {
    TinyDateTime date(2023, 5, 17, 0, 0, 0);
    date += TinyDateTimeSpan(1, 12, 0, 0);
    EXPECT_EQ(date, TinyDateTime(2023, 5, 18, 12, 0, 0));
    date -= TinyDateTimeSpan(2.5);
    EXPECT_EQ(date, TinyDateTime(2023, 5, 16, 0, 0, 0));
}

// --- comparisons ---

TEST(TinyDateTimeTest, OrderFollowsTheLinearFormBeforeTheZeroDay) {
    // -1.25 is 06:00 on 1899-12-29, -1.75 is 18:00 on the same day.
    EXPECT_TRUE(TinyDateTime(-1.25) < TinyDateTime(-1.75));
    EXPECT_TRUE(TinyDateTime(-1.75) > TinyDateTime(-1.25));
    EXPECT_FALSE(TinyDateTime(-1.75) < TinyDateTime(-1.25));
}

TEST(TinyDateTimeTest, NullDatesAreEqualAndInvalidOnesAreNot) {
    EXPECT_TRUE(DateWithStatus(1.0, DateTimeNull) == DateWithStatus(2.0, DateTimeNull));
    EXPECT_FALSE(DateWithStatus(1.0, DateTimeInvalid) == DateWithStatus(1.0, DateTimeInvalid));
    EXPECT_FALSE(DateWithStatus(1.0, DateTimeNull) == TinyDateTime(1.0));
    EXPECT_TRUE(DateWithStatus(1.0, DateTimeInvalid) != DateWithStatus(1.0, DateTimeInvalid));
}

TEST(TinyDateTimeTest, OrderOfANonValidDateIsFalse) {
    EXPECT_FALSE(DateWithStatus(1.0, DateTimeInvalid) < TinyDateTime(2.0));
    EXPECT_FALSE(TinyDateTime(1.0) < DateWithStatus(2.0, DateTimeInvalid));
    EXPECT_FALSE(DateWithStatus(3.0, DateTimeNull) > DateWithStatus(2.0, DateTimeNull));
    EXPECT_TRUE(DateWithStatus(3.0, DateTimeNull) >= DateWithStatus(2.0, DateTimeNull));
}

// --- spans ---

TEST(TinyDateTimeSpanTest, BeyondTheLimitIsInvalid) {
    EXPECT_EQ(TinyDateTimeSpan(3615897.5).GetStatus(), DateTimeInvalid);
    EXPECT_EQ(TinyDateTimeSpan(-3615897.5).GetStatus(), DateTimeInvalid);
}

TEST(TinyDateTimeSpanTest, AtTheLimitIsValid) {
    EXPECT_EQ(TinyDateTimeSpan(3615897.0).GetStatus(), DateTimeValid);
    EXPECT_EQ(TinyDateTimeSpan(-3615897.0).GetStatus(), DateTimeValid);
}

TEST(TinyDateTimeSpanTest, NullPlusInvalidIsNull) {
    const TinyDateTimeSpan null = SpanWithStatus(1.0, DateTimeNull);
    const TinyDateTimeSpan invalid = SpanWithStatus(1.0, DateTimeInvalid);
    EXPECT_EQ((null + invalid).GetStatus(), DateTimeNull);
    EXPECT_EQ((invalid + null).GetStatus(), DateTimeNull);
    EXPECT_EQ((invalid - null).GetStatus(), DateTimeNull);
    EXPECT_EQ((null + invalid).GetValue(), 0.0);
}

TEST(TinyDateTimeSpanTest, InvalidPlusValidIsInvalid) {
    const TinyDateTimeSpan sum = SpanWithStatus(1.0, DateTimeInvalid) + TinyDateTimeSpan(2.0);
    EXPECT_EQ(sum.GetStatus(), DateTimeInvalid);
    EXPECT_EQ(sum.GetValue(), 0.0);
}

TEST(TinyDateTimeSpanTest, SumBeyondTheLimitIsInvalid) {
    TinyDateTimeSpan span(3615897.0);
    span += TinyDateTimeSpan(1.0);
    EXPECT_EQ(span.GetStatus(), DateTimeInvalid);
    EXPECT_EQ((TinyDateTimeSpan(-3615897.0) - TinyDateTimeSpan(1.0)).GetStatus(), DateTimeInvalid);
}

TEST(TinyDateTimeSpanTest, DaysAndTwentyFiveHours) {
    const TinyDateTimeSpan span(1, 25, 0, 0);
    EXPECT_EQ(span.GetTotalHours(), 49.0);
    EXPECT_EQ(span.GetHours(), 1);
    EXPECT_EQ(span.GetDays(), 2);
}

TEST(TinyDateTimeSpanTest, FieldsAreSummedInDays) {
    EXPECT_EQ(TinyDateTimeSpan(1, 12, 0, 0).GetValue(), 1.5);
    EXPECT_EQ(TinyDateTimeSpan(0, 6, 0, 0).GetValue(), 0.25);
    EXPECT_EQ(TinyDateTimeSpan(-1, 0, 0, 0).GetValue(), -1.0);
}

TEST(TinyDateTimeSpanTest, TotalsRoundAtTheHalfSecond) {
    const TinyDateTimeSpan span(59.6 / 86400.0);
    EXPECT_EQ(span.GetTotalSeconds(), 60.0);
    EXPECT_EQ(span.GetTotalMinutes(), 1.0);
    EXPECT_EQ(span.GetMinutes(), 1);
    EXPECT_EQ(span.GetSeconds(), 0);
    EXPECT_EQ(TinyDateTimeSpan(59.4 / 86400.0).GetTotalSeconds(), 59.0);
}

TEST(TinyDateTimeSpanTest, NegativeTotalsRoundAwayFromZero) {
    const TinyDateTimeSpan span(-(59.6 / 86400.0));
    EXPECT_EQ(span.GetTotalSeconds(), -60.0);
    EXPECT_EQ(span.GetMinutes(), -1);
    EXPECT_EQ(span.GetSeconds(), 0);
}

TEST(TinyDateTimeSpanTest, PartsOfASpan) {
    const TinyDateTimeSpan span(2, 3, 4, 5);
    EXPECT_EQ(span.GetDays(), 2);
    EXPECT_EQ(span.GetHours(), 3);
    EXPECT_EQ(span.GetMinutes(), 4);
    EXPECT_EQ(span.GetSeconds(), 5);
    EXPECT_EQ(span.GetTotalDays(), 2.0);
    EXPECT_EQ(span.GetTotalMinutes(), 2.0 * 1440 + 3 * 60 + 4);
    EXPECT_EQ(span.GetTotalSeconds(), 2.0 * 86400 + 3 * 3600 + 4 * 60 + 5);
}

TEST(TinyDateTimeSpanTest, NegationIsAValidSpan) {
    const TinyDateTimeSpan negated = -SpanWithStatus(1.5, DateTimeNull);
    EXPECT_EQ(negated.GetValue(), -1.5);
    EXPECT_EQ(negated.GetStatus(), DateTimeValid);
}

TEST(TinyDateTimeSpanTest, EqualityNeedsEqualStatuses) {
    EXPECT_TRUE(TinyDateTimeSpan(1.0) == TinyDateTimeSpan(1.0));
    EXPECT_TRUE(SpanWithStatus(1.0, DateTimeNull) == SpanWithStatus(2.0, DateTimeNull));
    EXPECT_FALSE(SpanWithStatus(1.0, DateTimeInvalid) == SpanWithStatus(1.0, DateTimeInvalid));
    EXPECT_FALSE(SpanWithStatus(1.0, DateTimeNull) == TinyDateTimeSpan(1.0));
    EXPECT_TRUE(TinyDateTimeSpan(1.0) != TinyDateTimeSpan(2.0));
}

TEST(TinyDateTimeSpanTest, OrderNeedsAValidLeftAndEqualStatuses) {
    EXPECT_TRUE(TinyDateTimeSpan(1.0) < TinyDateTimeSpan(2.0));
    EXPECT_TRUE(TinyDateTimeSpan(2.0) > TinyDateTimeSpan(1.0));
    EXPECT_FALSE(SpanWithStatus(1.0, DateTimeInvalid) < TinyDateTimeSpan(2.0));
    EXPECT_FALSE(TinyDateTimeSpan(1.0) < SpanWithStatus(2.0, DateTimeInvalid));
    EXPECT_TRUE(TinyDateTimeSpan(2.0) <= TinyDateTimeSpan(2.0));
    EXPECT_TRUE(TinyDateTimeSpan(3.0) >= TinyDateTimeSpan(2.0));
    EXPECT_TRUE(SpanWithStatus(3.0, DateTimeNull) <= SpanWithStatus(2.0, DateTimeNull));
}

}  // namespace
