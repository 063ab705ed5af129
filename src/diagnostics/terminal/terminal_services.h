#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/log_line.h"
#include "identity/device_id_manager.h"
#include "identity/firebase_auth_service.h"
#include "platform/http.h"
#include "platform/processes.h"
#include "platform/settings.h"
#include "services/local/endpoints.h"
#include "usermodel/user_preferences.h"

namespace kestrin {

/// An appointment, as the calendar command prints it.
struct TerminalEvent {
  std::string title;
  Date start;
  Date end;
  bool allDay = false;
  std::string calendar, location, notes;
};

/// What the terminal looks at. All of these must outlive it.
struct TerminalServices {
  Dispatch& dispatch;
  Http& http;
  Processes& processes;
  SettingsStore& settings;
  DeviceIdManager& deviceId;
  FirebaseAuthService& auth;
  UserPreferences& preferences;
  Endpoints endpoints;
  std::string version;
  std::string documentsFolder;
  /// The application's log, oldest first.
  std::function<std::vector<LogEntry>()> log;
  /// The next appointments, on the main queue. Empty: there is no calendar to look at.
  std::function<void(int count, std::function<void(const Result<std::vector<TerminalEvent>>&)>)>
      calendar;
  /// Whether a Google account is linked.
  std::function<bool()> isGoogleConnected;
};

}  // namespace kestrin
