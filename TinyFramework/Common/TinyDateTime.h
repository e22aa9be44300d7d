#pragma once

#include "TinyFramework/Common/TinyString.h"

#include <windows.h>
#include <oleauto.h>

#include <cstdint>
#include <ctime>

namespace TinyFramework {

// The status that TinyDateTime and TinyDateTimeSpan carry instead of throwing.
enum DateTimeStatus : int32_t {
    DateTimeValid = 0,
    DateTimeInvalid = 1,
    DateTimeNull = 2,
};

// A length of time in days, as a double, with a status. Lengths beyond about 9900 years either
// way are marked invalid.
class TinyDateTimeSpan {
public:
    // The largest length, in days, that a span may hold and stay valid.
    static constexpr double kMaxDays = 3615897.0;

    TinyDateTimeSpan();
    explicit TinyDateTimeSpan(double span);
    TinyDateTimeSpan(LONG days, int hours, int minutes, int seconds);

    DateTimeStatus GetStatus() const { return static_cast<DateTimeStatus>(m_status); }
    void SetStatus(DateTimeStatus status) { m_status = status; }
    double GetValue() const { return m_span; }

    // Each total is rounded at the half second, away from zero, then truncated to its unit.
    double GetTotalDays() const;
    double GetTotalHours() const;
    double GetTotalMinutes() const;
    double GetTotalSeconds() const;
    LONG GetDays() const;
    LONG GetHours() const;
    LONG GetMinutes() const;
    LONG GetSeconds() const;

    // A null operand makes the result null, otherwise an invalid one makes it invalid.
    TinyDateTimeSpan operator+(const TinyDateTimeSpan& other) const;
    TinyDateTimeSpan operator-(const TinyDateTimeSpan& other) const;
    TinyDateTimeSpan& operator+=(const TinyDateTimeSpan& other);
    TinyDateTimeSpan& operator-=(const TinyDateTimeSpan& other);
    // A new, valid span of the negated value, whatever this one's status.
    TinyDateTimeSpan operator-() const { return TinyDateTimeSpan(-m_span); }

    // Equal statuses are required; two non-valid spans are equal only when both are null.
    bool operator==(const TinyDateTimeSpan& other) const;
    bool operator!=(const TinyDateTimeSpan& other) const { return !(*this == other); }
    // False unless this span is valid and the statuses agree.
    bool operator<(const TinyDateTimeSpan& other) const;
    bool operator>(const TinyDateTimeSpan& other) const;
    bool operator<=(const TinyDateTimeSpan& other) const { return *this < other || *this == other; }
    bool operator>=(const TinyDateTimeSpan& other) const { return *this > other || *this == other; }

private:
    // Marks an out-of-range value invalid; never makes a span valid again.
    void CheckRange();
    double RoundedAtHalfSecond() const;

    double m_span;
    int32_t m_status;
};

// A moment in the platform's variant date encoding: whole days since 1899-12-30, the fraction
// being the time of day. Before that day the fraction still counts forward within the day, so
// the encoding is not a number line there: arithmetic goes through ToLinear and FromLinear.
//
// Never throws: a value that cannot be made is marked invalid, and Format shows it.
class TinyDateTime {
public:
    static TinyDateTime Now();

    TinyDateTime();
    // Taken as it stands, valid, with no range check.
    explicit TinyDateTime(double date);
    explicit TinyDateTime(const VARIANT& source);
    // From a count of seconds since 1970, through its local calendar time.
    explicit TinyDateTime(__time32_t time);
    explicit TinyDateTime(__time64_t time);
    explicit TinyDateTime(const SYSTEMTIME& systemTime);
    // Through the local calendar time of the file time.
    explicit TinyDateTime(const FILETIME& fileTime);
    TinyDateTime(int year, int month, int day, int hour, int minute, int second);
    TinyDateTime(WORD dosDate, WORD dosTime);
    explicit TinyDateTime(const UDATE& date);

    // Each returns the resulting status. SetDate sets the time of day to 0; SetTime puts the
    // time on the day 1899-12-30.
    DateTimeStatus SetDateTime(int year, int month, int day, int hour, int minute, int second);
    DateTimeStatus SetDate(int year, int month, int day);
    DateTimeStatus SetTime(int hour, int minute, int second);

    DateTimeStatus GetStatus() const { return static_cast<DateTimeStatus>(m_status); }
    void SetStatus(DateTimeStatus status) { m_status = status; }
    double GetValue() const { return m_date; }

    bool GetAsSystemTime(SYSTEMTIME& systemTime) const;
    // Looks at the value only, not at the status.
    bool GetAsUDATE(UDATE& date) const;
    // -1 when the date has no calendar form.
    int GetYear() const;
    int GetMonth() const;
    int GetDay() const;
    int GetHour() const;
    int GetMinute() const;
    int GetSecond() const;
    // Sunday is 1.
    int GetDayOfWeek() const;
    // January 1st is 1.
    int GetDayOfYear() const;

    // wcsftime of the date with the given format, at most 255 characters; "" for a null date,
    // "Invalid DateTime" for an invalid one or one without a calendar form.
    TinyStringW Format(const wchar_t* format) const;

    // Results of arithmetic are valid whatever the operands' status.
    TinyDateTime operator+(const TinyDateTimeSpan& span) const;
    TinyDateTime operator-(const TinyDateTimeSpan& span) const;
    TinyDateTimeSpan operator-(const TinyDateTime& other) const;
    TinyDateTime& operator+=(const TinyDateTimeSpan& span);
    TinyDateTime& operator-=(const TinyDateTimeSpan& span);

    // As for spans: equal statuses, and two non-valid dates are equal only when both are null.
    bool operator==(const TinyDateTime& other) const;
    bool operator!=(const TinyDateTime& other) const { return !(*this == other); }
    // False unless this date is valid and the statuses agree; compares linear values.
    bool operator<(const TinyDateTime& other) const;
    bool operator>(const TinyDateTime& other) const;
    bool operator<=(const TinyDateTime& other) const { return *this < other || *this == other; }
    bool operator>=(const TinyDateTime& other) const { return *this > other || *this == other; }

    // The encoding as a number line and back. Negative fractions of the zero day have no
    // encoding of their own (-0.25 is 06:00 on 1899-12-30, as 0.25 is), so they do not survive
    // the round trip.
    static double ToLinear(double date);
    static double FromLinear(double linear);

private:
    // Converts to the encoding and back, and refuses the values that the platform would roll
    // over into another day (February 30th, hour 25).
    bool SetFromSystemTime(const SYSTEMTIME& systemTime);
    void SetFromTime(__time64_t time);
    DateTimeStatus SetFromFields(int year, int month, int day, int hour, int minute, int second);

    double m_date;
    int32_t m_status;
};

}  // namespace TinyFramework
