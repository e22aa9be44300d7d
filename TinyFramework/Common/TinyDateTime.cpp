#include "TinyFramework/Common/TinyDateTime.h"

#include "TinyFramework/Common/TinyTime.h"

#include <windows.h>
#include <oleauto.h>

#include <cmath>
#include <ctime>
#include <cwchar>

namespace TinyFramework {

namespace {

// Half a second in days: the rounding step of a span's totals.
constexpr double kHalfSecondInDays = 5.787037037037037e-6;
const wchar_t* const kInvalidText = L"Invalid DateTime";
constexpr size_t kFormatBufferLength = 256;

bool SameCalendarFields(const SYSTEMTIME& left, const SYSTEMTIME& right) {
    return left.wYear == right.wYear && left.wMonth == right.wMonth && left.wDay == right.wDay &&
           left.wHour == right.wHour && left.wMinute == right.wMinute &&
           left.wSecond == right.wSecond;
}

// The status of a result made from two operands: null wins over invalid.
DateTimeStatus CombinedStatus(DateTimeStatus left, DateTimeStatus right) {
    if (left == DateTimeNull || right == DateTimeNull) {
        return DateTimeNull;
    }
    if (left == DateTimeInvalid || right == DateTimeInvalid) {
        return DateTimeInvalid;
    }
    return DateTimeValid;
}

}  // namespace

// --- TinyDateTimeSpan ---

TinyDateTimeSpan::TinyDateTimeSpan() : m_span(0.0), m_status(DateTimeValid) {}

TinyDateTimeSpan::TinyDateTimeSpan(double span) : m_span(span), m_status(DateTimeValid) {
    CheckRange();
}

TinyDateTimeSpan::TinyDateTimeSpan(LONG days, int hours, int minutes, int seconds)
    : m_span(hours / 24.0 + days + minutes / 1440.0 + seconds / 86400.0), m_status(DateTimeValid) {
    CheckRange();
}

void TinyDateTimeSpan::CheckRange() {
    if (m_span < -kMaxDays || m_span > kMaxDays) {
        m_status = DateTimeInvalid;
    }
}

double TinyDateTimeSpan::RoundedAtHalfSecond() const {
    return m_span + (m_span < 0 ? -kHalfSecondInDays : kHalfSecondInDays);
}

double TinyDateTimeSpan::GetTotalDays() const {
    return std::trunc(RoundedAtHalfSecond());
}

double TinyDateTimeSpan::GetTotalHours() const {
    return std::trunc(RoundedAtHalfSecond() * 24);
}

double TinyDateTimeSpan::GetTotalMinutes() const {
    return std::trunc(RoundedAtHalfSecond() * 1440);
}

double TinyDateTimeSpan::GetTotalSeconds() const {
    return std::trunc(RoundedAtHalfSecond() * 86400);
}

LONG TinyDateTimeSpan::GetDays() const {
    return static_cast<LONG>(GetTotalDays());
}

LONG TinyDateTimeSpan::GetHours() const {
    return static_cast<LONG>(static_cast<int64_t>(GetTotalHours()) % 24);
}

LONG TinyDateTimeSpan::GetMinutes() const {
    return static_cast<LONG>(static_cast<int64_t>(GetTotalMinutes()) % 60);
}

LONG TinyDateTimeSpan::GetSeconds() const {
    return static_cast<LONG>(static_cast<int64_t>(GetTotalSeconds()) % 60);
}

TinyDateTimeSpan TinyDateTimeSpan::operator+(const TinyDateTimeSpan& other) const {
    TinyDateTimeSpan result;
    result.m_status = CombinedStatus(GetStatus(), other.GetStatus());
    if (result.m_status == DateTimeValid) {
        result.m_span = m_span + other.m_span;
        result.CheckRange();
    }
    return result;
}

TinyDateTimeSpan TinyDateTimeSpan::operator-(const TinyDateTimeSpan& other) const {
    TinyDateTimeSpan result;
    result.m_status = CombinedStatus(GetStatus(), other.GetStatus());
    if (result.m_status == DateTimeValid) {
        result.m_span = m_span - other.m_span;
        result.CheckRange();
    }
    return result;
}

TinyDateTimeSpan& TinyDateTimeSpan::operator+=(const TinyDateTimeSpan& other) {
    *this = *this + other;
    CheckRange();
    return *this;
}

TinyDateTimeSpan& TinyDateTimeSpan::operator-=(const TinyDateTimeSpan& other) {
    *this = *this - other;
    CheckRange();
    return *this;
}

bool TinyDateTimeSpan::operator==(const TinyDateTimeSpan& other) const {
    if (m_status != other.m_status) {
        return false;
    }
    if (m_status != DateTimeValid) {
        return m_status == DateTimeNull;
    }
    return m_span == other.m_span;
}

bool TinyDateTimeSpan::operator<(const TinyDateTimeSpan& other) const {
    if (m_status != DateTimeValid || m_status != other.m_status) {
        return false;
    }
    return m_span < other.m_span;
}

bool TinyDateTimeSpan::operator>(const TinyDateTimeSpan& other) const {
    if (m_status != DateTimeValid || m_status != other.m_status) {
        return false;
    }
    return m_span > other.m_span;
}

// --- TinyDateTime ---

TinyDateTime TinyDateTime::Now() {
    return TinyDateTime(_time64(nullptr));
}

TinyDateTime::TinyDateTime() : m_date(0.0), m_status(DateTimeValid) {}

TinyDateTime::TinyDateTime(double date) : m_date(date), m_status(DateTimeValid) {}

TinyDateTime::TinyDateTime(const VARIANT& source) : m_date(0.0), m_status(DateTimeValid) {
    if (source.vt == VT_DATE) {
        m_date = source.date;
        return;
    }
    VARIANT converted;
    VariantInit(&converted);
    if (FAILED(VariantChangeType(&converted, const_cast<VARIANT*>(&source), 0, VT_DATE))) {
        m_status = DateTimeInvalid;
        return;
    }
    m_date = converted.date;
    VariantClear(&converted);
}

TinyDateTime::TinyDateTime(__time32_t time) : m_date(0.0), m_status(DateTimeValid) {
    SetFromTime(time);
}

TinyDateTime::TinyDateTime(__time64_t time) : m_date(0.0), m_status(DateTimeValid) {
    SetFromTime(time);
}

TinyDateTime::TinyDateTime(const SYSTEMTIME& systemTime) : m_date(0.0), m_status(DateTimeValid) {
    m_status = SetFromSystemTime(systemTime) ? DateTimeValid : DateTimeInvalid;
}

TinyDateTime::TinyDateTime(const FILETIME& fileTime) : m_date(0.0), m_status(DateTimeValid) {
    FILETIME localFileTime;
    SYSTEMTIME localTime;
    const bool converted = FileTimeToLocalFileTime(&fileTime, &localFileTime) &&
                           FileTimeToSystemTime(&localFileTime, &localTime) &&
                           SetFromSystemTime(localTime);
    m_status = converted ? DateTimeValid : DateTimeInvalid;
}

TinyDateTime::TinyDateTime(int year, int month, int day, int hour, int minute, int second)
    : m_date(0.0), m_status(DateTimeValid) {
    SetFromFields(year, month, day, hour, minute, second);
}

TinyDateTime::TinyDateTime(WORD dosDate, WORD dosTime) : m_date(0.0), m_status(DateTimeValid) {
    m_status =
        DosDateTimeToVariantTime(dosDate, dosTime, &m_date) ? DateTimeValid : DateTimeInvalid;
}

TinyDateTime::TinyDateTime(const UDATE& date) : m_date(0.0), m_status(DateTimeValid) {
    const HRESULT hr = VarDateFromUdate(const_cast<UDATE*>(&date), 0, &m_date);
    m_status = FAILED(hr) ? DateTimeInvalid : DateTimeValid;
}

DateTimeStatus TinyDateTime::SetDateTime(int year, int month, int day, int hour, int minute,
                                         int second) {
    return SetFromFields(year, month, day, hour, minute, second);
}

DateTimeStatus TinyDateTime::SetDate(int year, int month, int day) {
    return SetFromFields(year, month, day, 0, 0, 0);
}

DateTimeStatus TinyDateTime::SetTime(int hour, int minute, int second) {
    return SetFromFields(1899, 12, 30, hour, minute, second);
}

DateTimeStatus TinyDateTime::SetFromFields(int year, int month, int day, int hour, int minute,
                                           int second) {
    SYSTEMTIME systemTime = {};
    systemTime.wYear = static_cast<WORD>(year);
    systemTime.wMonth = static_cast<WORD>(month);
    systemTime.wDay = static_cast<WORD>(day);
    systemTime.wHour = static_cast<WORD>(hour);
    systemTime.wMinute = static_cast<WORD>(minute);
    systemTime.wSecond = static_cast<WORD>(second);
    m_status = SetFromSystemTime(systemTime) ? DateTimeValid : DateTimeInvalid;
    return GetStatus();
}

void TinyDateTime::SetFromTime(__time64_t time) {
    SYSTEMTIME localTime;
    const bool converted = TinyTime(static_cast<int64_t>(time)).GetAsSystemTime(localTime) &&
                           SetFromSystemTime(localTime);
    m_status = converted ? DateTimeValid : DateTimeInvalid;
}

bool TinyDateTime::SetFromSystemTime(const SYSTEMTIME& systemTime) {
    // The platform writes the value before it is checked: a refused date keeps the value of
    // the day it rolled over to, with the status saying that it is not to be used.
    if (!SystemTimeToVariantTime(const_cast<SYSTEMTIME*>(&systemTime), &m_date)) {
        return false;
    }
    SYSTEMTIME roundTrip;
    if (!VariantTimeToSystemTime(m_date, &roundTrip)) {
        return false;
    }
    return SameCalendarFields(systemTime, roundTrip);
}

bool TinyDateTime::GetAsSystemTime(SYSTEMTIME& systemTime) const {
    return m_status == DateTimeValid && VariantTimeToSystemTime(m_date, &systemTime);
}

bool TinyDateTime::GetAsUDATE(UDATE& date) const {
    return SUCCEEDED(VarUdateFromDate(m_date, 0, &date));
}

int TinyDateTime::GetYear() const {
    SYSTEMTIME systemTime;
    return GetAsSystemTime(systemTime) ? systemTime.wYear : -1;
}

int TinyDateTime::GetMonth() const {
    SYSTEMTIME systemTime;
    return GetAsSystemTime(systemTime) ? systemTime.wMonth : -1;
}

int TinyDateTime::GetDay() const {
    SYSTEMTIME systemTime;
    return GetAsSystemTime(systemTime) ? systemTime.wDay : -1;
}

int TinyDateTime::GetHour() const {
    SYSTEMTIME systemTime;
    return GetAsSystemTime(systemTime) ? systemTime.wHour : -1;
}

int TinyDateTime::GetMinute() const {
    SYSTEMTIME systemTime;
    return GetAsSystemTime(systemTime) ? systemTime.wMinute : -1;
}

int TinyDateTime::GetSecond() const {
    SYSTEMTIME systemTime;
    return GetAsSystemTime(systemTime) ? systemTime.wSecond : -1;
}

int TinyDateTime::GetDayOfWeek() const {
    SYSTEMTIME systemTime;
    return GetAsSystemTime(systemTime) ? systemTime.wDayOfWeek + 1 : -1;
}

int TinyDateTime::GetDayOfYear() const {
    UDATE date;
    return GetAsUDATE(date) ? date.wDayOfYear : -1;
}

TinyStringW TinyDateTime::Format(const wchar_t* format) const {
    if (m_status == DateTimeNull) {
        return TinyStringW();
    }
    UDATE date;
    if (m_status == DateTimeInvalid || !GetAsUDATE(date)) {
        return TinyStringW(kInvalidText);
    }
    tm calendar = {};
    calendar.tm_sec = date.st.wSecond;
    calendar.tm_min = date.st.wMinute;
    calendar.tm_hour = date.st.wHour;
    calendar.tm_mday = date.st.wDay;
    calendar.tm_mon = date.st.wMonth - 1;
    calendar.tm_year = date.st.wYear - 1900;
    calendar.tm_wday = date.st.wDayOfWeek;
    calendar.tm_yday = date.wDayOfYear - 1;
    calendar.tm_isdst = 0;
    wchar_t buffer[kFormatBufferLength];
    const size_t length = wcsftime(buffer, kFormatBufferLength, format, &calendar);
    return TinyStringW(buffer, length);
}

double TinyDateTime::ToLinear(double date) {
    if (date >= 0) {
        return date;
    }
    const double day = std::ceil(date);
    return day - (date - day);
}

double TinyDateTime::FromLinear(double linear) {
    if (linear >= 0) {
        return linear;
    }
    const double day = std::floor(linear);
    return day + (day - linear);
}

TinyDateTime TinyDateTime::operator+(const TinyDateTimeSpan& span) const {
    return TinyDateTime(FromLinear(ToLinear(m_date) + span.GetValue()));
}

TinyDateTime TinyDateTime::operator-(const TinyDateTimeSpan& span) const {
    return TinyDateTime(FromLinear(ToLinear(m_date) - span.GetValue()));
}

TinyDateTimeSpan TinyDateTime::operator-(const TinyDateTime& other) const {
    return TinyDateTimeSpan(ToLinear(m_date) - ToLinear(other.m_date));
}

TinyDateTime& TinyDateTime::operator+=(const TinyDateTimeSpan& span) {
    *this = *this + span;
    return *this;
}

TinyDateTime& TinyDateTime::operator-=(const TinyDateTimeSpan& span) {
    *this = *this - span;
    return *this;
}

bool TinyDateTime::operator==(const TinyDateTime& other) const {
    if (m_status != other.m_status) {
        return false;
    }
    if (m_status != DateTimeValid) {
        return m_status == DateTimeNull;
    }
    return m_date == other.m_date;
}

bool TinyDateTime::operator<(const TinyDateTime& other) const {
    if (m_status != DateTimeValid || m_status != other.m_status) {
        return false;
    }
    return ToLinear(m_date) < ToLinear(other.m_date);
}

bool TinyDateTime::operator>(const TinyDateTime& other) const {
    if (m_status != DateTimeValid || m_status != other.m_status) {
        return false;
    }
    return ToLinear(m_date) > ToLinear(other.m_date);
}

}  // namespace TinyFramework
