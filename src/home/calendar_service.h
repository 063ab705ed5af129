#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "diagnostics/logger.h"
#include "home/calendar_event.h"
#include "identity/device_id_manager.h"
#include "platform/calendars.h"
#include "platform/dispatch/dispatch.h"
#include "platform/http.h"
#include "platform/json/json.h"
#include "platform/lifetime.h"
#include "platform/settings.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// One list of the user's appointments, from the system's calendars and, where an account is
/// linked, from Google's. A source that fails adds nothing and costs a line in the log. Main queue
/// only; must be destroyed there.
class CalendarService {
 public:
  using Completion = std::function<void(const std::vector<CalendarEvent>&)>;

  CalendarService(Dispatch& dispatch, Http& http, Calendars& calendars, SettingsStore& settings,
                  Logger& logger, DeviceIdManager& deviceId, const Endpoints& endpoints);

  /// Of today: from its first moment to the next day's.
  void fetchEvents(Completion completion);
  /// By start.
  void fetchEvents(Date from, Date to, Completion completion);
  /// An account is linked and may read calendars.
  bool hasGoogleCalendar() const;
  /// The last list of today.
  const std::vector<CalendarEvent>& todayEvents() const { return todayEvents_; }
  /// The day that it is of, by its first moment.
  Date today() const { return today_; }

 private:
  struct Gathering;
  void fetchLocalEvents(const std::shared_ptr<Gathering>& gathering);
  void fetchGoogleEvents(const std::shared_ptr<Gathering>& gathering);

  Dispatch& dispatch_;
  Calendars& calendars_;
  SettingsStore& settings_;
  Logger& logger_;
  DeviceIdManager& deviceId_;
  const std::string backend_;
  const std::shared_ptr<HttpSession> session_;
  std::vector<CalendarEvent> todayEvents_;
  Date today_;
  bool hasCheckedAccess_ = false;  ///< whether the calendars can be read is told once
  Lifetime lifetime_;
};

/// The events of Google's answer; `print` gets a line for each that is skipped.
std::vector<CalendarEvent> parseGoogleEvents(const Json& answer,
                                             const std::function<void(std::string)>& print);
std::optional<Date> parseGoogleDate(const std::string& text);

}  // namespace kestrin
