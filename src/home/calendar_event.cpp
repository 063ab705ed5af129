#include "home/calendar_event.h"

namespace kestrin {
namespace {

/// Where the clocks skip midnight the day begins an hour later.
Date startOfDay(const std::string& day, Date fallback) {
  for (const char* hour : {" 00", " 01"}) {
    if (const auto start = dates::parse(day + hour, "yyyy-MM-dd HH")) return *start;
  }
  return fallback;
}

}  // namespace

std::string CalendarEvent::timeString() const {
  return isAllDay ? "All day" : dates::format(startDate, "h:mm a");
}

std::string CalendarEvent::durationString() const {
  if (isAllDay) return "All day";
  const auto minutes =
      std::chrono::duration_cast<std::chrono::minutes>(endDate - startDate).count();
  const std::string rest = std::to_string(minutes % 60) + " min";
  if (minutes < 60) return rest;
  return std::to_string(minutes / 60) + " hr" + (minutes % 60 == 0 ? "" : " " + rest);
}

DayRange dayOf(Date now) {
  const std::string today = dates::format(now, "yyyy-MM-dd");
  const Date from = startOfDay(today, now);
  // A day has 23 to 25 hours; half past the next one lies in it for certain.
  const std::string next = dates::format(from + std::chrono::hours(36), "yyyy-MM-dd");
  return {from, startOfDay(next, from + std::chrono::hours(24))};
}

}  // namespace kestrin
