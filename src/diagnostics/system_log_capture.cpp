#include "diagnostics/system_log_capture.h"

#include <array>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/bytes.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* source = "SystemLogCapture";

struct Printed {
  StandardStream stream;
  Bytes bytes;
};

/// How much of `pending` is whole lines; of a line that never ends, as much as is whole characters.
size_t completeLength(std::string_view pending) {
  const size_t lineEnd = pending.rfind('\n');
  if (lineEnd != std::string_view::npos) return lineEnd + 1;
  if (pending.size() < SystemLogCapture::longestLine) return 0;
  return pending.size() - text::incompleteUtf8Tail(pending);
}

}  // namespace

struct SystemLogCapture::State {
  State(Dispatch& dispatch, StandardStreams& s, Logger& l)
      : streams(s), logger(l), captureQueue(dispatch.makeQueue("com.kestrin.logcapture")) {}

  StandardStreams& streams;
  Logger& logger;
  const QueueRef captureQueue;

  std::mutex mutex;
  bool isCapturing = false;
  std::vector<Printed> waiting;
  size_t waitingBytes = 0;
  size_t leftOut = 0;  ///< bytes since the last turn

  // On captureQueue.
  std::array<Bytes, 2> pending;  ///< begun lines
  bool saidLost = false;

  /// Called by whoever reads the streams, which must go on reading.
  static void arrived(const std::shared_ptr<State>& state, StandardStream stream,
                      std::string_view bytes);
  void handleWaiting();
  void take(StandardStream stream, std::string_view bytes);
  void handleLines(StandardStream stream, std::string_view lines);
  void writeOriginal(StandardStream stream, std::string_view bytes);
};

void SystemLogCapture::State::arrived(const std::shared_ptr<State>& state, StandardStream stream,
                                      std::string_view bytes) {
  {
    const std::lock_guard lock(state->mutex);
    if (state->waitingBytes + bytes.size() > mostWaiting) {
      state->leftOut += bytes.size();
      return;
    }
    state->waitingBytes += bytes.size();
    state->waiting.push_back({stream, Bytes(bytes)});
    if (state->waiting.size() > 1) return;  // a turn is on its way
  }
  state->captureQueue->post([state] { state->handleWaiting(); });
}

void SystemLogCapture::State::handleWaiting() {
  std::vector<Printed> taken;
  size_t missing = 0;
  {
    const std::lock_guard lock(mutex);
    taken.swap(waiting);
    waitingBytes = 0;
    missing = std::exchange(leftOut, 0);
  }
  for (const Printed& printed : taken) take(printed.stream, printed.bytes);
  if (missing == 0) return;
  logger.log(source, LogLevel::warning,
             "⚠️ " + std::to_string(missing) + " bytes were printed too fast and left out");
}

void SystemLogCapture::State::take(StandardStream stream, std::string_view bytes) {
  Bytes& begun = pending[stream == StandardStream::output ? 0 : 1];
  begun += bytes;
  const size_t length = completeLength(begun);
  if (length == 0) return;
  handleLines(stream, std::string_view(begun).substr(0, length));
  begun.erase(0, length);
}

void SystemLogCapture::State::handleLines(StandardStream stream, std::string_view lines) {
  writeOriginal(stream, lines);
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    std::string line = text::replaceInvalidUtf8(lines.substr(0, end));
    lines.remove_prefix(std::min(end + 1, lines.size()));
    if (line.ends_with('\r')) line.pop_back();
    if (text::trim(line).empty()) continue;
    const auto parsed = parseLogMessage(line, stream == StandardStream::error);
    logger.log(parsed.source, parsed.level, parsed.message);
  }
}

void SystemLogCapture::State::writeOriginal(StandardStream stream, std::string_view bytes) {
  const auto written = streams.writeOriginal(stream, bytes);
  if (written || std::exchange(saidLost, true)) return;
  logger.log(source, LogLevel::warning,
             "⚠️ Printed lines can no longer be written: " + written.error().description);
}

SystemLogCapture::SystemLogCapture(Dispatch& dispatch, StandardStreams& streams, Logger& logger)
    : state_(std::make_shared<State>(dispatch, streams, logger)) {}

SystemLogCapture::~SystemLogCapture() { stop(); }

void SystemLogCapture::start() {
  {
    const std::lock_guard lock(state_->mutex);
    if (std::exchange(state_->isCapturing, true)) return;
  }
  // Waited for, so that what is printed right after this is captured already.
  state_->captureQueue->sync([state = state_] {
    const auto begun =
        state->streams.beginCapture([state](StandardStream stream, std::string_view bytes) {
          State::arrived(state, stream, bytes);
        });
    if (begun) {
      state->logger.log(source, LogLevel::info, "✅ Started capturing stdout/stderr");
      return;
    }
    state->logger.log(source, LogLevel::warning,
                      "⚠️ Printed lines are not captured: " + begun.error().description);
    const std::lock_guard lock(state->mutex);
    state->isCapturing = false;
  });
}

void SystemLogCapture::stop() {
  bool wasCapturing = false;
  {
    const std::lock_guard lock(state_->mutex);
    wasCapturing = std::exchange(state_->isCapturing, false);
  }
  if (wasCapturing) state_->streams.endCapture();
  // Without a capture as well: lines that were passed on may be waiting.
  state_->captureQueue->sync([state = state_] {
    state->handleWaiting();
    for (const auto stream : {StandardStream::output, StandardStream::error}) {
      const Bytes last =
          std::exchange(state->pending[stream == StandardStream::output ? 0 : 1], {});
      if (!last.empty()) state->handleLines(stream, last);
    }
  });
}

bool SystemLogCapture::isCapturing() const {
  const std::lock_guard lock(state_->mutex);
  return state_->isCapturing;
}

void SystemLogCapture::passOn(std::string_view line) {
  state_->captureQueue->post([state = state_, text = Bytes(line) + "\n"] {
    state->writeOriginal(StandardStream::error, text);
  });
}

}  // namespace kestrin
