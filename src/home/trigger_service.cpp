#include "home/trigger_service.h"

namespace kestrin {

void TriggerService::startTriggerPolling() {
  if (timer_) return;
  const auto evaluate = lifetime_.guard([this] { evaluateTriggers(); });
  const auto main = services_.dispatch.mainQueue();
  timer_ = services_.dispatch.every(main, interval, evaluate);
  first_ = services_.dispatch.after(main, firstRun, evaluate);
}

void TriggerService::evaluateTriggers() {
  Json events = Json::array();
  for (const CalendarEvent& event : services_.calendar.todayEvents()) {
    if (events.items().size() == mostEvents) break;
    events.push(
        Json::object({{"title", event.title}, {"start_time", dates::iso8601(event.startDate)}}));
  }
  services_.agent.post(
      "/triggers/evaluate",
      Json::object({{"user_timezone", dates::systemTimeZone()},
                    {"calendar_events", std::move(events)},
                    {"unread_email_count", services_.mail ? services_.mail().unread : 0}}),
      timeout, lifetime_.guard([this](const Result<Json>& answer) {
        // What fails is tried again at the next tick.
        if (!answer) return;
        for (const Json* trigger : answer->objectsAt("triggers")) handleFiredTrigger(*trigger);
      }));
}

void TriggerService::handleFiredTrigger(const Json& trigger) {
  const std::string title = trigger.stringAt("title", "Kestrin"),
                    body = trigger.stringAt("body", "");
  UserNotification notification{.title = title, .body = body};
  notification.sound = trigger.stringAt("priority", "normal") == "high";
  // The notification server is waited for elsewhere.
  services_.dispatch.globalQueue()->post(
      [&notifications = services_.notifications, &logger = services_.logger, notification] {
        const auto shown = notifications.show(notification, {});
        if (!shown) logger.print("⚠️ Trigger not shown: " + shown.error().description);
      });
  if (trigger.boolAt("audio").value_or(false)) services_.speech.speakText(body);
  services_.logger.print("🔔 Trigger fired: " + title + " — " + body);
}

}  // namespace kestrin
