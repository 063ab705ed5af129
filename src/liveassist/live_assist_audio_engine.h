#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "diagnostics/logger.h"
#include "liveassist/audio_channel.h"
#include "liveassist/vad_config.h"
#include "platform/audio.h"
#include "platform/lifetime.h"

namespace kestrin {

class AudioSegmenter;
class CaptureLine;
class LiveAssistAudioEngine;
class MicrophoneDetector;
class MicrophoneReconnection;
class SystemDetector;

/// Called on the main queue.
class LAAudioEngineDelegate {
 public:
  virtual ~LAAudioEngineDelegate() = default;
  /// A segment of 16 kHz mono 16-bit PCM, never empty. The channel gives no further one until
  /// `markTranscriptionComplete`.
  virtual void didSegmentAudio(LiveAssistAudioEngine& engine, Bytes pcm,
                               LAAudioChannel channel) = 0;
  /// A channel has started; the microphone also after each reconnection.
  virtual void didStartCapture(LiveAssistAudioEngine& engine, LAAudioChannel channel) = 0;
};

/// Captures the user's microphone and what the computer plays at once, and turns each into segments
/// of speech. One segment of a channel is in flight at a time: whoever gets it calls
/// `markTranscriptionComplete` when its result or its failure is known.
///
/// A microphone that is lost comes back by itself: when the device or the sound server goes, when
/// another microphone becomes the default one, and when no sound has come for 5 s; up to 19 times a
/// capture. Main queue only; nothing here waits.
class LiveAssistAudioEngine {
 public:
  static constexpr std::chrono::milliseconds segmentationInterval{300};
  /// Of a capture that was stopped before it had started.
  static constexpr int startCancelled = 3;

  LiveAssistAudioEngine(Dispatch& dispatch, Audio& audio, Logger& logger,
                        const LAVADConfig& config = {});
  ~LiveAssistAudioEngine();
  LiveAssistAudioEngine(const LiveAssistAudioEngine&) = delete;
  LiveAssistAudioEngine& operator=(const LiveAssistAudioEngine&) = delete;

  std::weak_ptr<LAAudioEngineDelegate> delegate;

  /// From a start that succeeded until `stopCapture`.
  bool isCapturing() const { return isCapturing_; }
  /// Opens both channels, the microphone first, and tells on the main queue. Without effect, and a
  /// success, while capturing. Errors: the port's, or domain "LiveAssist" (1 "Invalid mic format:
  /// ", 3 stopped meanwhile). When only the system channel fails, the microphone stays open until
  /// `stopCapture`.
  void startCapture(std::function<void(const Status&)> completion);
  /// Closes both channels. What meets the rules of a cut still comes as a segment; a shorter tail
  /// is dropped.
  void stopCapture();
  /// Between sessions: detectors, guards and the count of reconnections begin anew.
  void resetState();
  /// The result or the failure of the channel's segment is known: the next one may come.
  void markTranscriptionComplete(LAAudioChannel channel);

 private:
  void openMicrophone(std::function<void(const Status&)> done);
  void openSystem(std::function<void(const Status&)> done);
  void checkDevices();
  void started(const Status& outcome);
  void tellStarted(LAAudioChannel channel);
  void deliver(LAAudioChannel channel, Bytes pcm);

  Dispatch& dispatch_;
  Logger& logger_;
  const std::shared_ptr<MicrophoneDetector> microphoneDetector_;
  const std::shared_ptr<SystemDetector> systemDetector_;
  std::shared_ptr<AudioSegmenter> segmenter_;
  std::unique_ptr<CaptureLine> microphone_;
  std::unique_ptr<CaptureLine> system_;
  std::unique_ptr<MicrophoneReconnection> reconnection_;
  TimerHandle segmentationTimer_;
  std::vector<std::function<void(const Status&)>> startCompletions_;
  bool isCapturing_ = false;
  bool systemIsLost_ = false;
  Lifetime lifetime_;
};

}  // namespace kestrin
