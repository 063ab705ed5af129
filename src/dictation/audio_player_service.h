#pragma once

#include <functional>
#include <memory>

#include "diagnostics/logger.h"
#include "platform/audio.h"
#include "platform/lifetime.h"
#include "platform/settings.h"

namespace kestrin {

/// Plays spoken replies, one at a time. Main queue.
class AudioPlayerService {
 public:
  /// The pause between stopping one sound and what follows it.
  static constexpr std::chrono::milliseconds pauseAfterStop{50};

  AudioPlayerService(Dispatch& dispatch, Audio& audio, const SettingsStore& settings,
                     Logger& logger);

  /// Stops what plays now (its completion is not called) and plays the WAV `data`; after a stop the
  /// new sound begins a short pause later. `completion` is called at the end, or when it
  /// cannot play.
  void play(Bytes data, std::function<void()> completion = {});
  /// Stops and drops the player without calling its completion; false when nothing played. The
  /// caller leaves `pauseAfterStop` before it records.
  bool stop();
  bool isPlaying() const { return player_ || pendingStart_ || isOpening_; }
  /// Takes the volume from "pref_voiceVolume", for the sound that plays now too.
  void applyPreferences();
  float preferredVolume() const { return preferredVolume_; }
  /// What "pref_voiceVolume" says, 0 to 1.
  static float preferredVolume(const SettingsStore& settings);

 private:
  void begin(Bytes data);
  void began(uint64_t number, Result<std::shared_ptr<AudioPlayback>> player, size_t bytes);
  void finished(uint64_t number);
  void complete();

  Dispatch& dispatch_;
  Audio& audio_;
  const SettingsStore& settings_;
  Logger& logger_;
  const QueueRef opening_;  ///< opening can keep a caller waiting
  std::shared_ptr<AudioPlayback> player_;
  bool isOpening_ = false;
  TimerHandle pendingStart_;
  std::function<void()> completionHandler_;
  float preferredVolume_ = 0.8F;
  uint64_t playNumber_ = 0;
  Lifetime lifetime_;
};

}  // namespace kestrin
