#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/audio.h"
#include "platform/audio/wav.h"
#include "platform/simulated/fault_plan.h"

namespace kestrin {

namespace simulated {
struct SoundServer;
}

/// A sound server in the dispatch's time. Each microphone and the speakers are a time line of
/// silence into which a test lays sounds; a capture hears what lies there from the moment it was
/// opened, in fragments on an audio queue of its own. Devices vanish, sleep or refuse on command,
/// and the server can die and come back. Starts with one microphone "mic" (48 kHz, mono) and one
/// output "speakers".
///
/// Sites of the fault plan: "audio.available", "audio.devices", "audio.setDefault",
/// "audio.inputFormat", "audio.capture", "audio.play", "audio.volume".
class SimulatedAudio final : public Audio {
 public:
  explicit SimulatedAudio(Dispatch& dispatch, FaultPlan* faults = nullptr);
  ~SimulatedAudio() override;

  // The world of the test:

  void addMicrophone(const std::string& id, const std::string& name, AudioFormat format);
  /// Unplugs it: its captures end, and another microphone becomes the default.
  void removeMicrophone(const std::string& id);
  void addOutput(const std::string& id, const std::string& name);
  /// A suspended device opens but delivers nothing.
  void setSuspended(const std::string& id, bool suspended);
  /// While set, opening a capture fails with this.
  void refuseCaptures(std::optional<Error> error);
  /// How long the server takes to open a capture; none unless told.
  void setOpeningTime(Duration time);
  /// Ends every capture and playback, and refuses everything until it is there again.
  void setServerRunning(bool running);
  /// The size of the server's fragments (20 ms unless told) and the time until the first arrives.
  void setFragment(Duration fragment, Duration firstData);

  /// Lays mono sound on a microphone's time line, from now on.
  void speak(const std::string& microphone, std::vector<float> samples, int sampleRate);
  /// As `speak`, from a WAV file's bytes.
  Status speakWav(const std::string& microphone, std::string_view wav);
  /// Lays what other programs play on the speakers' time line.
  void playSystemSound(std::vector<float> samples, int sampleRate);

  struct Played {
    Bytes wav;
    float volume = 0;
    bool ended = false;    ///< played to its end
    bool stopped = false;  ///< by the client
  };
  /// Every sound played so far.
  std::vector<Played> played() const;
  int openCaptures() const;
  bool outputMuted() const;

  // The port:

  Status available() override;
  Result<std::vector<AudioDevice>> inputDevices() override;
  Result<std::vector<AudioDevice>> outputDevices() override;
  Status setDefaultInput(const std::string& id) override;
  Status setDefaultOutput(const std::string& id) override;
  AudioFormat inputFormat(const std::string& deviceId) override;
  Result<std::unique_ptr<AudioCapture>> capture(CaptureOptions options) override;
  Result<std::unique_ptr<AudioPlayback>> play(const Bytes& wav, float volume,
                                              std::function<void(bool)> onEnd) override;
  Result<int> outputVolume() override;
  Status setOutputVolume(int percent) override;
  Status setOutputMuted(bool muted) override;

 private:
  std::shared_ptr<simulated::SoundServer> server_;
};

}  // namespace kestrin
