#include "home/calendar_view.h"

#include <algorithm>

namespace kestrin {
namespace {

constexpr int minutesOfDay = 24 * 60;
constexpr int latestFirstHour = 8;

/// By the clock on the wall, so that a day of 23 or 25 hours keeps its lines.
int minuteOf(Date date) { return dates::field(date, "H") * 60 + dates::field(date, "m"); }

bool overlaps(const CalendarEvent& event, const DayRange& day) {
  return event.startDate < day.to && (event.endDate > day.from || event.startDate >= day.from);
}

/// Noon lies in its day for certain, whatever the clocks do.
Date noonAfter(Date noon, int days) {
  return dayOf(noon + std::chrono::hours(24 * days)).from + std::chrono::hours(12);
}

}  // namespace

std::vector<PlacedEvent> packed(const std::vector<CalendarEvent>& events, const DayRange& day) {
  std::vector<PlacedEvent> placed;
  for (const CalendarEvent& event : events) {
    PlacedEvent each{event, event.startDate <= day.from ? 0 : minuteOf(event.startDate),
                     event.endDate >= day.to ? minutesOfDay : minuteOf(event.endDate)};
    each.endMinute = std::min(
        std::max(each.endMinute, each.startMinute + CalendarView::leastMinutes), minutesOfDay);
    placed.push_back(std::move(each));
  }
  std::stable_sort(placed.begin(), placed.end(), [](const PlacedEvent& a, const PlacedEvent& b) {
    return a.startMinute != b.startMinute ? a.startMinute < b.startMinute
                                          : a.endMinute > b.endMinute;
  });
  // A group ends where nothing goes on; until then each takes the first column that is free again.
  size_t groupBegin = 0;
  int groupEnd = 0;
  std::vector<int> ends;
  const auto closeGroup = [&](size_t end) {
    for (size_t i = groupBegin; i < end; ++i) placed[i].columns = int(ends.size());
    groupBegin = end;
    ends.clear();
  };
  for (size_t i = 0; i < placed.size(); ++i) {
    if (i > groupBegin && placed[i].startMinute >= groupEnd) closeGroup(i);
    const auto free = std::find_if(ends.begin(), ends.end(),
                                   [&](int end) { return end <= placed[i].startMinute; });
    placed[i].column = int(free - ends.begin());
    if (free == ends.end()) {
      ends.push_back(placed[i].endMinute);
    } else {
      *free = placed[i].endMinute;
    }
    groupEnd = ends.size() == 1 ? placed[i].endMinute : std::max(groupEnd, placed[i].endMinute);
  }
  closeGroup(placed.size());
  return placed;
}

CalendarView::CalendarView(Dispatch& dispatch, CalendarService& calendar)
    : dispatch_(dispatch), calendar_(calendar), anchor_(dispatch.clock().wallNow()) {}

std::vector<DayRange> CalendarView::ranges() const {
  const Date noon = dayOf(anchor_).from + std::chrono::hours(12);
  if (!isWeek_) return {dayOf(noon)};
  // "e" counts from Sunday; weeks begin on Monday.
  const int weekday = (dates::field(noon, "e") + 5) % 7;
  std::vector<DayRange> week;
  for (int i = 0; i < 7; ++i) week.push_back(dayOf(noonAfter(noon, i - weekday)));
  return week;
}

void CalendarView::load() {
  const auto wanted = ranges();
  isLoading_ = true;
  if (onChange) onChange();
  calendar_.fetchEvents(
      wanted.front().from, wanted.back().to,
      lifetime_.guard([this, load = ++loads_](const std::vector<CalendarEvent>& events) {
        if (load != loads_) return;
        isLoading_ = false;
        place(events);
        if (onChange) onChange();
      }));
}

void CalendarView::place(const std::vector<CalendarEvent>& events) {
  days_.clear();
  const Date now = dispatch_.clock().wallNow();
  for (const DayRange& range : ranges()) {
    CalendarDay day{range.from,
                    dates::format(range.from, "EEE d"),
                    now >= range.from && now < range.to,
                    {},
                    {}};
    std::vector<CalendarEvent> timed;
    for (const CalendarEvent& event : events) {
      if (overlaps(event, range)) (event.isAllDay ? day.allDay : timed).push_back(event);
    }
    day.placed = packed(timed, range);
    days_.push_back(std::move(day));
  }
}

void CalendarView::showWeek(bool week) {
  isWeek_ = week;
  load();
}

void CalendarView::move(int direction) {
  anchor_ = noonAfter(dayOf(anchor_).from + std::chrono::hours(12), direction * (isWeek_ ? 7 : 1));
  load();
}

void CalendarView::showToday() {
  anchor_ = dispatch_.clock().wallNow();
  load();
}

std::string CalendarView::title() const {
  return dates::format(anchor_, isWeek_ ? "MMMM yyyy" : "EEEE, d MMMM yyyy");
}

int CalendarView::firstHour() const {
  int first = latestFirstHour;
  for (const CalendarDay& day : days_) {
    for (const PlacedEvent& event : day.placed) first = std::min(first, event.startMinute / 60);
  }
  return first;
}

}  // namespace kestrin
