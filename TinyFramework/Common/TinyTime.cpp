#include "TinyFramework/Common/TinyTime.h"

#include <windows.h>

#include <cstdio>
#include <ctime>

namespace TinyFramework {

namespace {

// What the calendar constructors throw; nothing catches it, so a caller that passes values
// without a local time ends the process by the runtime's usual path.
const wchar_t* const kInvalidArgs = L"Invalid args";

// The local calendar form of a count of seconds, or false when there is none.
bool LocalCalendar(int64_t time, tm& calendar) {
    const __time64_t value = time;
    return _localtime64_s(&calendar, &value) == 0;
}

}  // namespace

TinyTimeSpan::TinyTimeSpan(LONG days, int hours, int minutes, int seconds)
    : m_span(seconds + 60 * (minutes + 60 * (hours + 24 * static_cast<int64_t>(days)))) {}

TinyTimeSpan& TinyTimeSpan::operator+=(const TinyTimeSpan& other) {
    m_span += other.m_span;
    return *this;
}

TinyTimeSpan& TinyTimeSpan::operator-=(const TinyTimeSpan& other) {
    m_span -= other.m_span;
    return *this;
}

int64_t TinyTime::MakeLocalTime(tm& calendar) {
    const __time64_t time = _mktime64(&calendar);
    if (time == -1) {
        throw kInvalidArgs;
    }
    return time;
}

int64_t TinyTime::FromSystemTime(const SYSTEMTIME& systemTime, int isDst) {
    // The C runtime's calendar starts counting years at 1900; earlier dates are taken as the
    // start of the count rather than refused.
    if (systemTime.wYear < 1900) {
        return 0;
    }
    return TinyTime(systemTime.wYear, systemTime.wMonth, systemTime.wDay, systemTime.wHour,
                    systemTime.wMinute, systemTime.wSecond, isDst)
        .m_time;
}

TinyTime::TinyTime(int year, int month, int day, int hour, int minute, int second, int isDst) {
    tm calendar = {};
    calendar.tm_sec = second;
    calendar.tm_min = minute;
    calendar.tm_hour = hour;
    calendar.tm_mday = day;
    calendar.tm_mon = month - 1;
    calendar.tm_year = year - 1900;
    calendar.tm_isdst = isDst;
    m_time = MakeLocalTime(calendar);
}

TinyTime::TinyTime(WORD dosDate, WORD dosTime, int isDst) {
    // MS-DOS packs seconds in units of two, and counts years from 1980.
    tm calendar = {};
    calendar.tm_sec = (dosTime & 31) * 2;
    calendar.tm_min = (dosTime >> 5) & 63;
    calendar.tm_hour = dosTime >> 11;
    calendar.tm_mday = dosDate & 31;
    calendar.tm_mon = ((dosDate >> 5) & 15) - 1;
    calendar.tm_year = (dosDate >> 9) + 80;
    calendar.tm_isdst = isDst;
    m_time = MakeLocalTime(calendar);
}

TinyTime::TinyTime(const SYSTEMTIME& systemTime, int isDst)
    : m_time(FromSystemTime(systemTime, isDst)) {}

TinyTime::TinyTime(const FILETIME& fileTime, int isDst) : m_time(0) {
    FILETIME localFileTime;
    SYSTEMTIME localTime;
    if (FileTimeToLocalFileTime(&fileTime, &localFileTime) &&
        FileTimeToSystemTime(&localFileTime, &localTime)) {
        m_time = FromSystemTime(localTime, isDst);
    }
}

tm* TinyTime::GetGmtTm(tm* result) const {
    if (result == nullptr) {
        return nullptr;
    }
    const __time64_t value = m_time;
    return _gmtime64_s(result, &value) == 0 ? result : nullptr;
}

tm* TinyTime::GetLocalTm(tm* result) const {
    if (result == nullptr) {
        return nullptr;
    }
    return LocalCalendar(m_time, *result) ? result : nullptr;
}

bool TinyTime::GetAsSystemTime(SYSTEMTIME& systemTime) const {
    tm calendar;
    if (!LocalCalendar(m_time, calendar)) {
        return false;
    }
    systemTime.wYear = static_cast<WORD>(calendar.tm_year + 1900);
    systemTime.wMonth = static_cast<WORD>(calendar.tm_mon + 1);
    systemTime.wDayOfWeek = static_cast<WORD>(calendar.tm_wday);
    systemTime.wDay = static_cast<WORD>(calendar.tm_mday);
    systemTime.wHour = static_cast<WORD>(calendar.tm_hour);
    systemTime.wMinute = static_cast<WORD>(calendar.tm_min);
    systemTime.wSecond = static_cast<WORD>(calendar.tm_sec);
    systemTime.wMilliseconds = 0;
    return true;
}

int TinyTime::GetYear() const {
    tm calendar;
    return LocalCalendar(m_time, calendar) ? calendar.tm_year + 1900 : 0;
}

int TinyTime::GetMonth() const {
    tm calendar;
    return LocalCalendar(m_time, calendar) ? calendar.tm_mon + 1 : 0;
}

int TinyTime::GetDay() const {
    tm calendar;
    return LocalCalendar(m_time, calendar) ? calendar.tm_mday : 0;
}

int TinyTime::GetDayOfWeek() const {
    tm calendar;
    return LocalCalendar(m_time, calendar) ? calendar.tm_wday + 1 : 0;
}

int TinyTime::GetHour() const {
    tm calendar;
    return LocalCalendar(m_time, calendar) ? calendar.tm_hour : -1;
}

int TinyTime::GetMinute() const {
    tm calendar;
    return LocalCalendar(m_time, calendar) ? calendar.tm_min : -1;
}

int TinyTime::GetSecond() const {
    tm calendar;
    return LocalCalendar(m_time, calendar) ? calendar.tm_sec : -1;
}

TinyTime& TinyTime::operator+=(const TinyTimeSpan& span) {
    m_time += span.GetTotalSeconds();
    return *this;
}

TinyTime& TinyTime::operator-=(const TinyTimeSpan& span) {
    m_time -= span.GetTotalSeconds();
    return *this;
}

int64_t GetTimestampMilliseconds() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    // The clock's fields go through a text and back into a zeroed tm (so tm_isdst is 0). The
    // round trip is kept as this value has always been made; it gives the same count as
    // filling the tm directly.
    char text[64];
    snprintf(text, sizeof(text), "%d-%d-%d %d:%d:%d", now.wYear, now.wMonth, now.wDay, now.wHour,
             now.wMinute, now.wSecond);
    tm calendar = {};
    sscanf(text, "%d-%d-%d %d:%d:%d", &calendar.tm_year, &calendar.tm_mon, &calendar.tm_mday,
           &calendar.tm_hour, &calendar.tm_min, &calendar.tm_sec);
    calendar.tm_year -= 1900;
    calendar.tm_mon -= 1;
    return _mktime64(&calendar) * 1000 + now.wMilliseconds;
}

}  // namespace TinyFramework
