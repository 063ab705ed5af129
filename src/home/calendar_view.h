#pragma once

#include <functional>
#include <string>
#include <vector>

#include "home/calendar_service.h"

namespace kestrin {

/// An appointment of one day, and where it stands beside those at the same time.
struct PlacedEvent {
  CalendarEvent event;
  int startMinute = 0, endMinute = 0;  ///< of the day, 0 to 1440; cut at its ends
  int column = 0, columns = 1;
};

struct CalendarDay {
  Date start;
  std::string title;  ///< "Mon 2"
  bool isToday = false;
  std::vector<CalendarEvent> allDay;
  std::vector<PlacedEvent> placed;
};

/// Packs overlapping appointments into the fewest columns: those that overlap, also through others,
/// share a width. `events` of the day, in any order.
std::vector<PlacedEvent> packed(const std::vector<CalendarEvent>& events, const DayRange& day);

/// The calendar page: a day or a week as a grid. Main queue only; must be destroyed there.
class CalendarView {
 public:
  /// No appointment is drawn shorter than this.
  static constexpr int leastMinutes = 20;

  CalendarView(Dispatch& dispatch, CalendarService& calendar);

  void load();
  void showWeek(bool week);
  /// -1: the days before, +1: those after.
  void move(int direction);
  void showToday();

  bool isWeek() const { return isWeek_; }
  bool isLoading() const { return isLoading_; }
  /// "March 2026"
  std::string title() const;
  const std::vector<CalendarDay>& days() const { return days_; }
  /// Where the day begins to be worth looking at: the hour of the first appointment, 8 at the
  /// latest.
  int firstHour() const;

  std::function<void()> onChange;

 private:
  void place(const std::vector<CalendarEvent>& events);
  std::vector<DayRange> ranges() const;

  Dispatch& dispatch_;
  CalendarService& calendar_;
  Date anchor_;
  bool isWeek_ = true, isLoading_ = false;
  int loads_ = 0;
  std::vector<CalendarDay> days_;
  Lifetime lifetime_;
};

}  // namespace kestrin
