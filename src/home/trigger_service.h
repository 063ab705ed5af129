#pragma once

#include "home/home_caches.h"
#include "platform/user_notifications.h"

namespace kestrin {

/// Lets the assistant speak first: tells the agent every minute what is known of the day, and shows
/// what fires. The agent alone decides what fires and when. Main queue only; must be destroyed
/// there.
class TriggerService {
 public:
  static constexpr std::chrono::seconds interval{60}, firstRun{10}, timeout{10};
  static constexpr size_t mostEvents = 10;

  struct Services {
    Dispatch& dispatch;
    Logger& logger;
    HomeAgent& agent;
    SpeechService& speech;
    CalendarService& calendar;
    UserNotifications& notifications;
    std::function<MailSummary()> mail;  ///< may be empty
  };
  explicit TriggerService(Services services) : services_(std::move(services)) {}

  void startTriggerPolling();
  void evaluateTriggers();
  void handleFiredTrigger(const Json& trigger);

 private:
  const Services services_;
  TimerHandle timer_, first_;
  Lifetime lifetime_;
};

}  // namespace kestrin
