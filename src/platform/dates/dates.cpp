#include "platform/dates/dates.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <memory>
#include <unicode/calendar.h>
#include <unicode/reldatefmt.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include "platform/text/text.h"

namespace kestrin::dates {
namespace {

icu::UnicodeString toUtf16(std::string_view text) {
  return icu::UnicodeString::fromUTF8(
      icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

std::unique_ptr<icu::TimeZone> timeZone(std::string_view zone) {
  if (zone.empty()) return std::unique_ptr<icu::TimeZone>(icu::TimeZone::detectHostTimeZone());
  return std::unique_ptr<icu::TimeZone>(icu::TimeZone::createTimeZone(toUtf16(zone)));
}

std::unique_ptr<icu::SimpleDateFormat> formatter(std::string_view pattern, std::string_view zone) {
  UErrorCode status = U_ZERO_ERROR;
  auto out =
      std::make_unique<icu::SimpleDateFormat>(toUtf16(pattern), icu::Locale::getUS(), status);
  if (U_FAILURE(status)) return nullptr;
  out->adoptTimeZone(timeZone(zone).release());
  return out;
}

// A Date counts nanoseconds: beyond 2262 it runs over, and so does the distance of today from what
// lies more than 292 years back. In milliseconds: 1802 and 2261.
constexpr UDate earliest = -5.3e12, latest = 9.2e12;

double toMilliseconds(Date date) {
  using Milliseconds = std::chrono::duration<double, std::milli>;
  return Milliseconds(std::chrono::floor<std::chrono::milliseconds>(date.time_since_epoch()))
      .count();
}

Date fromMilliseconds(double milliseconds) {
  return Date(std::chrono::milliseconds(static_cast<int64_t>(milliseconds)));
}

}  // namespace

std::string format(Date date, std::string_view pattern, std::string_view zone) {
  const auto format = formatter(pattern, zone);
  if (!format) return {};
  icu::UnicodeString text;
  format->format(toMilliseconds(date), text);
  std::string out;
  text.toUTF8String(out);
  return text::replaceAll(std::move(out), "\xE2\x80\xAF", " ");
}

Date fromSeconds(int64_t seconds) {
  return fromMilliseconds(std::clamp(static_cast<double>(seconds) * 1000, earliest, latest));
}

std::optional<Date> parse(std::string_view text, std::string_view pattern, std::string_view zone) {
  const auto format = formatter(pattern, zone);
  if (!format) return std::nullopt;
  format->setLenient(false);
  const icu::UnicodeString source = toUtf16(text);
  icu::ParsePosition position(0);
  const UDate value = format->parse(source, position);
  if (position.getErrorIndex() >= 0 || position.getIndex() != source.length()) return std::nullopt;
  if (value < earliest || value > latest) return std::nullopt;
  return fromMilliseconds(value);
}

std::string iso8601(Date date, bool fractional) {
  return format(date, fractional ? "yyyy-MM-dd'T'HH:mm:ss.SSS'Z'" : "yyyy-MM-dd'T'HH:mm:ss'Z'",
                "UTC");
}

std::optional<Date> parseIso8601(std::string_view text) {
  // The fraction is taken off first, since the formatter accepts just three digits.
  std::string plain(text);
  auto fraction = std::chrono::milliseconds(0);
  if (const size_t dot = plain.find('.'); dot != std::string::npos) {
    size_t end = dot + 1;
    int scale = 100;
    int milliseconds = 0;
    for (; end < plain.size() && std::isdigit(static_cast<unsigned char>(plain[end])); ++end) {
      milliseconds += (plain[end] - '0') * scale;
      scale /= 10;
    }
    if (end == dot + 1) return std::nullopt;
    fraction = std::chrono::milliseconds(milliseconds);
    plain.erase(dot, end - dot);
  }
  for (const char* pattern : {"yyyy-MM-dd'T'HH:mm:ssXXX", "yyyy-MM-dd'T'HH:mm:ssXX",
                              "yyyy-MM-dd'T'HH:mm:ss", "yyyy-MM-dd HH:mm:ss", "yyyy-MM-dd"}) {
    if (auto date = parse(plain, pattern, "UTC")) return *date + fraction;
  }
  return std::nullopt;
}

int field(Date date, std::string_view pattern) {
  const std::string digits = format(date, pattern);
  int number = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return number;
}

std::string relative(Date date, Date now) {
  using namespace std::chrono;
  constexpr std::pair<seconds, UDateRelativeUnit> units[] = {
      {days(365), UDAT_RELATIVE_YEARS},   {days(30), UDAT_RELATIVE_MONTHS},
      {days(7), UDAT_RELATIVE_WEEKS},     {days(1), UDAT_RELATIVE_DAYS},
      {hours(1), UDAT_RELATIVE_HOURS},    {minutes(1), UDAT_RELATIVE_MINUTES},
      {seconds(1), UDAT_RELATIVE_SECONDS}};
  UErrorCode status = U_ZERO_ERROR;
  const icu::RelativeDateTimeFormatter formatter(icu::Locale::getUS(), status);
  icu::UnicodeString text;
  const auto distance = duration_cast<seconds>(date < now ? now - date : date - now);
  for (const auto& [length, unit] : units) {
    if (distance < length) continue;
    formatter.format(double(distance / length),
                     date < now ? UDAT_DIRECTION_LAST : UDAT_DIRECTION_NEXT, unit, text, status);
    break;
  }
  if (text.isEmpty()) formatter.format(UDAT_DIRECTION_PLAIN, UDAT_ABSOLUTE_NOW, text, status);
  std::string out;
  text.toUTF8String(out);
  return out;
}

std::string dayBefore(std::string_view day) {
  // In UTC every day has 24 hours.
  const auto date = parse(day, "yyyy-MM-dd", "UTC");
  return date ? format(*date - std::chrono::hours(24), "yyyy-MM-dd", "UTC") : "";
}

std::string systemTimeZone() {
  const std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::detectHostTimeZone());
  icu::UnicodeString id;
  zone->getID(id);
  std::string out;
  id.toUTF8String(out);
  return out;
}

}  // namespace kestrin::dates
