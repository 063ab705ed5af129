#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/json/json.h"
#include "platform/lifetime.h"

namespace kestrin {

/// In-process notifications by name. Observers run synchronously on the posting thread, in order of
/// registration; the poster chooses the queue. Thread-safe; an observer may add or drop observers.
class NotificationCenter {
 public:
  using Observer = std::function<void(const Json& userInfo)>;

  void post(const std::string& name, const Json& userInfo = {});
  SubscriptionHandle observe(const std::string& name, Observer observer);
  /// Every notification with its name; for the terminal's `--json` lines and for tests.
  SubscriptionHandle observeAll(std::function<void(const std::string& name, const Json&)> observer);

 private:
  struct State;
  std::shared_ptr<State> state();
  std::mutex mutex_;
  std::shared_ptr<State> state_;
};

}  // namespace kestrin
