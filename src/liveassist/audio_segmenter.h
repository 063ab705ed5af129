#pragma once

#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "diagnostics/logger.h"
#include "liveassist/audio_channel.h"
#include "liveassist/voice_detectors.h"
#include "platform/bytes.h"

namespace kestrin {

/// Lets one segment of a channel be on its way to the recogniser at a time. Thread-safe.
class InFlightGuard {
 public:
  bool isTaken() const;
  void take(SteadyTime now);
  void release();
  /// Releases it when it was taken more than `seconds` ago; whether it did.
  bool releaseIfOlder(double seconds, SteadyTime now);

 private:
  mutable std::mutex mutex_;
  std::optional<SteadyTime> since_;
};

/// The PCM of both channels that waits to be cut, and the pass that cuts it. The bytes are touched
/// on the queue "com.kestrin.audiobuffer" alone. Make it with `std::make_shared`: work on the queue
/// holds it weakly. Thread-safe.
class AudioSegmenter : public std::enable_shared_from_this<AudioSegmenter> {
 public:
  /// Called on the buffer queue.
  using OnSegment = std::function<void(LAAudioChannel, Bytes pcm)>;

  AudioSegmenter(Dispatch& dispatch, Logger& logger, const LAVADConfig& config,
                 std::shared_ptr<MicrophoneDetector> microphone,
                 std::shared_ptr<SystemDetector> system, OnSegment onSegment);

  /// Where a channel's PCM comes from: each pass asks it on the buffer queue for what came since.
  /// What the one before still holds is taken first. Returns at once.
  void setSource(LAAudioChannel channel, std::function<Bytes()> source);
  /// One pass over both channels (`processBufferedAudio`), later on the buffer queue.
  void process();
  /// Empties both buffers before it returns. Not from the buffer queue.
  void clear();
  /// Waits for the work posted so far.
  void drain();
  void release(LAAudioChannel channel);
  bool isInFlight(LAAudioChannel channel) const;
  /// For a new session: guards open, and no microphone segment cut yet.
  void reset();

 private:
  struct Channel {
    // Buffer queue only:
    Bytes buffer;
    std::function<Bytes()> source;

    InFlightGuard inFlight;
    std::optional<SteadyTime> lastSegmentTime;  ///< guarded by `mutex_`
  };

  Channel& of(LAAudioChannel channel) { return channels_[size_t(channel)]; }
  const Channel& of(LAAudioChannel channel) const { return channels_[size_t(channel)]; }
  // Buffer queue:
  void take(Channel& channel);
  void pass();
  bool microphoneIsDue(SteadyTime now);
  bool systemIsDue(SteadyTime now);
  bool isDue(size_t bytes, bool ended, bool aged) const;
  std::optional<SteadyTime> lastSegmentTime(LAAudioChannel channel) const;
  Bytes cut(LAAudioChannel channel, SteadyTime now);

  Dispatch& dispatch_;
  Logger& logger_;
  const LAVADConfig config_;
  const std::shared_ptr<MicrophoneDetector> microphone_;
  const std::shared_ptr<SystemDetector> system_;
  const OnSegment onSegment_;
  const QueueRef bufferQueue_;
  mutable std::mutex mutex_;
  std::array<Channel, 2> channels_;
};

}  // namespace kestrin
