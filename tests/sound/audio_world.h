#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/audio.h"

namespace kestrin::test {

/// A sound server with one microphone and one output, real or simulated, and a hand on its plugs.
class AudioWorld {
 public:
  virtual ~AudioWorld() = default;
  virtual Audio& audio() = 0;
  /// A tone into the microphone, or out of the speakers by another program, from now on.
  virtual void speak(double hertz, double seconds) = 0;
  virtual void playElsewhere(double hertz, double seconds) = 0;
  /// Another output becomes the default one.
  virtual void switchOutput() = 0;
  /// As the server itself says.
  virtual bool outputIsMuted() = 0;
  virtual void unplugMicrophone() = 0;
  virtual void suspendMicrophone() = 0;
  virtual void stopServer() = 0;
  virtual void startServer() = 0;
  /// Lets time pass until it holds; false after 20 s.
  virtual bool waitUntil(const std::function<bool()>& done) = 0;
};

std::unique_ptr<AudioWorld> makeRealAudioWorld();
std::unique_ptr<AudioWorld> makeSimulatedAudioWorld();

std::vector<float> tone(double hertz, double seconds, int sampleRate);
/// The amplitude at one frequency.
double amplitude(const std::vector<float>& samples, double hertz, int sampleRate);

/// What a capture delivered. Thread-safe.
class Heard {
 public:
  CaptureOptions options(AudioSource source = AudioSource::microphone, int framesPerBlock = 4096);
  std::vector<int> blocks() const;
  /// The last `seconds`, first channel.
  std::vector<float> last(double seconds) const;
  double seconds() const;
  bool began() const;
  std::optional<AudioStop> stopped() const;
  int sampleRate() const;

 private:
  struct State {
    std::mutex mutex;
    std::vector<int> blocks;
    std::vector<float> samples;
    int sampleRate = 0;
    bool began = false;
    std::optional<AudioStop> stopped;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace kestrin::test
