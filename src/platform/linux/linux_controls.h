#pragma once

#include <string>

#include "platform/dispatch/dispatch.h"
#include "platform/files.h"
#include "platform/linux/dbus.h"
#include "platform/processes.h"
#include "platform/system_controls.h"

namespace kestrin {

/// The desktop's switches: the colour scheme through the desktop's own tool, brightness and suspend
/// through logind, a screenshot through the portal or the tool that the machine has, the machine's
/// identifier from systemd.
class LinuxControls final : public SystemControls {
 public:
  /// Addresses of the buses; empty: the usual ones.
  struct Buses {
    std::string session;
    std::string system;
  };
  LinuxControls(Files& files, Processes& processes, Buses buses = {})
      : files_(files), processes_(processes), buses_(std::move(buses)) {}

  Status setDarkMode(bool on) override;
  Status changeBrightness(int deltaPercent) override;
  Status suspend() override;
  Status screenshot(const std::string& path) override;
  Result<std::string> machineId() override;
  std::string hostName() override;

 private:
  using Bus = std::unique_ptr<dbus::Connection>;
  Result<Bus> systemBus() const;
  Result<std::string> backlightDevice() const;
  bool setGnomeScheme(bool on);
  bool setKdeScheme(bool on);
  /// False where there is no portal; a refusal is an error.
  Result<bool> portalScreenshot(const std::string& path);

  Files& files_;
  Processes& processes_;
  const Buses buses_;
};

}  // namespace kestrin
