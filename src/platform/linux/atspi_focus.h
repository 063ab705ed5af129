#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/atspi_bus.h"

namespace kestrin::atspi {

/// Which window and which element of a program has the focus. Focus events keep the answer at hand;
/// without one (the program was started, or got the focus, before us) the program is searched.
/// Thread-safe.
class FocusTracker {
 public:
  explicit FocusTracker(AtspiBus& bus) : bus_(bus) {}

  /// Subscribes on a new connection.
  void attach(dbus::Connection& connection);

  Result<AxElement> window(int pid, const Budget& budget);
  Result<AxElement> element(int pid, const Budget& budget);
  Result<AxElement> descendant(const AxElement& root, const Budget& budget);
  /// The active windows of the program; those that are shown where none is active. Never empty.
  Result<std::vector<AxElement>> activeWindows(int pid, const Budget& budget);

 private:
  AxElement remembered(const std::map<std::string, std::string>& paths, const std::string& busName);
  Result<AxElement> walk(const AxElement& root, const Budget& budget);
  Result<AxElement> editableOf(const std::vector<AxElement>& focused, const Budget& budget);

  AtspiBus& bus_;
  std::mutex mutex_;  ///< never held over a bus call
  std::map<std::string, std::string> focused_;
  std::map<std::string, std::string> activated_;
  std::vector<SubscriptionHandle> subscriptions_;
};

}  // namespace kestrin::atspi
