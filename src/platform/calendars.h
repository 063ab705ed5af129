#pragma once

#include <string>
#include <vector>

#include "platform/dates/dates.h"
#include "platform/result.h"

namespace kestrin {

/// One appointment of the system's calendars; of a recurring one, one instance.
struct CalendarRecord {
  std::string id;
  std::string title;
  Date start;
  Date end;  ///< the first moment after it
  bool allDay = false;
  std::string location, notes;
  std::string calendarName;
  std::string color;  ///< "#3584e4", or empty
  std::string organizer;
  bool operator==(const CalendarRecord&) const = default;
};

/// The calendars that this desktop has. Blocking: off the main queue. Thread-safe. Errors: domain
/// "Calendars" (1: there is none to look at).
class Calendars {
 public:
  virtual ~Calendars() = default;
  /// What overlaps [from, to), in no order. A calendar that cannot be read is left out.
  virtual Result<std::vector<CalendarRecord>> events(Date from, Date to) = 0;
};

}  // namespace kestrin
