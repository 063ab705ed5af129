#pragma once

#include <atomic>
#include <deque>
#include <mutex>
#include <optional>

#include "liveassist/vad_config.h"
#include "platform/dispatch/dispatch.h"

namespace kestrin {

/// Root of the mean square of the first of `channels` interleaved channels. A frame that holds
/// something that is no number counts as silence.
float rootMeanSquare(const float* samples, int frames, int channels);

/// Hears on the microphone where speech begins and ends, by a fixed threshold. The buffer queue
/// feeds and reads it, the main queue resets it. Thread-safe.
class MicrophoneDetector {
 public:
  /// All of it at one moment.
  struct State {
    bool micSpeechActive = false;
    std::optional<SteadyTime> micSpeechStartTime;
    /// When speech last ended; stays when it begins anew, until a segment is cut.
    std::optional<SteadyTime> micSilenceStartTime;
    int micSilenceFrames = 0;
    int debugMicFrameCount = 0;
    std::optional<SteadyTime> lastMicBufferTime;
  };

  explicit MicrophoneDetector(const LAVADConfig& config) : config_(config) {}

  State state() const;
  /// The microphone gave something, or was just opened. Never waits.
  void noteBuffer(SteadyTime now);
  /// One frame's level; true when speech begins with it.
  bool heard(float rms, SteadyTime now);
  /// After the frame went to its buffer: a long enough silence ends the speech.
  void endSpeechIfSilent(SteadyTime now);
  void segmentCut();
  void reset();

 private:
  static constexpr Duration never = Duration::min();
  const LAVADConfig config_;
  mutable std::mutex mutex_;
  State state_;  ///< but for `lastMicBufferTime`
  std::atomic<Duration> lastBuffer_{never};
};

/// The same for the system channel, whose level depends on what plays: the threshold follows the
/// mean of the last frames. Thread-safe.
class SystemDetector {
 public:
  struct State {
    bool systemSpeechActive = false;
    int systemSilenceFrameCount = 0;
    float systemAdaptiveThreshold = 0.01F;
  };

  explicit SystemDetector(const LAVADConfig& config) : config_(config) {}

  State state() const;
  void heard(float rms);
  /// The threshold stays until the next frame.
  void reset();

 private:
  const LAVADConfig config_;
  mutable std::mutex mutex_;
  State state_;
  std::deque<float> systemEnergyHistory_;
};

}  // namespace kestrin
