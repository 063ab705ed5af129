#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/audio.h"
#include "platform/audio/wav.h"

namespace kestrin::cli {

/// A sound server that hears two recordings: one as the microphone, at its own rate, one as what
/// the computer plays. Silence follows their ends. It plays nothing.
class RecordedAudio final : public Audio {
 public:
  RecordedAudio(std::vector<float> microphone, int microphoneRate, std::vector<float> system);

  /// Hands the open captures the next stretch of sound, on the calling thread.
  void deliver(Duration time);
  /// The longer of the two.
  Duration length() const;

  Status available() override { return {}; }
  Result<std::vector<AudioDevice>> inputDevices() override {
    return std::vector<AudioDevice>{{"recording", "Recording", true}};
  }
  Result<std::vector<AudioDevice>> outputDevices() override { return std::vector<AudioDevice>{}; }
  Status setDefaultInput(const std::string&) override { return refuse(); }
  Status setDefaultOutput(const std::string&) override { return refuse(); }
  AudioFormat inputFormat(const std::string&) override { return {tracks_[0].rate, 1}; }
  Result<std::unique_ptr<AudioCapture>> capture(CaptureOptions options) override;
  Result<std::unique_ptr<AudioPlayback>> play(const Bytes&, float,
                                              std::function<void(bool)>) override {
    return fail(refuse().error());
  }
  Result<int> outputVolume() override { return fail(refuse().error()); }
  Status setOutputVolume(int) override { return refuse(); }
  Status setOutputMuted(bool) override { return refuse(); }

 private:
  class Capture;
  struct Track {
    std::vector<float> samples;
    int rate = 0;
    size_t at = 0;
    std::weak_ptr<struct CaptureState> capture;
  };
  static Status refuse() { return fail("Audio", audioRefused, "A recording cannot do this"); }

  Track tracks_[2];  ///< microphone, system
  std::mutex mutex_;
};

}  // namespace kestrin::cli
