#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/lifetime.h"

namespace kestrin {

/// Those who want to hear of something. Thread-safe; a subscription may outlive this.
template <class... Told>
class Observers {
 public:
  using Observer = std::function<void(Told...)>;

  SubscriptionHandle add(Observer observer) {
    const std::lock_guard lock(state_->mutex);
    const uint64_t id = ++state_->lastId;
    state_->observers.emplace(id, std::make_shared<const Observer>(std::move(observer)));
    return onUnsubscribe([weak = std::weak_ptr<State>(state_), id] {
      const auto state = weak.lock();
      if (!state) return;
      const std::lock_guard guard(state->mutex);
      state->observers.erase(id);
    });
  }

  /// Calls everybody, without a lock: an observer may come back here and unsubscribe, itself or
  /// others.
  void notify(Told... told) const {
    for (const uint64_t id : ids()) {
      if (const auto observer = find(id)) (*observer)(told...);
    }
  }

 private:
  struct State {
    std::mutex mutex;
    uint64_t lastId = 0;
    std::map<uint64_t, std::shared_ptr<const Observer>> observers;
  };

  std::vector<uint64_t> ids() const {
    const std::lock_guard lock(state_->mutex);
    std::vector<uint64_t> out;
    for (const auto& entry : state_->observers) out.push_back(entry.first);
    return out;
  }
  std::shared_ptr<const Observer> find(uint64_t id) const {
    const std::lock_guard lock(state_->mutex);
    const auto found = state_->observers.find(id);
    return found == state_->observers.end() ? nullptr : found->second;
  }

  const std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace kestrin
