#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/result.h"

namespace kestrin {

struct UserNotification {
  std::string title;
  std::string body;
  std::string category;
  bool sound = false;
  /// Action key and label, in order. With the key "default": a click on the body, of which a server
  /// tells only then. Where a button decides something there is none, since some servers take a
  /// plain click for it.
  std::vector<std::pair<std::string, std::string>> actions;
};

/// Desktop notifications. Non-blocking. Thread-safe. Errors: domain "UserNotifications".
class UserNotifications {
 public:
  virtual ~UserNotifications() = default;
  /// `onAction` gets the action's key, on any thread; may be empty: a click does nothing. Returns
  /// an id.
  virtual Result<uint32_t> show(const UserNotification& notification,
                                std::function<void(const std::string&)> onAction) = 0;
  virtual void withdraw(uint32_t id) = 0;
};

}  // namespace kestrin
