#pragma once

#include <functional>
#include <string_view>

#include "diagnostics/log_file_redirector.h"
#include "diagnostics/system_log_capture.h"
#include "platform/linux/linux_standard_streams.h"
#include "platform/platform.h"

namespace kestrin {

/// From its making to `stop`, whatever this process prints is in the log and in the day's file,
/// once in each. Make it when it is certain that this is the one instance that runs; main thread
/// only.
class ProcessLog {
 public:
  /// `printLine` serves before and after.
  ProcessLog(Platform& platform, Logger& logger, std::function<void(std::string_view)> printLine);
  ~ProcessLog() { stop(); }

  /// Returns when everything printed before is where it belongs.
  void stop();

 private:
  Logger& logger_;
  const std::function<void(std::string_view)> printLine_;
  LinuxStandardStreams streams_;
  SystemLogCapture capture_;
  LogFileRedirector redirector_;
};

}  // namespace kestrin
