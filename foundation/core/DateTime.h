// An instant as a u32 count of seconds since 1970-01-01 00:00:00 UTC; 0 (minimum) means "not known".
// A value type of four bytes: copy it freely, any thread.
#pragma once

#include <compare>
#include <cstdint>
#include <string>

#include "core/Exception.h"

namespace Vantu {

VANTU_DECLARE_EXCEPTION(InvalidDateException, Exception);

class DateTime {
public:
    enum DateModifier { Second = 0, Minute = 1, Hour = 2, Day = 3, Month = 4, Year = 5 };

    static const DateTime minimum;
    static const DateTime maximum;

    constexpr DateTime() = default;
    // From calendar fields read as local time when `local` is true, else as UTC. A field out of its
    // range, a day past the month's end or an instant outside 1970..2106 raises InvalidDateException.
    DateTime(int year, int month, int day, int hour, int minute, int second, bool local);
    // Parses "YYYY/MM/DD" or "YYYY-MM-DD", optionally followed by a space, "T" or "@" and "HH:MM" or
    // "HH:MM:SS", as UTC; blanks (IsBlank) around the text are ignored. `format` is reserved: the forms above
    // are the only ones. Any other text raises InvalidDateException.
    DateTime(const std::string& text, const std::string& format);
    DateTime(const std::u16string& text, const std::u16string& format);

    static constexpr DateTime FromSeconds(uint32_t seconds) { return DateTime(seconds, 0); }
    static DateTime GetCurrentDateTime();
    [[noreturn]] static void ThrowInvalidDate(const std::string& what);

    constexpr uint32_t Seconds() const { return seconds_; }
    constexpr auto operator<=>(const DateTime&) const = default;

    int LocalYear() const;
    int LocalMonth() const;     // 1..12
    int LocalMonthDay() const;  // 1..31
    int LocalHour() const;
    int LocalMin() const;
    int LocalSec() const;
    int UTCYear() const;
    int UTCMonth() const;
    int UTCMonthDay() const;
    int UTCHour() const;
    int UTCMin() const;
    int UTCSec() const;

    // Moves by `count` units; months and years move on the UTC calendar, keeping the time of day,
    // and a day past the end of the new month becomes its last day. The result is held within
    // minimum..maximum.
    void AddDelta(int count, DateModifier unit);

    friend DateTime operator+(DateTime date, int32_t seconds) { return Clamped(int64_t(date.seconds_) + seconds); }
    friend DateTime operator-(DateTime date, int32_t seconds) { return Clamped(int64_t(date.seconds_) - seconds); }

private:
    constexpr DateTime(uint32_t seconds, int) : seconds_(seconds) {}
    static DateTime Clamped(int64_t seconds);

    uint32_t seconds_ = 0;
};

inline constexpr DateTime DateTime::minimum = DateTime();
inline constexpr DateTime DateTime::maximum = DateTime::FromSeconds(0xFFFFFFFF);

}  // namespace Vantu
