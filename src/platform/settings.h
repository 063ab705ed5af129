#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/json/json.h"
#include "platform/lifetime.h"
#include "platform/result.h"

namespace kestrin {

/// The user settings store: one flat map from key to JSON value, shared by all processes of the
/// user. Read at the point of use, each reader with its own fall-back. Reads never touch the disk;
/// a change by another process is picked up. Thread-safe.
class SettingsStore {
 public:
  virtual ~SettingsStore() = default;

  virtual std::optional<Json> get(std::string_view key) const = 0;
  /// Visible at once to this process, on disk moments later (atomic replace, not on the caller's
  /// thread) and before the store is gone; a failure to write keeps the value for this run and is
  /// logged.
  virtual void set(std::string_view key, Json value) = 0;
  virtual void remove(std::string_view key) = 0;
  /// Waits until all that was changed so far is on disk. Never on the main queue. Error: it could
  /// not be written; the values hold for this run and are tried again with the next change.
  virtual Status flush() = 0;
  /// Sorted by key.
  virtual std::vector<std::string> keys() const = 0;
  /// Called on the thread of the change with the key, after every change that altered a value.
  virtual SubscriptionHandle observe(std::function<void(const std::string& key)> observer) = 0;

  std::string string(std::string_view key, std::string_view fallback = {}) const;
  /// Adds one to a whole number; an absent one counts as 0.
  void countUp(std::string_view key);
  bool boolean(std::string_view key, bool fallback = false) const;
  double number(std::string_view key, double fallback) const;
};

}  // namespace kestrin
