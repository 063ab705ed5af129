#pragma once

#include <array>
#include <atomic>
#include <mutex>
#include <thread>

#include "platform/linux/descriptor.h"
#include "platform/standard_streams.h"

namespace kestrin {

/// Gives standard streams that are closed to /dev/null. First thing in a program that captures:
/// otherwise the next descriptor that anybody opens gets such a number and is taken for the stream.
void openClosedStreams();

/// A pipe stands in for each captured stream, and one thread does nothing but empty both, so that
/// whoever prints never waits for what becomes of the text.
class LinuxStandardStreams final : public StandardStreams {
 public:
  /// Other descriptor numbers than 1 and 2 are for tests. Both must be open.
  explicit LinuxStandardStreams(int output = 1, int error = 2);
  ~LinuxStandardStreams() override;

  Status beginCapture(OnBytes onBytes) override;
  void endCapture() override;
  Status writeOriginal(StandardStream stream, std::string_view bytes) override;
  Status redirectOriginals(const std::string& path) override;

 private:
  struct Stream {
    int number = -1;       ///< 1 or 2
    Descriptor inherited;  ///< what that number was when this object was made
    Descriptor captured;   ///< read end of the pipe that stands in for it
    bool stalled = false;  ///< its reader took nothing at the last attempt
  };

  Status putPipesInPlace();
  void readUntilStopped(const OnBytes& onBytes);
  /// Reads one block; false when there is none (or the stream has ended).
  bool readBlock(size_t index, const OnBytes& onBytes, std::string& block);
  void restore(Stream& stream);

  std::mutex mutex_;  ///< the originals and `stalled`
  std::array<Stream, 2> streams_;
  Descriptor file_;
  std::string filePath_;
  WakeEvent wake_;
  std::atomic<bool> stopping_{false};
  std::thread reader_;
};

}  // namespace kestrin
