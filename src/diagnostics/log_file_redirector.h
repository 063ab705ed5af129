#pragma once

#include <string>

#include "diagnostics/logger.h"
#include "platform/dispatch/dispatch.h"
#include "platform/files.h"
#include "platform/standard_streams.h"

namespace kestrin {

/// Sends the process's output and error streams into a file named after the day, and prunes the
/// files of earlier days. A run across midnight stays in its first file. Main queue only.
class LogFileRedirector {
 public:
  /// Files that were last written before the same time of day so many days ago are deleted.
  static constexpr int daysKept = 3;

  LogFileRedirector(Dispatch& dispatch, Files& files, StandardStreams& streams, Logger& logger)
      : dispatch_(dispatch), files_(files), streams_(streams), logger_(logger) {}

  /// Prints where the streams go now, or why they stay as they were. A second call does nothing.
  void start();

  /// Where the file of a day lies.
  static std::string path(Files& files, Date day);

 private:
  Status redirect(const std::string& path);
  void cleanupOldLogs(const std::string& folder);

  Dispatch& dispatch_;
  Files& files_;
  StandardStreams& streams_;
  Logger& logger_;
  bool started_ = false;
};

}  // namespace kestrin
