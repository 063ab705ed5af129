#pragma once

#include <string>

#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"
#include "platform/notification_center.h"
#include "platform/settings.h"

namespace kestrin {

inline constexpr const char* preferencesChanged = "PreferencesChanged";

/// Writes settings for the window and tells everybody, by "PreferencesChanged" (`key`, `value`) on
/// the main queue. A "pref_" key that anybody else changes (a script, another process, a person who
/// edits the file) is told in the same way; `value` is null when it was removed. Main queue.
class PreferenceChanges {
 public:
  enum class Notice { posted, none };

  PreferenceChanges(Dispatch& dispatch, SettingsStore& settings, NotificationCenter& notifications);

  /// Posts also when the value was the same before.
  void write(const std::string& key, Json value, Notice notice = Notice::posted);
  void post(const std::string& key, const Json& value);

 private:
  const QueueRef main_;
  SettingsStore& settings_;
  NotificationCenter& notifications_;
  bool writing_ = false;  ///< touched on the main queue alone
  SubscriptionHandle others_;
  Lifetime lifetime_;
};

}  // namespace kestrin
