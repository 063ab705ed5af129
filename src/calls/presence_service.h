#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "platform/http.h"
#include "platform/lifetime.h"
#include "platform/settings.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// Another installation that can be called now.
struct OnlineUser {
  std::string deviceId, userId;
  std::optional<std::string> userName, userEmail;
  int64_t lastSeen = 0;

  /// Its user's name, the name in the mail address, or the device's id in short form.
  std::string displayName() const;
};

/// Tells the backend that this installation is online and keeps the list of the others. Main queue
/// only; must be destroyed there.
class PresenceService {
 public:
  static constexpr std::chrono::seconds heartbeatInterval{30};
  static constexpr std::chrono::seconds refreshInterval{10};
  using Completion = std::function<void(const std::vector<OnlineUser>&)>;

  PresenceService(Dispatch& dispatch, Http& http, SettingsStore& settings, Logger& logger,
                  const Endpoints& endpoints);

  /// Nothing goes out before it is known.
  std::optional<std::string> deviceId;

  void startPresence();
  void stopPresence();
  /// `completion` may be empty. A failure leaves `onlineUsers` as it was and gives an empty list.
  void fetchOnlineUsers(Completion completion = {});
  const std::vector<OnlineUser>& onlineUsers() const { return onlineUsers_; }

  Completion onUsersUpdated;

 private:
  void sendHeartbeat();

  Dispatch& dispatch_;
  SettingsStore& settings_;
  Logger& logger_;
  const std::string backendURL_;
  const std::shared_ptr<HttpSession> session_;
  TimerHandle heartbeatTimer_, refreshTimer_;
  std::vector<OnlineUser> onlineUsers_;
  Lifetime lifetime_;
};

}  // namespace kestrin
