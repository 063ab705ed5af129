#pragma once

#include <memory>
#include <string_view>

#include "diagnostics/logger.h"
#include "platform/dispatch/dispatch.h"
#include "platform/standard_streams.h"

namespace kestrin {

/// Makes log entries of what the process prints: plain lines of ours, of libraries and of children
/// that inherit the streams, each one entry with a guessed level and source. The text goes on,
/// unchanged and line by line, to where the stream went before. Thread-safe.
///
/// What this does with a line never prints, or the line would feed itself: an original that can no
/// longer be written is told in the log, once.
class SystemLogCapture {
 public:
  /// A line without an end is cut here, so that nobody can fill memory with one.
  static constexpr size_t longestLine = 65'536;
  /// Printed text that waits for its turn; above this, text is left out rather than held up.
  static constexpr size_t mostWaiting = 32u << 20;

  SystemLogCapture(Dispatch& dispatch, StandardStreams& streams, Logger& logger);
  ~SystemLogCapture();

  /// Does nothing while capturing. A failure is logged and leaves the streams untouched.
  void start();
  /// Returns when everything printed or passed on before is in the log and where it goes. A second
  /// call only waits for lines passed on meanwhile.
  void stop();
  bool isCapturing() const;

  /// Sends a line that has its entry already where captured text goes. Returns at once.
  void passOn(std::string_view line);

 private:
  struct State;
  const std::shared_ptr<State> state_;
};

}  // namespace kestrin
