#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/calendars.h"
#include "platform/dispatch/dispatch.h"
#include "platform/login_item.h"
#include "platform/place.h"
#include "platform/secret_store.h"
#include "platform/simulated/fault_plan.h"
#include "platform/system_controls.h"
#include "platform/user_notifications.h"

namespace kestrin {

/// Secrets in a map. Sites: "secrets.load" (nothing is found), "secrets.save", "secrets.remove".
class SimulatedSecretStore final : public SecretStore {
 public:
  explicit SimulatedSecretStore(FaultPlan* faults = nullptr) : faults_(faults) {}

  std::optional<Bytes> load(const std::string& service, const std::string& account) override {
    const std::lock_guard lock(mutex_);
    const auto at = items_.find({service, account});
    if (faultDue(faults_, "secrets.load") || at == items_.end()) return std::nullopt;
    return at->second;
  }
  Status save(const std::string& service, const std::string& account, const Bytes& value) override {
    const std::lock_guard lock(mutex_);
    if (faultDue(faults_, "secrets.save")) return fail("SecretStore", 1, "The store is locked.");
    items_[{service, account}] = value;
    return {};
  }
  Status remove(const std::string& service, const std::string& account) override {
    const std::lock_guard lock(mutex_);
    if (faultDue(faults_, "secrets.remove")) return fail("SecretStore", 1, "The store is locked.");
    items_.erase({service, account});
    return {};
  }
  bool persistent() override { return !onlyInMemory; }

  std::atomic<bool> onlyInMemory = false;  ///< as without a secret service

 private:
  FaultPlan* const faults_;
  std::mutex mutex_;
  std::map<std::pair<std::string, std::string>, Bytes> items_;
};

/// Keeps what was shown. Site: "notifications.show".
class SimulatedUserNotifications final : public UserNotifications {
 public:
  explicit SimulatedUserNotifications(FaultPlan* faults = nullptr) : faults_(faults) {}

  Result<uint32_t> show(const UserNotification& notification,
                        std::function<void(const std::string&)> onAction) override {
    if (faultDue(faults_, "notifications.show")) {
      return fail("UserNotifications", 1, "No notification service is running.");
    }
    const std::lock_guard lock(mutex_);
    shown.emplace_back(notification, std::move(onAction));
    return static_cast<uint32_t>(shown.size());
  }
  void withdraw(uint32_t id) override {
    const std::lock_guard lock(mutex_);
    if (id >= 1 && id <= shown.size()) withdrawn.push_back(id);
  }

  std::vector<std::pair<UserNotification, std::function<void(const std::string&)>>> shown;
  std::vector<uint32_t> withdrawn;

 private:
  std::mutex mutex_;
  FaultPlan* const faults_;
};

/// Records what was asked of the desktop. Site: "controls".
class SimulatedSystemControls final : public SystemControls {
 public:
  explicit SimulatedSystemControls(FaultPlan* faults = nullptr) : faults_(faults) {}

  Status setDarkMode(bool on) override { return record(on ? "dark" : "light"); }
  Status changeBrightness(int delta) override {
    return record("brightness " + std::to_string(delta));
  }
  Status suspend() override { return record("suspend"); }
  Status screenshot(const std::string& path) override { return record("screenshot " + path); }
  Result<std::string> machineId() override { return machine; }
  std::string hostName() override { return "simulated"; }

  std::vector<std::string> asked;
  Result<std::string> machine = "0123456789abcdef";

 private:
  Status record(std::string what) {
    if (faultDue(faults_, "controls")) return fail("SystemControls", 1, "Not available here.");
    asked.push_back(std::move(what));
    return {};
  }
  FaultPlan* const faults_;
};

/// A flag. Site: "loginItem.set".
class SimulatedLoginItem final : public LoginItem {
 public:
  explicit SimulatedLoginItem(FaultPlan* faults = nullptr) : faults_(faults) {}

  Status setEnabled(bool enabled) override {
    const std::lock_guard lock(mutex_);
    if (faultDue(faults_, "loginItem.set") || refused_) {
      return fail("LoginItem", 1, "The autostart folder cannot be written.");
    }
    enabled_ = enabled;
    return {};
  }
  bool isEnabled() override {
    const std::lock_guard lock(mutex_);
    return enabled_;
  }
  /// From now on nothing can be registered.
  void refuse(bool refused) {
    const std::lock_guard lock(mutex_);
    refused_ = refused;
  }

 private:
  FaultPlan* const faults_;
  std::mutex mutex_;
  bool enabled_ = false, refused_ = false;
};

/// A place that takes a while to find. Site: "place.current" (nothing is found).
class SimulatedPlaceService final : public PlaceService {
 public:
  explicit SimulatedPlaceService(Clock& clock, FaultPlan* faults = nullptr)
      : clock_(clock), faults_(faults) {}

  Result<Place> current(Duration deadline) override {
    clock_.sleep(std::min(deadline, takes), "the place");
    if (faultDue(faults_, "place.current") || takes > deadline || !place) {
      return fail("PlaceService", 1, "No place is known.");
    }
    return *place;
  }

  /// Set before use.
  std::optional<Place> place = Place{"Lyon", "Rhône", "France", "Europe/Paris"};
  Duration takes = std::chrono::milliseconds(200);

 private:
  Clock& clock_;
  FaultPlan* const faults_;
};

/// A list of appointments. Site: "calendars.events" (there is no calendar).
class SimulatedCalendars final : public Calendars {
 public:
  explicit SimulatedCalendars(FaultPlan* faults = nullptr) : faults_(faults) {}

  Result<std::vector<CalendarRecord>> events(Date from, Date to) override {
    const std::lock_guard lock(mutex_);
    if (faultDue(faults_, "calendars.events") || !records)
      return fail("Calendars", 1, "There is no calendar on this computer");
    std::vector<CalendarRecord> found;
    for (const CalendarRecord& record : *records) {
      if (record.start < to && (record.end > from || record.start >= from)) found.push_back(record);
    }
    return found;
  }

  /// Set before use.
  std::optional<std::vector<CalendarRecord>> records = std::vector<CalendarRecord>{};

 private:
  FaultPlan* const faults_;
  std::mutex mutex_;
};

}  // namespace kestrin
