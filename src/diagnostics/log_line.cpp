#include "diagnostics/log_line.h"

#include <algorithm>
#include <initializer_list>
#include <re2/re2.h>

#include "platform/text/text.h"

namespace kestrin {
namespace {

bool containsOneOf(std::string_view text, std::initializer_list<std::string_view> parts) {
  return std::any_of(parts.begin(), parts.end(), [text](std::string_view part) {
    return text.find(part) != std::string_view::npos;
  });
}

/// Errors first: a line that speaks of both is one.
LogLevel levelOf(std::string_view line, bool isStandardError) {
  const std::string lowered = text::lower(line);
  if (containsOneOf(lowered, {"error", "❌", "failed", "exception"})) return LogLevel::error;
  if (containsOneOf(lowered, {"warning", "⚠️", "warn"})) return LogLevel::warning;
  if (containsOneOf(lowered, {"debug", "🔍"})) return LogLevel::debug;
  return isStandardError ? LogLevel::error : LogLevel::info;
}

LogLevel levelNamed(std::string_view name) {
  for (const auto level : {LogLevel::debug, LogLevel::warning, LogLevel::error}) {
    if (name == logLevelText(level)) return level;
  }
  return LogLevel::info;
}

size_t endOf(std::string_view line, const re2::StringPiece& match) {
  return static_cast<size_t>(match.data() - line.data()) + match.size();
}

}  // namespace

std::string_view logLevelText(LogLevel level) {
  switch (level) {
    case LogLevel::debug:
      return "DEBUG";
    case LogLevel::info:
      return "INFO";
    case LogLevel::warning:
      return "WARN";
    case LogLevel::error:
      return "ERROR";
  }
  return "INFO";
}

std::string LogEntry::formatted() const {
  return "[" + dates::format(timestamp, "HH:mm:ss.SSS") + "] [" + std::string(logLevelText(level)) +
         "] [" + source + "] " + message;
}

Json logToJson(const std::vector<LogEntry>& entries) {
  Json::Array out;
  for (const LogEntry& entry : entries) {
    out.push_back(Json::object({{"timestamp", dates::iso8601(entry.timestamp, true)},
                                {"level", std::string(logLevelText(entry.level))},
                                {"source", entry.source},
                                {"message", entry.message}}));
  }
  return out;
}

std::vector<LogEntry> logFromJson(const Json& entries) {
  std::vector<LogEntry> out;
  for (const Json& entry : entries.items()) {
    const auto timestamp = dates::parseIso8601(entry.stringAt("timestamp", ""));
    const auto message = entry.stringAt("message");
    if (!timestamp || !message) continue;
    out.push_back({*timestamp, levelNamed(entry.stringAt("level", "")),
                   entry.stringAt("source", ""), *message});
  }
  return out;
}

ParsedLogLine parseLogMessage(std::string_view line, bool isStandardError) {
  static const RE2 brackets(R"(\[([^\]]+)\])");
  static const RE2 prefix(R"(^([^:]+):\s*(.+)$)");
  static const RE2 sourceFile(R"(([^/]+\.swift):\d+)");

  ParsedLogLine out{levelOf(line, isStandardError), "System", std::string(line)};
  const re2::StringPiece subject(line.data(), line.size());
  re2::StringPiece match[2];
  if (brackets.Match(subject, 0, subject.size(), RE2::UNANCHORED, match, 2)) {
    out.source = std::string(match[1].data(), match[1].size());
    out.message = text::trim(line.substr(endOf(line, match[0])));
  } else if (prefix.Match(subject, 0, subject.size(), RE2::ANCHOR_BOTH, match, 2)) {
    out.source = text::trim(line.substr(0, match[1].size()));
    out.message = text::trim(line.substr(match[1].size() + 1));
  }
  if (std::string file; RE2::PartialMatch(out.message, sourceFile, &file)) {
    out.source = file.substr(0, file.find(':'));
  }
  if (out.message.empty()) out.message = line;
  return out;
}

}  // namespace kestrin
