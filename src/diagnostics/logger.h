#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/dates/dates.h"
#include "platform/dispatch/dispatch.h"
#include "platform/notification_center.h"

namespace kestrin {

enum class LogLevel { debug, info, warning, error };

/// "DEBUG", "INFO", "WARN", "ERROR".
std::string_view logLevelText(LogLevel level);

struct LogEntry {
  Date timestamp;  ///< when `log` was called
  LogLevel level = LogLevel::info;
  std::string source;
  std::string message;

  /// "[HH:mm:ss.SSS] [LEVEL] [source] message", in the system's time zone.
  std::string formatted() const;
};

struct ParsedLogLine {
  LogLevel level = LogLevel::info;
  std::string source;
  std::string message;
};

/// Guesses level and source of a printed line from its words.
ParsedLogLine parseLogMessage(std::string_view line, bool isStandardError);

/// The application's log: a bounded list in memory that every subsystem writes to. Readers run side
/// by side, writers exclude them. Thread-safe; no call waits for a slow reader, except
/// `getEntries`, which waits for the lines before it.
///
/// "logEntriesBatchAdded" (user info `count`) is posted on the main queue 0.15 s after the last
/// line of a burst, "logsCleared" after `clear`.
class Logger {
 public:
  static constexpr size_t maxEntries = 5000;
  static constexpr size_t cutEntries = 1000;
  static constexpr std::chrono::milliseconds batchInterval{150};

  Logger(Dispatch& dispatch, NotificationCenter& notifications);
  ~Logger();
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  /// Adds one entry. Prints nothing.
  void log(std::string_view source, LogLevel level, std::string_view message);

  /// What the product prints: one entry (level and source read from the line) and one line on the
  /// sink. A line that is blank after trimming goes to the sink only.
  void print(std::string_view line);

  /// Where printed lines go besides the log: standard error in the terminal programs, the dated
  /// file in the application. Called with whole lines without their end, one at a time. Set it
  /// before the first line; without one, lines go to the log alone. It must not print.
  void setSink(std::function<void(std::string_view line)> sink);

  /// Entries of at least `level` whose message or source holds `filter` (any case), oldest first.
  std::vector<LogEntry> getEntries(const std::optional<std::string>& filter = std::nullopt,
                                   std::optional<LogLevel> level = std::nullopt) const;
  void clear();

 private:
  struct State;
  void add(LogEntry entry);
  std::shared_ptr<State> state_;
};

}  // namespace kestrin
