#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/linux/dbus.h"
#include "platform/user_notifications.h"

namespace kestrin {

/// Notifications through org.freedesktop.Notifications. The call that shows one waits for the
/// server's id (a few milliseconds, at most 2 s).
class DesktopNotifications final : public UserNotifications {
 public:
  /// On the session bus unless another bus is named.
  explicit DesktopNotifications(std::string busAddress = "");
  ~DesktopNotifications() override;
  Result<uint32_t> show(const UserNotification& notification,
                        std::function<void(const std::string&)> onAction) override;
  void withdraw(uint32_t id) override;

 private:
  struct Handlers;
  Status connect();
  bool readsAsMarkup(const std::string& body);

  const std::string busAddress_;
  std::mutex mutex_;
  std::shared_ptr<Handlers> handlers_;
  std::unique_ptr<dbus::Connection> bus_;
  SubscriptionHandle actions_;
  SubscriptionHandle closings_;
};

}  // namespace kestrin
