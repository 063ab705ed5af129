#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics/log_line.h"
#include "platform/dispatch/dispatch.h"
#include "platform/notification_center.h"

namespace kestrin {

/// The application's log: a bounded list in memory that every subsystem writes to. Readers run side
/// by side, writers exclude them. Thread-safe; `log` never waits, `getEntries` for the lines before
/// it.
///
/// "logEntriesBatchAdded" (user info `count`) is posted on the main queue 0.15 s after the last
/// line of a burst, "logsCleared" after `clear`.
class Logger {
 public:
  /// One entry above `maxEntries` cuts the oldest `cutEntries` at once: the removal is paid for
  /// once in a thousand lines.
  static constexpr size_t maxEntries = 5000;
  static constexpr size_t cutEntries = 1000;
  static constexpr std::chrono::milliseconds batchInterval{150};

  Logger(Dispatch& dispatch, NotificationCenter& notifications);
  ~Logger();
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  /// Adds one entry. Prints nothing; takes no lock.
  void log(std::string_view source, LogLevel level, std::string_view message);

  /// What the product prints: one entry (level and source read from the line) and one line on the
  /// sink. A line that is blank after trimming goes to the sink only. A text of several lines is
  /// several lines.
  void print(std::string_view text);

  /// Where printed lines go besides the log: standard error in the terminal programs, the dated
  /// file in the application. Called with whole lines without their end, one at a time. Set it
  /// before the first line; without one, lines go to the log alone. It must not print through this
  /// log.
  void setSink(std::function<void(std::string_view line)> sink);

  /// Entries of at least `level` whose message or source holds `filter` (any case), oldest first.
  std::vector<LogEntry> getEntries(const std::optional<std::string>& filter = std::nullopt,
                                   std::optional<LogLevel> level = std::nullopt) const;
  void clear();

 private:
  struct State;
  void printLine(std::string_view line);
  std::shared_ptr<State> state_;
};

}  // namespace kestrin
