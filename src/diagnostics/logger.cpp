#include "diagnostics/logger.h"

#include <atomic>
#include <deque>
#include <mutex>
#include <re2/re2.h>

#include "platform/text/text.h"

namespace kestrin {

struct Logger::State {
  State(Dispatch& d, NotificationCenter& n)
      : dispatch(d),
        notifications(n),
        queue(d.makeQueue("com.kestrin.logger", QueueKind::concurrent)) {}

  Dispatch& dispatch;
  NotificationCenter& notifications;
  const QueueRef queue;
  std::deque<LogEntry> entries;  ///< on `queue`
  std::atomic<int64_t> pendingNotifications{0};
  std::atomic<bool> batchArmed{false};
  std::atomic<int64_t> lastLine{0};  ///< steady nanoseconds of the latest line
  std::mutex sinkMutex;
  std::function<void(std::string_view)> sink;

  static void armBatch(const std::shared_ptr<State>& state, Duration delay);
  static void batchDue(const std::shared_ptr<State>& state);
};

/// One notification 0.15 s after the last line of a burst. Instead of a timer that each line moves,
/// the one that is under way looks at its end whether lines came meanwhile: a line costs no timer.
void Logger::State::armBatch(const std::shared_ptr<State>& state, Duration delay) {
  state->dispatch.mainQueue()->postAfter(delay, [weak = std::weak_ptr<State>(state)] {
    if (auto alive = weak.lock()) batchDue(alive);
  });
}

void Logger::State::batchDue(const std::shared_ptr<State>& state) {
  const Duration quiet =
      state->dispatch.clock().steadyNow().sinceStart - Duration(state->lastLine.load());
  if (quiet < batchInterval) {
    armBatch(state, batchInterval - quiet);
    return;
  }
  state->batchArmed = false;
  const int64_t count = state->pendingNotifications.exchange(0);
  if (count > 0)
    state->notifications.post("logEntriesBatchAdded", Json::object({{"count", count}}));
}

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

ParsedLogLine parseLogMessage(std::string_view line, bool isStandardError) {
  static const RE2 brackets(R"(\[([^\]]+)\])");
  static const RE2 prefix(R"(^([^:]+):\s*(.+)$)");
  static const RE2 sourceFile(R"(([^/]+\.swift):\d+)");

  ParsedLogLine out;
  const std::string lowered = text::lower(line);
  if (text::containsAny(lowered, {"error", "❌", "failed", "exception"})) {
    out.level = LogLevel::error;
  } else if (text::containsAny(lowered, {"warning", "⚠️", "warn"})) {
    out.level = LogLevel::warning;
  } else if (text::containsAny(lowered, {"debug", "🔍"})) {
    out.level = LogLevel::debug;
  } else {
    out.level = isStandardError ? LogLevel::error : LogLevel::info;
  }

  out.source = "System";
  out.message = line;
  const re2::StringPiece subject(line.data(), line.size());
  re2::StringPiece match[2];
  std::string first;
  std::string rest;
  if (brackets.Match(subject, 0, subject.size(), RE2::UNANCHORED, match, 2)) {
    out.source = std::string(match[1]);
    out.message = text::trim(
        line.substr(static_cast<size_t>(match[0].data() - line.data()) + match[0].size()));
  } else if (RE2::FullMatch(subject, prefix, &first, &rest)) {
    out.source = text::trim(first);
    out.message = text::trim(line.substr(first.size() + 1));
  }
  std::string file;
  if (RE2::PartialMatch(out.message, sourceFile, &file)) out.source = file;
  if (out.message.empty()) out.message = line;
  return out;
}

Logger::Logger(Dispatch& dispatch, NotificationCenter& notifications)
    : state_(std::make_shared<State>(dispatch, notifications)) {}

Logger::~Logger() {
  std::lock_guard lock(state_->sinkMutex);
  state_->sink = nullptr;
}

void Logger::log(std::string_view source, LogLevel level, std::string_view message) {
  add({state_->dispatch.clock().wallNow(), level, std::string(source),
       text::replaceInvalidUtf8(message)});
}

void Logger::print(std::string_view line) {
  {
    std::lock_guard lock(state_->sinkMutex);
    if (state_->sink) state_->sink(line);
  }
  if (text::trim(line).empty()) return;
  ParsedLogLine parsed = parseLogMessage(line, false);
  log(parsed.source, parsed.level, parsed.message);
}

void Logger::setSink(std::function<void(std::string_view line)> sink) {
  std::lock_guard lock(state_->sinkMutex);
  state_->sink = std::move(sink);
}

void Logger::add(LogEntry entry) {
  const auto state = state_;
  state->lastLine = state->dispatch.clock().steadyNow().sinceStart.count();
  state->queue->barrier([state, entry = std::move(entry)]() mutable {
    state->entries.push_back(std::move(entry));
    if (state->entries.size() > maxEntries) {
      state->entries.erase(state->entries.begin(), state->entries.begin() + cutEntries);
    }
    ++state->pendingNotifications;
    if (!state->batchArmed.exchange(true)) State::armBatch(state, batchInterval);
  });
}

std::vector<LogEntry> Logger::getEntries(const std::optional<std::string>& filter,
                                         std::optional<LogLevel> level) const {
  const std::string wanted = filter ? text::lower(*filter) : std::string();
  std::vector<LogEntry> out;
  state_->queue->sync([&] {
    for (const LogEntry& entry : state_->entries) {
      if (level && entry.level < *level) continue;
      if (!wanted.empty() && !text::contains(text::lower(entry.message), wanted) &&
          !text::contains(text::lower(entry.source), wanted)) {
        continue;
      }
      out.push_back(entry);
    }
  });
  return out;
}

void Logger::clear() {
  state_->queue->barrier([state = state_] {
    state->entries.clear();
    state->dispatch.mainQueue()->post([state] { state->notifications.post("logsCleared"); });
  });
}

}  // namespace kestrin
