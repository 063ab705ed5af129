#pragma once

#include <optional>
#include <set>
#include <string>

#include "platform/calendars.h"
#include "platform/files.h"

namespace kestrin {

/// Calendars as iCalendar files: those in "kestrin/calendars" of the configuration folder, and the
/// local ones that Evolution and its relatives keep in the data folder, as far as the user shows
/// them there.
class FileCalendars final : public Calendars {
 public:
  explicit FileCalendars(Files& files) : files_(files) {}

  Result<std::vector<CalendarRecord>> events(Date from, Date to) override {
    return events(from, to, std::nullopt);
  }
  /// Of Evolution's calendars only those whose source has one of these ids; nothing: all.
  Result<std::vector<CalendarRecord>> events(Date from, Date to,
                                             const std::optional<std::set<std::string>>& evolution);

 private:
  struct Reading;
  void readOwn(Reading& reading);
  void readEvolution(Reading& reading, const std::optional<std::set<std::string>>& wanted);

  Files& files_;
};

}  // namespace kestrin
