#include "home/activity_tracker.h"

#include <algorithm>
#include <vector>

#include "platform/text/text.h"

namespace kestrin {
namespace {

int countNew(const std::set<std::string>& now, const std::set<std::string>& before) {
  return static_cast<int>(std::count_if(
      now.begin(), now.end(), [&](const std::string& id) { return !before.contains(id); }));
}

}  // namespace

void ActivityTracker::startTracking() {
  if (isTracking_) return;
  isTracking_ = true;
  lastActiveTime_ = sources_.dispatch.clock().steadyNow();
  activityTimer_ = sources_.dispatch.every(sources_.dispatch.mainQueue(), lookInterval,
                                           lifetime_.guard([this] { look(); }));
}

void ActivityTracker::look() {
  if (isAway_ || sources_.dispatch.clock().steadyNow() - lastActiveTime_ < awayThreshold) return;
  isAway_ = true;
  knownDay_ = sources_.calendarDay();
  knownEvents_ = sources_.calendarEvents();
  knownMessages_ = sources_.messages();
  newCalendarEvents_ = newMessages_ = missedCalls_ = 0;
}

void ActivityTracker::userWasActive() {
  if (!isTracking_) return;
  lastActiveTime_ = sources_.dispatch.clock().steadyNow();
  if (!isAway_) return;
  isAway_ = false;
  newCalendarEvents_ =
      sources_.calendarDay() == knownDay_ ? countNew(sources_.calendarEvents(), knownEvents_) : 0;
  newMessages_ = countNew(sources_.messages(), knownMessages_);
  if (const std::string said = message(); !said.empty() && onReturn) onReturn(said);
}

void ActivityTracker::callWasMissed() {
  if (isAway_) ++missedCalls_;
}

std::string ActivityTracker::message() const {
  std::vector<std::string> parts;
  const auto add = [&](int count, const std::string& what) {
    if (count > 0) parts.push_back(std::to_string(count) + " " + what + (count == 1 ? "" : "s"));
  };
  add(newCalendarEvents_, "new calendar event");
  add(newMessages_, "new message");
  add(missedCalls_, "missed call");
  if (parts.empty()) return {};
  const std::string last = parts.back();
  parts.pop_back();
  return "While you were away: " +
         (parts.empty() ? last : text::join(parts, ", ") + " and " + last) + ".";
}

}  // namespace kestrin
