#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/dates/dates.h"
#include "platform/json/json.h"

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

/// Entries as another process reads them; to the millisecond.
Json logToJson(const std::vector<LogEntry>& entries);
/// What is no entry is left out.
std::vector<LogEntry> logFromJson(const Json& entries);

struct ParsedLogLine {
  LogLevel level = LogLevel::info;
  std::string source;
  std::string message;
};

/// Guesses level and source of a printed line (valid UTF-8, without its end) from its words.
ParsedLogLine parseLogMessage(std::string_view line, bool isStandardError);

}  // namespace kestrin
