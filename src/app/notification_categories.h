#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "diagnostics/logger.h"
#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"
#include "platform/notification_center.h"
#include "platform/result.h"
#include "platform/user_notifications.h"

namespace kestrin {

/// Desktop notifications by category: which buttons each kind has, and what each button does.
/// Notifications are shown whether or not the application is in front. Main queue only.
class NotificationCategories {
 public:
  static constexpr const char* incomingCall = "INCOMING_CALL";
  static constexpr const char* postCallSummary = "POST_CALL_SUMMARY";
  static constexpr const char* setup = "SETUP";

  NotificationCategories(Dispatch& dispatch, UserNotifications& notifications,
                         NotificationCenter& center, Logger& logger);

  void registerNotificationCategories();
  /// Adds the buttons of the notification's category to it and shows it. `userInfo` (for calls:
  /// "callerName") comes back with the answer. `onShown` on the main queue; may be empty. The
  /// notification server is waited for on a background queue.
  void show(UserNotification notification, Json userInfo,
            std::function<void(const Result<uint32_t>&)> onShown = {});
  /// A question: the first button runs `accept`, once; everything else ends the matter.
  void ask(const std::string& title, const std::string& text, const std::string& acceptLabel,
           const std::string& declineLabel, std::function<void()> accept);
  /// What a button of a notification does; "default" is a click on its body.
  void didReceive(const std::string& actionIdentifier, const Json& userInfo);

  /// Connected by those who can do it; each may be empty. `done` says how the answer went.
  std::function<void(const Json& userInfo, std::function<void(const Status&)> done)> answerCall;
  std::function<void(const Json& userInfo)> declineCall;
  std::function<void(const Json& userInfo)> viewSummary;
  std::function<void()> startAnyway;
  /// A click on the news of a research.
  std::function<void(const std::string& sessionId)> openResearch;
  std::function<void()> open;

 private:
  using Actions = std::vector<std::pair<std::string, std::string>>;

  /// `answered` on the main queue.
  void deliver(UserNotification notification, std::function<void(const std::string&)> answered,
               std::function<void(const Result<uint32_t>&)> onShown);

  Dispatch& dispatch_;
  UserNotifications& notifications_;
  NotificationCenter& center_;
  Logger& logger_;
  std::map<std::string, Actions> actions_;
  Lifetime lifetime_;
};

}  // namespace kestrin
