#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "diagnostics/logger.h"
#include "dictation/recorder_engine.h"
#include "platform/audio.h"
#include "platform/files.h"
#include "platform/lifetime.h"
#include "platform/settings.h"

namespace kestrin {

/// Captures the microphone while the hold key is down and delivers 16 kHz, 16-bit, mono PCM in
/// memory, with a running level for the overlay. Every recording opens the microphone anew, so that
/// a change of devices between recordings needs no observer; empty recordings are counted, and
/// after the second in a row the engine is reset.
///
/// With the setting "pref_preRoll" the microphone stays open between recordings (not that of a
/// recorder which is made for a single one) and a recording begins up to 0.45 s before its key was
/// pressed; that sound lies in memory only.
///
/// Main queue, except `resetEngine`, which any queue may call.
class AudioRecorder {
 public:
  static constexpr int maxConsecutiveFailures = 2;
  static constexpr std::chrono::milliseconds preRollLength{450};

  /// Whether the microphone may stay open between recordings.
  enum class PreRoll { bySetting, never };

  struct Recording {
    std::optional<std::string> url;  ///< only outside PCM-only mode
    Bytes pcmData;
  };

  /// Begins to prepare at once. `logger` outlives the dispatch's jobs.
  AudioRecorder(Dispatch& dispatch, Audio& audio, Files& files, SettingsStore& settings,
                Logger& logger, PreRoll preRoll = PreRoll::bySetting);
  /// Waits for what still runs at the sound server.
  ~AudioRecorder();
  /// For a recorder that is not needed any more (none: nothing happens): it does nothing from now
  /// on, and is destroyed on a global queue. May be called from within its own callbacks.
  static void retire(std::unique_ptr<AudioRecorder> recorder);

  /// Looks at the microphone in the background, so that the first press finds it ready.
  void prepareEngine();
  /// `onLevel` gets 0 to 1 on the main queue. `completion` comes on the main queue once the
  /// microphone is open: a sound server that hangs must not hold up the caller. A recording that is
  /// not wanted any more by then is stopped like any other. Ignored while a recording runs. Errors:
  /// "AudioRecorder" when there is no usable microphone, else the sound server's own.
  void startRecording(std::function<void(float)> onLevel,
                      std::function<void(const Status&)> completion);
  /// Empty when nothing was recorded.
  Recording stopRecordingWithPCM();
  /// The file alone, outside PCM-only mode.
  std::optional<std::string> stopRecording();
  /// Back to idle from anywhere.
  void resetEngine();
  /// `resetEngine` on a global queue; leaves a recording alone that has begun meanwhile.
  void resetEngineInBackground();
  /// Deletes the file of the last recording, if any.
  void cleanup();

  /// Takes the gain of the level from "pref_inputSensitivity", for all recorders of the process.
  static void applyPreferences(const SettingsStore& settings);

  bool isRecording() const { return engine_->isRecording(); }
  bool isEngineReady() const { return engine_->isReady(); }
  float currentLevel() const { return engine_->level(); }
  int consecutiveFailures() const { return consecutiveFailures_; }
  /// Length of the last recording.
  int audioDurationMs() const { return audioDurationMs_; }
  /// From the call of `startRecording` to the first sound that arrived.
  std::optional<Duration> firstSoundAfter() const { return engine_->firstSoundAfter(); }
  /// The microphone is open although no recording runs (or was before this one): the tray shows it.
  bool isPreRollActive() const { return preRollActive_; }

  bool pcmOnlyMode = true;
  /// On the main queue, when the microphone is taken away in mid-recording, with a line for the
  /// user. What was said so far is kept and delivered at the stop.
  std::function<void(const std::string& line)> onInterrupted;
  /// On the main queue, after `isPreRollActive` has changed.
  std::function<void()> onPreRollChanged;

 private:
  /// How far a start has come.
  struct Opening;

  RecorderEngine::Callbacks callbacks();
  void recordingOpened(const Opening& opening);
  void formatFound(const AudioFormat& format);
  void captureStopped(uint64_t generation, AudioStop why);
  Bytes endRecording();
  bool wantsPreRoll() const;
  void refreshPreRoll();
  void preRollTried(bool opened);
  void setPreRollActive(bool active);
  std::optional<std::string> writeFile(const Bytes& pcm);

  Dispatch& dispatch_;
  Audio& audio_;
  Files& files_;
  SettingsStore& settings_;
  Logger& logger_;
  const PreRoll preRoll_;
  const QueueRef engineQueue_;
  const std::shared_ptr<RecorderEngine> engine_;
  std::function<void(float)> onLevel_;
  std::optional<std::string> tempFileURL_;
  std::optional<SteadyTime> recordingStartTime_;
  int pendingStarts_ = 0;
  int consecutiveFailures_ = 0;
  int audioDurationMs_ = 0;
  bool preRollActive_ = false;
  TimerHandle preRollTimer_;
  SubscriptionHandle settingsObserver_;
  Lifetime lifetime_;
};

}  // namespace kestrin
