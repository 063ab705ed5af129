#pragma once

#include <string>

#include "platform/result.h"

namespace kestrin {

/// Effects on the whole desktop. Blocking, with deadlines. Errors: domain "SystemControls", with
/// what is missing here.
class SystemControls {
 public:
  virtual ~SystemControls() = default;
  virtual Status setDarkMode(bool on) = 0;
  virtual Status changeBrightness(int deltaPercent) = 0;
  virtual Status suspend() = 0;
  /// Saves a screenshot of the whole screen as PNG.
  virtual Status screenshot(const std::string& path) = 0;
  /// Identifier of this machine for this application; fails where there is none.
  virtual Result<std::string> machineId() = 0;
  virtual std::string hostName() = 0;
};

}  // namespace kestrin
