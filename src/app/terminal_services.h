#pragma once

#include "app/home.h"
#include "diagnostics/terminal/terminal_services.h"

namespace kestrin {

/// The next `count` appointments of the coming month.
inline auto nextAppointments(CoreServices& core, Home& home) {
  return [&clock = core.platform.dispatch.clock(), &home](
             int count, std::function<void(const Result<std::vector<TerminalEvent>>&)> show) {
    const Date now = clock.wallNow();
    home.calendar().fetchEvents(
        now, now + std::chrono::days(31),
        [count, show = std::move(show)](const std::vector<CalendarEvent>& events) {
          std::vector<TerminalEvent> shown;
          for (const CalendarEvent& event : events) {
            if (int(shown.size()) == count) break;
            shown.push_back({event.title, event.startDate, event.endDate, event.isAllDay,
                             event.calendarName, event.location.value_or(""),
                             event.notes.value_or("")});
          }
          show(shown);
        });
  };
}

/// What the diagnostic terminal looks at.
inline TerminalServices terminalServices(CoreServices& core, Home& home) {
  Platform& platform = core.platform;
  return {.dispatch = platform.dispatch,
          .http = platform.http,
          .processes = platform.processes,
          .settings = platform.settings,
          .deviceId = core.deviceId,
          .auth = core.auth,
          .preferences = core.preferences,
          .endpoints = core.endpoints,
          .version = KESTRIN_VERSION,
          .documentsFolder = platform.files.dataFolder(),
          .log = [&logger = core.logger] { return logger.getEntries(); },
          .calendar = nextAppointments(core, home),
          .isGoogleConnected = [&home] { return home.calendar().hasGoogleCalendar(); }};
}

}  // namespace kestrin
