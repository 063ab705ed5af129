#include "diagnostics/logger.h"

#include <atomic>
#include <deque>
#include <mutex>

#include "diagnostics/log_intake.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

/// So many lines may wait outside the list before somebody is sent to fetch them: enough that a
/// burst pays for a job once in a thousand lines, few enough that memory stays bounded.
constexpr int64_t mostWaiting = 1000;

}  // namespace

/// A caller only leaves its line in the intake. Whoever looks at the list fetches what waits there
/// first, as a writer that excludes readers, so nobody can tell that the line was not in it yet.
struct Logger::State {
  State(Dispatch& d, NotificationCenter& n)
      : dispatch(d),
        notifications(n),
        queue(d.makeQueue("com.kestrin.logger", QueueKind::concurrent)) {}

  /// The mark of a `clear` among the lines is nothing.
  using Arrival = std::optional<LogEntry>;

  Dispatch& dispatch;
  NotificationCenter& notifications;
  const QueueRef queue;
  LogIntake<Arrival> intake;
  std::atomic<int64_t> waiting{0};  ///< lines since the last fetch was sent for
  std::deque<LogEntry> entries;     ///< on `queue`
  std::atomic<int64_t> pendingNotifications{0};
  std::atomic<bool> batchArmed{false};
  std::atomic<int64_t> lastLine{0};  ///< steady nanoseconds of the latest line
  std::mutex sinkMutex;
  std::function<void(std::string_view)> sink;

  /// On `queue`, as a barrier.
  void fetch();
  static void armBatch(const std::shared_ptr<State>& state, Duration delay);
  static void batchDue(const std::shared_ptr<State>& state);
};

void Logger::State::fetch() {
  for (Arrival& arrival : intake.takeAll()) {
    if (!arrival) {
      entries.clear();
      continue;
    }
    entries.push_back(std::move(*arrival));
    if (entries.size() > maxEntries) {
      entries.erase(entries.begin(), entries.begin() + cutEntries);
    }
  }
}

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

Logger::Logger(Dispatch& dispatch, NotificationCenter& notifications)
    : state_(std::make_shared<State>(dispatch, notifications)) {}

Logger::~Logger() {
  std::lock_guard lock(state_->sinkMutex);
  state_->sink = nullptr;
}

void Logger::log(std::string_view source, LogLevel level, std::string_view message) {
  State& state = *state_;
  Clock& clock = state.dispatch.clock();
  state.intake.leave(LogEntry{clock.wallNow(), level, text::replaceInvalidUtf8(source),
                              text::replaceInvalidUtf8(message)});
  state.lastLine.store(clock.steadyNow().sinceStart.count(), std::memory_order_relaxed);
  ++state.pendingNotifications;
  if (!state.batchArmed.exchange(true)) State::armBatch(state_, batchInterval);
  if (state.waiting.fetch_add(1, std::memory_order_relaxed) % mostWaiting == mostWaiting - 1) {
    state.queue->barrier([shared = state_] { shared->fetch(); });
  }
}

void Logger::print(std::string_view text) {
  for (size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
    printLine(text.substr(0, end));
    text.remove_prefix(end + 1);
    if (text.empty()) return;
  }
  printLine(text);
}

void Logger::printLine(std::string_view line) {
  const std::string valid = text::replaceInvalidUtf8(line);
  {
    std::lock_guard lock(state_->sinkMutex);
    if (state_->sink) state_->sink(valid);
  }
  if (text::trim(valid).empty()) return;
  const ParsedLogLine parsed = parseLogMessage(valid, false);
  log(parsed.source, parsed.level, parsed.message);
}

void Logger::setSink(std::function<void(std::string_view line)> sink) {
  std::lock_guard lock(state_->sinkMutex);
  state_->sink = std::move(sink);
}

std::vector<LogEntry> Logger::getEntries(const std::optional<std::string>& filter,
                                         std::optional<LogLevel> level) const {
  const std::string wanted = filter ? text::lower(*filter) : std::string();
  const auto matches = [&wanted](const std::string& field) {
    return text::contains(text::lower(field), wanted);
  };
  std::vector<LogEntry> out;
  if (!state_->intake.empty()) state_->queue->syncBarrier([this] { state_->fetch(); });
  state_->queue->sync([&] {
    for (const LogEntry& entry : state_->entries) {
      if (level && entry.level < *level) continue;
      if (wanted.empty() || matches(entry.message) || matches(entry.source)) out.push_back(entry);
    }
  });
  return out;
}

void Logger::clear() {
  // In its place among the lines, so that one that follows it stays.
  state_->intake.leave(std::nullopt);
  state_->queue->barrier([state = state_] {
    state->fetch();
    state->dispatch.mainQueue()->post([state] { state->notifications.post("logsCleared"); });
  });
}

}  // namespace kestrin
