#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestrin {

/// Wall-clock time. From `Clock::wallNow()`, never from the system directly.
using Date = std::chrono::system_clock::time_point;

namespace dates {

/// Formats by an ICU pattern ("HH:mm:ss.SSS", "yyyy-MM-dd") in the given zone; an empty zone is the
/// system's. English names; U+202F before AM/PM becomes a plain blank. Thread-safe.
std::string format(Date date, std::string_view pattern, std::string_view zone = {});
/// One field that is a number, in the system's zone: "H" the hour, "m" the minute, "e" the weekday.
int field(Date date, std::string_view pattern);
/// Parses by the same kind of pattern; nothing when it does not match whole, or for a time before
/// 1802 or after 2261.
std::optional<Date> parse(std::string_view text, std::string_view pattern,
                          std::string_view zone = {});

/// "2026-03-01T09:30:00Z"; with fractional seconds (3 digits) on request.
std::string iso8601(Date date, bool fractional = false);
/// Accepts "Z" and "+02:00" offsets, and fractions of any length; a text without offset counts as
/// UTC.
std::optional<Date> parseIso8601(std::string_view text);

/// Seconds since 1970, as the system counts; a time before 1802 or after 2261 becomes the nearest
/// that a Date can tell.
Date fromSeconds(int64_t seconds);

/// "5 minutes ago", "in 2 days", "now" for less than a second; in the largest unit that fits whole.
std::string relative(Date date, Date now);

/// The calendar day before a day written "yyyy-MM-dd"; empty when it is none.
std::string dayBefore(std::string_view day);

/// The identifier of the system's time zone, such as "Europe/Paris".
std::string systemTimeZone();

}  // namespace dates
}  // namespace kestrin
