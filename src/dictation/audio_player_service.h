#pragma once

#include <functional>
#include <memory>

#include "diagnostics/logger.h"
#include "platform/audio.h"
#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"
#include "platform/settings.h"

namespace kestrin {

/// Plays spoken replies, one at a time. Main queue only; the sound server is talked to on a queue
/// of its own.
class AudioPlayerService {
 public:
  static constexpr std::chrono::milliseconds settleTime{50};

  AudioPlayerService(Dispatch& dispatch, Audio& audio, SettingsStore& settings, Logger& logger);
  ~AudioPlayerService();

  /// Stops what is playing (whose completion is not called), then plays a WAV file's bytes.
  /// `completion` runs once, at the end or when it cannot be played.
  void play(Bytes data, std::function<void()> completion);
  /// True from `play` to the end of the sound.
  bool isPlaying() const { return playing_; }
  /// Stops without calling the completion.
  void stop();
  /// Reads "pref_voiceVolume"; applies to the running player too.
  void applyPreferences();

 private:
  void begin(Bytes data);
  void finished(int generation);

  Dispatch& dispatch_;
  Audio& audio_;
  SettingsStore& settings_;
  Logger& logger_;
  QueueRef queue_;
  std::shared_ptr<AudioPlayback> player_;
  std::function<void()> completionHandler_;
  float preferredVolume_ = 0.8f;
  bool playing_ = false;
  int generation_ = 0;  ///< tells the present player's events from those of stopped ones
  Lifetime lifetime_;
};

}  // namespace kestrin
