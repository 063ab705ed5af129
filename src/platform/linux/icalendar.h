#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/calendars.h"

namespace kestrin {

/// The instances of an iCalendar file's events that overlap [from, to): recurrences, exceptions and
/// moved instances included, cancelled ones left out. Times without a zone are those of `zone`
/// (empty: the system's), and so are whole days. What cannot be read is left out; at most
/// `mostInstances` are given.
std::vector<CalendarRecord> readIcalendar(std::string_view text, Date from, Date to,
                                          const std::string& zone = {});
constexpr size_t mostInstances = 5000;

/// What the events of a calendar that comes in pieces ask for besides them.
struct IcalendarNeeds {
  std::set<std::string> series;  ///< UIDs of those that repeat
  std::set<std::string> zones;   ///< TZIDs of their times
};
IcalendarNeeds needsOf(const std::vector<std::string>& objects);

/// As `readIcalendar`, of a calendar that comes in pieces: each a VEVENT, a VTIMEZONE, or a
/// VCALENDAR around some of them. What is there twice counts once; a broken piece harms no other.
std::vector<CalendarRecord> readIcalendarObjects(const std::vector<std::string>& objects, Date from,
                                                 Date to, const std::string& zone = {});

}  // namespace kestrin
