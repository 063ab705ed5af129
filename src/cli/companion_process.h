#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/files.h"

namespace kestrin::cli {

/// The companion that `kestrin services up` started: a session of its own, told from every other
/// process by its pid and its start time in a file of the run-time folder, so that `down` ends
/// exactly that one. Blocking. Errors: domain "Services".
class CompanionProcess {
 public:
  explicit CompanionProcess(Files& files);

  /// Its pid while it lives.
  std::optional<int> pid();
  /// Starts it; its output goes to `logFile`. Refuses while one lives.
  Result<int> start(const std::string& program, const std::vector<std::string>& arguments);
  /// How the child that `start` made has ended; nothing while it runs.
  std::optional<int> exitCode();
  /// Asks it to end, and kills it when it does not within ten seconds.
  Status end();
  std::string logFile() const;

 private:
  std::string recordFile() const;

  Files& files_;
  int child_ = 0;
};

}  // namespace kestrin::cli
