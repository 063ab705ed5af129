#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/result.h"

namespace kestrin {

enum class StandardStream { output, error };

/// This process's standard output and standard error. While they are captured, what the process,
/// its libraries and the children that inherit them print arrives here instead of where it went;
/// what shall go there nevertheless is written with `writeOriginal`. One object in a process.
/// Errors: domain "StandardStreams", code = errno.
///
/// Everything printed through C or C++ reaches the stream line by line. The destructor ends the
/// capture and leaves the streams as they were found.
class StandardStreams {
 public:
  /// Bytes as they were printed, cut anywhere, in order for each of the two streams. Called on a
  /// thread of the port that must not be held up: no printing, no waiting.
  using OnBytes = std::function<void(StandardStream stream, std::string_view bytes)>;

  virtual ~StandardStreams() = default;

  /// EALREADY while a capture is on. After a failure the streams are as they were.
  virtual Status beginCapture(OnBytes onBytes) = 0;
  /// The streams go where `writeOriginal` writes. Returns when everything printed before has been
  /// handed over and nothing more will be. Does nothing without a capture.
  virtual void endCapture() = 0;

  /// Writes to where the stream went before it was captured, or to the file of `redirectOriginals`;
  /// what the file refuses goes to the former. A reader that takes nothing is waited for a quarter
  /// of a second, then no more until it takes something; what it does not take is lost (EAGAIN).
  /// Thread-safe; not for the main queue.
  virtual Status writeOriginal(StandardStream stream, std::string_view bytes) = 0;

  /// From now on both originals are the file at `path`: made with mode 0600 where it is missing,
  /// appended to where it exists. Its folder must exist. Without a capture the streams themselves
  /// go there. Thread-safe.
  virtual Status redirectOriginals(const std::string& path) = 0;
};

}  // namespace kestrin
