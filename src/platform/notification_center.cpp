#include "platform/notification_center.h"

#include <algorithm>

namespace kestrin {
namespace {

struct Entry {
  uint64_t id = 0;
  std::string name;  ///< empty: every notification
  std::function<void(const std::string&, const Json&)> call;
};

}  // namespace

struct NotificationCenter::State {
  std::mutex mutex;
  uint64_t nextId = 1;
  std::vector<std::shared_ptr<const Entry>> entries;
};

std::shared_ptr<NotificationCenter::State> NotificationCenter::state() {
  std::lock_guard lock(mutex_);
  if (!state_) state_ = std::make_shared<State>();
  return state_;
}

void NotificationCenter::post(const std::string& name, const Json& userInfo) {
  const auto shared = state();
  std::vector<std::shared_ptr<const Entry>> due;
  {
    std::lock_guard lock(shared->mutex);
    std::copy_if(shared->entries.begin(), shared->entries.end(), std::back_inserter(due),
                 [&](const auto& entry) { return entry->name.empty() || entry->name == name; });
  }
  for (const auto& entry : due) entry->call(name, userInfo);
}

SubscriptionHandle NotificationCenter::observe(const std::string& name, Observer observer) {
  const auto shared = state();
  std::lock_guard lock(shared->mutex);
  const uint64_t id = shared->nextId++;
  shared->entries.push_back(std::make_shared<const Entry>(
      Entry{id, name, [observer = std::move(observer)](const std::string&, const Json& userInfo) {
              observer(userInfo);
            }}));
  return onUnsubscribe([shared, id] {
    std::lock_guard inner(shared->mutex);
    std::erase_if(shared->entries, [id](const auto& entry) { return entry->id == id; });
  });
}

SubscriptionHandle NotificationCenter::observeAll(
    std::function<void(const std::string& name, const Json&)> observer) {
  const auto shared = state();
  std::lock_guard lock(shared->mutex);
  const uint64_t id = shared->nextId++;
  shared->entries.push_back(std::make_shared<const Entry>(Entry{id, {}, std::move(observer)}));
  return onUnsubscribe([shared, id] {
    std::lock_guard inner(shared->mutex);
    std::erase_if(shared->entries, [id](const auto& entry) { return entry->id == id; });
  });
}

}  // namespace kestrin
