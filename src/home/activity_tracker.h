#pragma once

#include <functional>
#include <set>
#include <string>

#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"

namespace kestrin {

/// Whether the user is about, by what they do with the assistant, and what has come since they were
/// last. Main queue only; must be destroyed there.
class ActivityTracker {
 public:
  static constexpr std::chrono::seconds awayThreshold{600}, lookInterval{60};

  struct Sources {
    Dispatch& dispatch;
    /// Identifiers of what is known now: a day's appointments, the unread messages.
    std::function<std::set<std::string>()> calendarEvents, messages;
    /// Which day's appointments they are: those of another day are not new.
    std::function<Date()> calendarDay;
  };
  explicit ActivityTracker(Sources sources) : sources_(std::move(sources)) {}

  void startTracking();
  /// The user spoke or looked at the window. Ends an absence, which `onReturn` tells of when
  /// something came in it.
  void userWasActive();
  void callWasMissed();

  bool isAway() const { return isAway_; }
  /// What came in the last absence.
  int newCalendarEvents() const { return newCalendarEvents_; }
  int newMessages() const { return newMessages_; }
  int missedCalls() const { return missedCalls_; }
  /// "While you were away: 2 new messages and 1 missed call."; empty when nothing came.
  std::string message() const;

  std::function<void(const std::string& message)> onReturn;

 private:
  void look();

  const Sources sources_;
  SteadyTime lastActiveTime_;
  Date knownDay_;
  bool isTracking_ = false, isAway_ = false;
  std::set<std::string> knownEvents_, knownMessages_;
  int newCalendarEvents_ = 0, newMessages_ = 0, missedCalls_ = 0;
  TimerHandle activityTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
