#pragma once

#include <windows.h>

#include <cstdint>
#include <ctime>

namespace TinyFramework {

// A length of time in whole seconds. A plain value.
class TinyTimeSpan {
public:
    TinyTimeSpan() : m_span(0) {}
    explicit TinyTimeSpan(int64_t seconds) : m_span(seconds) {}
    TinyTimeSpan(LONG days, int hours, int minutes, int seconds);

    // The totals divide the seconds and truncate towards zero; the parts are what is left of
    // each unit after the next larger one.
    int64_t GetDays() const { return m_span / 86400; }
    int64_t GetTotalHours() const { return m_span / 3600; }
    int64_t GetTotalMinutes() const { return m_span / 60; }
    int64_t GetTotalSeconds() const { return m_span; }
    LONG GetHours() const { return static_cast<LONG>(GetTotalHours() - GetDays() * 24); }
    LONG GetMinutes() const { return static_cast<LONG>(GetTotalMinutes() - GetTotalHours() * 60); }
    LONG GetSeconds() const {
        return static_cast<LONG>(GetTotalSeconds() - GetTotalMinutes() * 60);
    }

    TinyTimeSpan operator+(const TinyTimeSpan& other) const {
        return TinyTimeSpan(m_span + other.m_span);
    }
    TinyTimeSpan operator-(const TinyTimeSpan& other) const {
        return TinyTimeSpan(m_span - other.m_span);
    }
    TinyTimeSpan& operator+=(const TinyTimeSpan& other);
    TinyTimeSpan& operator-=(const TinyTimeSpan& other);
    bool operator==(const TinyTimeSpan& other) const { return m_span == other.m_span; }
    bool operator!=(const TinyTimeSpan& other) const { return m_span != other.m_span; }
    bool operator<(const TinyTimeSpan& other) const { return m_span < other.m_span; }
    bool operator>(const TinyTimeSpan& other) const { return m_span > other.m_span; }
    bool operator<=(const TinyTimeSpan& other) const { return m_span <= other.m_span; }
    bool operator>=(const TinyTimeSpan& other) const { return m_span >= other.m_span; }

private:
    int64_t m_span;
};

// A moment as whole seconds since 1970-01-01 00:00:00 UTC. Calendar values given to and taken
// from it are local time, through the C runtime's 64-bit time functions.
//
// The calendar constructors throw the wide string "Invalid args" (a const wchar_t*) when the C
// runtime cannot express the values as such a count: a moment before 1970 or after 3000, for
// one. Values that it can normalise (a 30th of February, a 25th hour) are taken as normalised.
class TinyTime {
public:
    TinyTime() : m_time(0) {}
    // Taken as given, with no check.
    explicit TinyTime(int64_t time) : m_time(time) {}
    TinyTime(int year, int month, int day, int hour, int minute, int second, int isDst = -1);
    TinyTime(WORD dosDate, WORD dosTime, int isDst = -1);
    // Years before 1900 give TinyTime(0) instead of an exception.
    explicit TinyTime(const SYSTEMTIME& systemTime, int isDst = -1);
    // Through the local calendar time of the file time; TinyTime(0) if the platform cannot
    // convert it.
    explicit TinyTime(const FILETIME& fileTime, int isDst = -1);

    // The argument filled and returned, or null for a null argument or a failed conversion.
    tm* GetGmtTm(tm* result) const;
    tm* GetLocalTm(tm* result) const;
    // Local time, milliseconds 0.
    bool GetAsSystemTime(SYSTEMTIME& systemTime) const;
    int64_t GetTime() const { return m_time; }

    // Local calendar parts. The date parts give 0 when the time has no local calendar form, the
    // time-of-day parts -1: callers tell a failure from midnight by that difference, so the two
    // groups keep their own failure values.
    int GetYear() const;
    int GetMonth() const;
    int GetDay() const;
    // Sunday is 1.
    int GetDayOfWeek() const;
    int GetHour() const;
    int GetMinute() const;
    int GetSecond() const;

    TinyTime operator+(const TinyTimeSpan& span) const {
        return TinyTime(m_time + span.GetTotalSeconds());
    }
    TinyTime operator-(const TinyTimeSpan& span) const {
        return TinyTime(m_time - span.GetTotalSeconds());
    }
    TinyTimeSpan operator-(const TinyTime& other) const {
        return TinyTimeSpan(m_time - other.m_time);
    }
    TinyTime& operator+=(const TinyTimeSpan& span);
    TinyTime& operator-=(const TinyTimeSpan& span);
    bool operator==(const TinyTime& other) const { return m_time == other.m_time; }
    bool operator!=(const TinyTime& other) const { return m_time != other.m_time; }
    bool operator<(const TinyTime& other) const { return m_time < other.m_time; }
    bool operator>(const TinyTime& other) const { return m_time > other.m_time; }
    bool operator<=(const TinyTime& other) const { return m_time <= other.m_time; }
    bool operator>=(const TinyTime& other) const { return m_time >= other.m_time; }

private:
    static int64_t MakeLocalTime(tm& calendar);
    static int64_t FromSystemTime(const SYSTEMTIME& systemTime, int isDst);

    int64_t m_time;
};

// Milliseconds since 1970 of the present local time, read as if it were standard time.
int64_t GetTimestampMilliseconds();

}  // namespace TinyFramework
