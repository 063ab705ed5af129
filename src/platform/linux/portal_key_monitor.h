#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/key_monitor.h"
#include "platform/linux/dbus.h"

namespace kestrin {

/// The hold key through the desktop portal for global shortcuts, for Wayland sessions. The desktop
/// asks the user once, and it is the desktop that decides which key it becomes: `key` is only a
/// proposal, and many desktops refuse a bare modifier. Other keys are not reported.
class PortalKeyMonitor final : public KeyMonitor {
 public:
  /// `busAddress` empty: the session's bus.
  explicit PortalKeyMonitor(std::string busAddress = {});
  ~PortalKeyMonitor() override;

  /// Fails when there is no such portal. The user's answer comes later: see `binding`.
  Status start(const std::string& key, std::function<void(KeyEdge)> onEdge) override;
  void stop() override;
  std::vector<std::string> availableKeys() override;

  /// What became of the request: an error while the user has not agreed, with the reason.
  Status binding();
  /// How the desktop names what it bound ("Press Ctrl+F12"); empty when it does not say.
  std::string trigger();

 private:
  struct Answer {
    uint32_t code = 0;  ///< 0 granted, 1 the user said no, 2 ended otherwise
    std::map<std::string, sdbus::Variant> results;
  };
  struct Session {
    std::unique_ptr<dbus::Connection> bus;
    std::string portal;  ///< unique name of the portal, the only one to be believed
    std::string handle;
    std::vector<SubscriptionHandle> subscriptions;
  };
  using Options = std::map<std::string, sdbus::Variant>;

  Result<Session> connect();
  void serve(Session session);
  /// True once the shortcut is bound; the reason otherwise is in `binding_`.
  bool bind(Session& session);
  template <class... In>
  Result<Answer> request(Session& session, const std::string& method, Duration limit,
                         const In&... in);
  Status subscribe(Session& session);
  void onSignal(sdbus::Message& message);
  void setHeld(bool held);
  void setBinding(Status status, std::string trigger = {});
  /// Waits on the thread until `done` holds; false when stopped (or at the time-out, if one is
  /// given).
  bool waitUntil(const std::function<bool()>& done, Duration limit = Duration(-1));

  std::string busAddress_;
  std::string preferredTrigger_;
  std::function<void(KeyEdge)> onEdge_;
  std::thread thread_;

  std::mutex mutex_;  ///< guards what follows
  std::condition_variable changed_;
  bool stopping_ = false;
  bool sessionClosed_ = false;
  std::string portal_;
  std::string sessionHandle_;
  std::map<std::string, Answer> answers_;  ///< by path of the request
  Status binding_;
  std::string trigger_;

  bool held_ = false;  ///< of the bus connection's thread
};

}  // namespace kestrin
