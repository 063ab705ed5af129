#pragma once

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

}  // namespace kestrin
