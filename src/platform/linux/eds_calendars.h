#pragma once

#include <functional>
#include <memory>

#include "platform/calendars.h"
#include "platform/files.h"
#include "platform/linux/dbus.h"
#include "platform/linux/file_calendars.h"

namespace kestrin {

/// The calendars that the user's Evolution Data Server serves (the local ones, and those of
/// accounts), where the session bus has it or can start it, and the files of the user's own folder
/// besides. What the server does not give within `patience` comes from the files that it keeps.
class EdsCalendars final : public Calendars {
 public:
  using Connect = std::function<Result<std::unique_ptr<dbus::Connection>>()>;

  explicit EdsCalendars(
      Files& files, Connect connect = [] { return dbus::Connection::session(); },
      Duration patience = std::chrono::seconds(8))
      : files_(files), connect_(std::move(connect)), patience_(patience) {}

  Result<std::vector<CalendarRecord>> events(Date from, Date to) override;

 private:
  FileCalendars files_;
  const Connect connect_;
  const Duration patience_;
};

}  // namespace kestrin
