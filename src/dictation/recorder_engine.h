#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "dictation/pcm_collector.h"
#include "platform/audio.h"

namespace kestrin {

/// The capture of `AudioRecorder`, with what the main queue, the audio thread and a reset in the
/// background share. Thread-safe.
class RecorderEngine {
 public:
  struct Callbacks {
    std::function<void(float level)> onLevel;  ///< audio thread, while recording
    std::function<void(uint64_t, AudioStop)>
        onStopped;  ///< audio thread, with the capture's number
  };

  explicit RecorderEngine(Dispatch& dispatch);
  ~RecorderEngine();

  /// Opens the microphone and keeps everything from now on. What was open before is closed.
  /// `pressed`: when the user asked for it.
  Status openRecording(Audio& audio, const std::string& device, SteadyTime pressed,
                       Callbacks callbacks);
  /// Opens the microphone, unless it is open already, and keeps only the last `bytes` until a
  /// recording takes over. For a background queue: a recording that begins meanwhile goes before.
  Status openPreRoll(Audio& audio, const std::string& device, size_t bytes, Callbacks callbacks);
  /// The recording goes on from the pre-roll's open capture; false when there is none alive.
  bool takeOverPreRoll(SteadyTime pressed);
  /// Delivers the partial block, closes, and returns everything that was kept.
  Bytes finishRecording();
  void close();
  /// Idle, with nothing kept and no format known. False when a recording has begun since
  /// `onlyIfStarts`.
  bool reset(std::optional<uint64_t> onlyIfStarts);

  bool isRecording() const;
  bool isReady() const;
  bool hasPreRoll() const;  ///< open before a recording, or taken over from there
  AudioFormat inputFormat() const;
  void setInputFormat(const AudioFormat& format);  ///< an unusable one means "not ready"
  uint64_t starts() const;                         ///< recordings begun so far
  /// Number of the present capture; whatever replaces or closes it changes it.
  uint64_t generation() const { return meter_->generation; }
  float level() const { return meter_->level; }
  std::optional<Duration> firstSoundAfter() const;

  static void setLevelGain(float gain);

 private:
  /// The audio thread's part, which a capture holds on to.
  struct Meter {
    std::atomic<float> level = 0;
    std::atomic<bool> recording = false;
    std::atomic<int64_t> started = 0;
    std::atomic<int64_t> firstSound = -1;
    /// The capture that may write; what an abandoned one still delivers is dropped.
    std::atomic<uint64_t> generation = 0;
    std::atomic<uint64_t> endedGeneration = 0;
  };
  // With the mutex held:
  uint64_t nextGeneration();
  void beginRecording(SteadyTime pressed);

  std::unique_ptr<AudioCapture> detach();
  CaptureOptions options(const std::string& device, uint64_t generation, Callbacks callbacks) const;
  /// Keeps the capture if it is still wanted.
  void adopt(std::unique_ptr<AudioCapture> capture, uint64_t generation, bool preRoll);

  Dispatch& dispatch_;
  const std::shared_ptr<PcmCollector> pcm_;
  const std::shared_ptr<Meter> meter_ = std::make_shared<Meter>();
  mutable std::mutex mutex_;
  std::unique_ptr<AudioCapture> capture_;
  AudioFormat inputFormat_;
  bool preRoll_ = false;
  bool ready_ = false;
  uint64_t starts_ = 0;
};

}  // namespace kestrin
