#pragma once

#include "platform/dispatch/dispatch.h"
#include "platform/files.h"
#include "platform/processes.h"
#include "platform/system_controls.h"

namespace kestrin {

/// The desktop's switches: the colour scheme through GSettings, brightness and suspend through
/// logind, a screenshot by the tool that the machine has, the machine's identifier from systemd.
class LinuxControls final : public SystemControls {
 public:
  LinuxControls(Files& files, Processes& processes) : files_(files), processes_(processes) {}

  Status setDarkMode(bool on) override;
  Status changeBrightness(int deltaPercent) override;
  Status suspend() override;
  Status screenshot(const std::string& path) override;
  Result<std::string> machineId() override;
  std::string hostName() override;

 private:
  Files& files_;
  Processes& processes_;
};

}  // namespace kestrin
