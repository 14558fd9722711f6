#include "core/DateTime.h"

#include <cstdio>
#include <ctime>

#include "core/CoreMessages.h"

namespace Vantu {

namespace {

bool IsLeap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) {
    static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeap(year) ? 29 : kDays[month - 1];
}

bool FieldsValid(int year, int month, int day, int hour, int minute, int second) {
    return year >= 1969 && year <= 2106 && month >= 1 && month <= 12 && day >= 1 && day <= DaysInMonth(year, month) &&
           hour >= 0 && hour <= 23 && minute >= 0 && minute <= 59 && second >= 0 && second <= 59;
}

std::tm Fields(uint32_t seconds, bool local) {
    std::time_t t = std::time_t(seconds);
    std::tm fields{};
    if (local)
        localtime_r(&t, &fields);
    else
        gmtime_r(&t, &fields);
    return fields;
}

// Reads exactly `n` digits at `pos`.
bool Digits(const std::string& text, size_t& pos, size_t n, int& value) {
    if (pos + n > text.size()) return false;
    value = 0;
    for (size_t end = pos + n; pos < end; ++pos) {
        if (text[pos] < '0' || text[pos] > '9') return false;
        value = value * 10 + (text[pos] - '0');
    }
    return true;
}

std::string FieldsText(int year, int month, int day, int hour, int minute, int second) {
    char text[64];
    std::snprintf(text, sizeof text, "%04d/%02d/%02d %02d:%02d:%02d", year, month, day, hour, minute, second);
    return text;
}

}  // namespace

DateTime::DateTime(int year, int month, int day, int hour, int minute, int second, bool local) {
    // 1969 passes the field check because local midnight of 1970-01-01 may lie before the epoch in UTC;
    // the range check below decides.
    if (!FieldsValid(year, month, day, hour, minute, second))
        ThrowInvalidDate(FieldsText(year, month, day, hour, minute, second));
    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    fields.tm_isdst = -1;
    int64_t t = local ? int64_t(mktime(&fields)) : int64_t(timegm(&fields));
    if (t < 0 || t > int64_t(0xFFFFFFFF)) ThrowInvalidDate(FieldsText(year, month, day, hour, minute, second));
    seconds_ = uint32_t(t);
}

DateTime::DateTime(const std::string& text, const std::string&) {
    size_t begin = 0, end = text.size();
    while (begin < end && IsBlank(char16_t(text[begin]))) ++begin;
    while (end > begin && IsBlank(char16_t(text[end - 1]))) --end;
    const std::string s = text.substr(begin, end - begin);

    size_t pos = 0;
    int year, month, day, hour = 0, minute = 0, second = 0;
    bool ok = Digits(s, pos, 4, year) && pos < s.size() && (s[pos] == '/' || s[pos] == '-');
    const char delimiter = ok ? s[pos++] : 0;
    ok = ok && Digits(s, pos, 2, month) && pos < s.size() && s[pos++] == delimiter && Digits(s, pos, 2, day);
    if (ok && pos < s.size()) {
        char separator = s[pos++];
        ok = (separator == ' ' || separator == 'T' || separator == '@') && Digits(s, pos, 2, hour) &&
             pos < s.size() && s[pos++] == ':' && Digits(s, pos, 2, minute);
        if (ok && pos < s.size()) ok = s[pos++] == ':' && Digits(s, pos, 2, second) && pos == s.size();
    }
    if (!ok) ThrowInvalidDate(text);
    *this = DateTime(year, month, day, hour, minute, second, false);
}

DateTime::DateTime(const std::u16string& text, const std::u16string& format) : DateTime(ToUtf8(text), ToUtf8(format)) {}

DateTime DateTime::GetCurrentDateTime() { return Clamped(int64_t(std::time(nullptr))); }

void DateTime::ThrowInvalidDate(const std::string& what) {
    throw InvalidDateException(VANTU_CORE_MESSAGE(kInvalidDateMessage, what));
}

DateTime DateTime::Clamped(int64_t seconds) {
    if (seconds < 0) return minimum;
    if (seconds > int64_t(0xFFFFFFFF)) return maximum;
    return FromSeconds(uint32_t(seconds));
}

int DateTime::LocalYear() const { return Fields(seconds_, true).tm_year + 1900; }
int DateTime::LocalMonth() const { return Fields(seconds_, true).tm_mon + 1; }
int DateTime::LocalMonthDay() const { return Fields(seconds_, true).tm_mday; }
int DateTime::LocalHour() const { return Fields(seconds_, true).tm_hour; }
int DateTime::LocalMin() const { return Fields(seconds_, true).tm_min; }
int DateTime::LocalSec() const { return Fields(seconds_, true).tm_sec; }
int DateTime::UTCYear() const { return Fields(seconds_, false).tm_year + 1900; }
int DateTime::UTCMonth() const { return Fields(seconds_, false).tm_mon + 1; }
int DateTime::UTCMonthDay() const { return Fields(seconds_, false).tm_mday; }
int DateTime::UTCHour() const { return Fields(seconds_, false).tm_hour; }
int DateTime::UTCMin() const { return Fields(seconds_, false).tm_min; }
int DateTime::UTCSec() const { return Fields(seconds_, false).tm_sec; }

void DateTime::AddDelta(int count, DateModifier unit) {
    static const int64_t kUnitSeconds[4] = {1, 60, 3600, 86400};
    if (unit <= Day) {
        *this = Clamped(int64_t(seconds_) + int64_t(count) * kUnitSeconds[unit]);
        return;
    }
    std::tm fields = Fields(seconds_, false);
    // Months since 1900; outside 1969..2106 the result is clamped before any calendar arithmetic.
    int64_t months = int64_t(fields.tm_year) * 12 + fields.tm_mon + int64_t(count) * (unit == Year ? 12 : 1);
    if (months < int64_t(69) * 12) {
        *this = minimum;
        return;
    }
    if (months >= int64_t(207) * 12) {
        *this = maximum;
        return;
    }
    int year = int(months / 12) + 1900;
    int month = int(months % 12) + 1;
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    if (fields.tm_mday > DaysInMonth(year, month)) fields.tm_mday = DaysInMonth(year, month);
    *this = Clamped(int64_t(timegm(&fields)));
}

}  // namespace Vantu
