#pragma once

#include <map>
#include <mutex>

#include "platform/observers.h"
#include "platform/settings.h"
#include "platform/simulated/fault_plan.h"

namespace kestrin {

/// Settings in a map. Fault site: "settings.save" (the value holds for this run, but `saved` lacks
/// it).
class SimulatedSettings final : public SettingsStore {
 public:
  explicit SimulatedSettings(FaultPlan* faults = nullptr) : faults_(faults) {}

  std::optional<Json> get(std::string_view key) const override;
  void set(std::string_view key, Json value) override { change(key, std::move(value)); }
  void remove(std::string_view key) override { change(key, std::nullopt); }
  /// What a change could not save fails here until a later change saves it.
  Status flush() override;
  std::vector<std::string> keys() const override;
  SubscriptionHandle observe(std::function<void(const std::string& key)> observer) override {
    return observers_.add(std::move(observer));
  }

  /// What a next run would find.
  std::map<std::string, Json, std::less<>> saved() const;

 private:
  void change(std::string_view key, std::optional<Json> value);

  FaultPlan* const faults_;
  Observers<const std::string&> observers_;
  mutable std::mutex mutex_;
  std::map<std::string, Json, std::less<>> values_, saved_;
};

}  // namespace kestrin
