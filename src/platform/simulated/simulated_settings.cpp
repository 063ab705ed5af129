#include "platform/simulated/simulated_settings.h"

namespace kestrin {

std::optional<Json> SimulatedSettings::get(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  const auto found = values_.find(key);
  if (found == values_.end()) return {};
  return found->second;
}

std::vector<std::string> SimulatedSettings::keys() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  for (const auto& entry : values_) out.push_back(entry.first);
  return out;
}

Status SimulatedSettings::flush() {
  const std::lock_guard lock(mutex_);
  if (saved_ == values_) return {};
  return fail("Files", 5, "The settings could not be saved.");
}

std::map<std::string, Json, std::less<>> SimulatedSettings::saved() const {
  const std::lock_guard lock(mutex_);
  return saved_;
}

void SimulatedSettings::change(std::string_view key, std::optional<Json> value) {
  const std::string name(key);
  const bool lost = faultDue(faults_, "settings.save");
  {
    const std::lock_guard lock(mutex_);
    const auto old = values_.find(name);
    const std::optional<Json> before =
        old == values_.end() ? std::nullopt : std::optional<Json>(old->second);
    if (value) {
      values_[name] = *value;
    } else {
      values_.erase(name);
    }
    if (!lost) saved_ = values_;
    if (before == value) return;
  }
  observers_.notify(name);
}

}  // namespace kestrin
