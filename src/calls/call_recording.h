#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "diagnostics/logger.h"
#include "platform/audio.h"
#include "platform/files.h"

namespace kestrin {

/// Writes the microphone to a WAV file (16 kHz, mono, mode 0600) as it comes, so that a crash
/// leaves what was said until then. Main queue only; nothing here waits.
class CallRecording {
 public:
  /// `logger`, `audio` and `files` outlive the dispatch's jobs.
  CallRecording(Dispatch& dispatch, Audio& audio, Files& files, Logger& logger);
  /// Ends it without telling.
  ~CallRecording();

  /// A failure is logged, and nothing is recorded then.
  void start(const std::string& path);
  /// `completion` comes on the main queue with the file once it is whole; nothing when nothing was
  /// recorded.
  void stop(std::function<void(const std::optional<std::string>& path)> completion);

 private:
  struct State;
  Dispatch& dispatch_;
  const std::shared_ptr<State> state_;
};

/// "<documents>/Kestrin/CallRecordings/call_<room>_<seconds>.wav"; a room's name cannot leave the
/// folder.
std::string callRecordingPath(Files& files, const std::string& roomName, Date now);

}  // namespace kestrin
