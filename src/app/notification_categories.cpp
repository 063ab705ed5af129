#include "app/notification_categories.h"

#include <memory>
#include <utility>

namespace kestrin {

NotificationCategories::NotificationCategories(Dispatch& dispatch, UserNotifications& notifications,
                                               NotificationCenter& center, Logger& logger)
    : dispatch_(dispatch), notifications_(notifications), center_(center), logger_(logger) {}

void NotificationCategories::registerNotificationCategories() {
  actions_ = {
      {incomingCall, {{"ANSWER_CALL", "Answer"}, {"DECLINE_CALL", "Decline"}}},
      {postCallSummary, {{"VIEW_SUMMARY", "View Summary"}, {"CALL_BACK", "Call Back"}}},
      {setup, {{"START_ANYWAY", "Start anyway"}}},
  };
}

void NotificationCategories::show(UserNotification notification, Json userInfo,
                                  std::function<void(const Result<uint32_t>&)> onShown) {
  const auto known = actions_.find(notification.category);
  if (known != actions_.end()) notification.actions = known->second;
  notification.actions.emplace_back("default", "Open");
  deliver(
      std::move(notification),
      [this, userInfo = std::move(userInfo)](const std::string& identifier) {
        didReceive(identifier, userInfo);
      },
      std::move(onShown));
}

void NotificationCategories::ask(const std::string& title, const std::string& text,
                                 const std::string& acceptLabel, const std::string& declineLabel,
                                 std::function<void()> accept) {
  deliver({.title = title,
           .body = text,
           .actions = {{"ACCEPT", acceptLabel}, {"DECLINE", declineLabel}}},
          [accept = std::move(accept)](const std::string& identifier) mutable {
            if (identifier == "ACCEPT" && accept) std::exchange(accept, nullptr)();
          },
          {});
}

void NotificationCategories::deliver(UserNotification notification,
                                     std::function<void(const std::string&)> answered,
                                     std::function<void(const Result<uint32_t>&)> onShown) {
  std::function<void(const std::string&)> guarded = lifetime_.guard(std::move(answered));
  dispatch_.globalQueue()->post([&notifications = notifications_, main = dispatch_.mainQueue(),
                                 notification = std::move(notification), guarded,
                                 onShown = std::move(onShown)] {
    // One answer at a time, and all of them to the same closure.
    const auto answer = std::make_shared<std::function<void(const std::string&)>>(guarded);
    const auto shown =
        notifications.show(notification, [main, answer](const std::string& identifier) {
          main->post([answer, identifier] { (*answer)(identifier); });
        });
    if (onShown) main->post([onShown, shown] { onShown(shown); });
  });
}

void NotificationCategories::didReceive(const std::string& actionIdentifier, const Json& userInfo) {
  const auto caller = userInfo.stringAt("callerName", "");
  if (actionIdentifier == "ANSWER_CALL") {
    logger_.log("Calls", LogLevel::info, "Answering call from notification: " + caller);
    if (!answerCall) return;
    answerCall(userInfo, lifetime_.guard([this](const Status& answered) {
      if (answered) return;
      logger_.log("Calls", LogLevel::error,
                  "Answer from notification failed: " + answered.error().description);
    }));
  } else if (actionIdentifier == "DECLINE_CALL") {
    logger_.log("Calls", LogLevel::info, "Declining call from notification: " + caller);
    if (declineCall) declineCall(userInfo);
  } else if (actionIdentifier == "VIEW_SUMMARY") {
    if (viewSummary) viewSummary(userInfo);
  } else if (actionIdentifier == "CALL_BACK") {
    logger_.log("Calls", LogLevel::info, "Callback requested from notification: " + caller);
    center_.post("CallBackRequested", userInfo);
  } else if (actionIdentifier == "START_ANYWAY") {
    if (startAnyway) startAnyway();
  } else if (const auto research = userInfo.stringAt("research"); research && openResearch) {
    openResearch(*research);
  } else if (open) {
    open();
  }
}

}  // namespace kestrin
