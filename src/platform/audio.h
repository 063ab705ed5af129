#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/bytes.h"
#include "platform/dispatch/dispatch.h"
#include "platform/result.h"

namespace kestrin {

struct AudioFormat {
  int sampleRate = 0;
  int channels = 0;
  bool operator==(const AudioFormat&) const = default;
};

struct AudioDevice {
  std::string id;    ///< the sound server's name
  std::string name;  ///< what people read
  bool isDefault = false;
};

enum class AudioSource {
  microphone,   ///< a capture device, at the device's own rate
  systemAudio,  ///< what the default output plays (without our own output), 16 kHz mono
};

enum class AudioStop {
  deviceGone,   ///< unplugged; never continues on another device by itself
  serverGone,   ///< the sound server ended
  noFirstData,  ///< opened, but no data within the first-data deadline (a suspended device)
};

/// Codes of errors in the domain "Audio".
enum AudioErrorCode { noSoundServer = 1, noAudioDevice = 2, audioRefused = 3, unplayableSound = 4 };

struct CaptureOptions {
  AudioSource source = AudioSource::microphone;
  std::string deviceId;  ///< empty: the default device
  int framesPerBlock = 4096;
  /// How long an opened device may stay silent; a headset that changes its profile needs over a
  /// second.
  Duration firstDataDeadline = std::chrono::seconds(2);
  /// Once, on the audio thread, as soon as the device has delivered anything at all.
  std::function<void()> onFirstData;
  /// Frames of float samples, `channels` interleaved, on the audio thread: return quickly, never
  /// wait. Exactly `framesPerBlock` frames each, whatever the server sends; the partial block comes
  /// at `stop` or before `onStopped`.
  std::function<void(const float* samples, int frames, const AudioFormat&)> onBlock;
  /// On the audio thread, at most once; nothing follows.
  std::function<void(AudioStop)> onStopped;
};

/// A running capture. Destroying it stops it: no callback runs afterwards. Neither is to be done
/// from its own callbacks.
class AudioCapture {
 public:
  virtual ~AudioCapture() = default;
  virtual AudioFormat format() const = 0;
  /// Delivers the partial block (on the audio thread, before it returns) and stops.
  virtual void stop() = 0;
};

/// Plays sound. Destroying it stops it without calling back.
class AudioPlayback {
 public:
  virtual ~AudioPlayback() = default;
  virtual void stop() = 0;
  virtual void setVolume(float volume) = 0;  ///< 0 to 1
};

/// The sound server. Opening blocks up to 2 s (a few milliseconds as a rule). Thread-safe. Errors:
/// domain "Audio". Comes back by itself when the server is there again.
class Audio {
 public:
  virtual ~Audio() = default;
  virtual Status available() = 0;
  virtual Result<std::vector<AudioDevice>> inputDevices() = 0;
  virtual Result<std::vector<AudioDevice>> outputDevices() = 0;
  virtual Status setDefaultInput(const std::string& id) = 0;
  virtual Status setDefaultOutput(const std::string& id) = 0;
  /// The format a capture of this device would have now. Sample rate 0 when there is no such
  /// device.
  virtual AudioFormat inputFormat(const std::string& deviceId) = 0;
  virtual Result<std::unique_ptr<AudioCapture>> capture(CaptureOptions options) = 0;
  /// Plays a WAV file's bytes (PCM 8/16/24/32 or float); `onEnd(finished)` on any thread.
  virtual Result<std::unique_ptr<AudioPlayback>> play(const Bytes& wav, float volume,
                                                      std::function<void(bool)> onEnd) = 0;
  /// Volume of the default output in percent, 0 to 100, and its mute switch.
  virtual Result<int> outputVolume() = 0;
  virtual Status setOutputVolume(int percent) = 0;
  virtual Status setOutputMuted(bool muted) = 0;
};

}  // namespace kestrin
