#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/dates/dates.h"

namespace kestrin {

enum class CalendarSource { local, google };

struct EventAttendee {
  std::string email, name, status;
  bool isOrganizer = false;
};

/// One appointment, from the system's calendars or from Google's.
struct CalendarEvent {
  std::string id;
  std::string title;
  Date startDate;
  Date endDate;
  bool isAllDay = false;
  std::optional<std::string> location, notes;
  std::string calendarName;
  CalendarSource source = CalendarSource::local;
  std::string color;
  std::optional<std::string> meetingLink, meetingType, dialInInfo, organizer;
  std::vector<EventAttendee> attendees;

  /// "All day", or the start as "9:30 AM".
  std::string timeString() const;
  /// "All day", "45 min", "2 hr", "1 hr 30 min".
  std::string durationString() const;
};

/// Midnight before `now` in the system's zone, and the one after it.
struct DayRange {
  Date from, to;
};
DayRange dayOf(Date now);

}  // namespace kestrin
