#pragma once

#include <string>
#include <string_view>

#include "platform/dates/dates.h"

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

/// Guesses level and source of a printed line (valid UTF-8, without its end) from its words.
ParsedLogLine parseLogMessage(std::string_view line, bool isStandardError);

}  // namespace kestrin
