#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/simulated/simulated_audio.h"

namespace kestrin::simulated {

constexpr AudioFormat systemFormat{wav::speechSampleRate, 1};

/// Sounds laid at points in time; silence elsewhere.
class TimeLine {
 public:
  explicit TimeLine(int sampleRate) : rate_(sampleRate) {}

  void lay(SteadyTime begin, std::span<const float> samples, int sampleRate) {
    // What every capture has passed is of no use any more.
    std::erase_if(sounds_, [&](const Placed& sound) {
      return sound.begin + std::chrono::seconds(sound.samples.size() / size_t(rate_) + 10) < begin;
    });
    sounds_.push_back({begin, wav::resample(samples, sampleRate, rate_)});
  }

  /// The frames [from, to) of a capture that began at `begin`.
  std::vector<float> read(SteadyTime begin, int64_t from, int64_t to) const {
    std::vector<float> frames(size_t(to - from), 0.0F);
    for (const Placed& sound : sounds_) {
      // The sound's own index of frame 0, rounded: times are cut to nanoseconds.
      const int64_t lead = (begin - sound.begin).count();
      const int64_t zero = (lead * rate_ + (lead < 0 ? -500'000'000 : 500'000'000)) / 1'000'000'000;
      const int64_t first = std::max(from, -zero);
      const int64_t end = std::min(to, int64_t(sound.samples.size()) - zero);
      for (int64_t frame = first; frame < end; ++frame)
        frames[size_t(frame - from)] += sound.samples[size_t(frame + zero)];
    }
    return frames;
  }

 private:
  struct Placed {
    SteadyTime begin;
    std::vector<float> samples;
  };
  int rate_;
  std::vector<Placed> sounds_;
};

struct Microphone {
  AudioDevice device;
  AudioFormat format;
  bool suspended = false;
  std::shared_ptr<TimeLine> line;
};

/// What captures and playbacks share with the server; they may outlive it. The mutex is never held
/// while a client's callback or the dispatch runs.
struct SoundServer {
  /// A running capture or playback, ended by the server from the audio queue.
  struct Client {
    virtual ~Client() = default;
    virtual void serverEnds(AudioStop why) = 0;
    virtual bool uses(const std::string& microphone) const = 0;
    virtual bool isPlayback() const = 0;
  };

  SoundServer(Dispatch& d, FaultPlan* f)
      : dispatch(d), faults(f), queue(d.makeQueue("simulated.audio")) {}

  // With the mutex held:
  Status check(std::string_view site) const {
    if (faultDue(faults, site))
      return fail("Audio", audioRefused, "The sound server refused (" + std::string(site) + ").");
    if (!running) return fail("Audio", noSoundServer, "No sound server is reachable.");
    return {};
  }
  Microphone* find(const std::string& id) {
    for (Microphone& microphone : microphones)
      if (id.empty() ? microphone.device.isDefault : microphone.device.id == id) return &microphone;
    return nullptr;
  }
  /// Takes the mutex.
  std::vector<std::shared_ptr<Client>> clientsWhere(
      const std::function<bool(const Client&)>& which) {
    const std::lock_guard lock(mutex);
    std::vector<std::shared_ptr<Client>> chosen;
    for (const auto& weak : clients)
      if (auto client = weak.lock(); client && which(*client)) chosen.push_back(std::move(client));
    return chosen;
  }
  void add(const std::shared_ptr<Client>& client) {
    std::erase_if(clients, [](const auto& gone) { return gone.expired(); });
    clients.push_back(client);
  }
  /// Takes the mutex.
  void endClients(AudioStop why, const std::function<bool(const Client&)>& which) {
    for (const auto& client : clientsWhere(which))
      queue->post([client, why] { client->serverEnds(why); });
  }

  Dispatch& dispatch;
  FaultPlan* faults;
  QueueRef queue;
  std::mutex mutex;
  bool running = true;
  std::optional<Error> refusal;
  Duration openingTime{};  ///< of a capture
  Duration fragment = std::chrono::milliseconds(20);
  Duration firstData = std::chrono::milliseconds(15);
  std::vector<Microphone> microphones;
  std::vector<AudioDevice> outputs{{"speakers", "Speakers", true}};
  TimeLine systemLine{systemFormat.sampleRate};
  std::vector<std::weak_ptr<Client>> clients;
  std::vector<SimulatedAudio::Played> played;
  int playing = 0;
  int volume = 50;
  bool muted = false;
};

/// Opens what has been checked already. With the server's mutex free.
std::unique_ptr<AudioCapture> openCapture(const std::shared_ptr<SoundServer>& server,
                                          const std::string& microphone, AudioFormat format,
                                          CaptureOptions options);
std::unique_ptr<AudioPlayback> openPlayback(const std::shared_ptr<SoundServer>& server,
                                            const Bytes& bytes, const wav::Sound& sound,
                                            float volume, std::function<void(bool)> onEnd);

}  // namespace kestrin::simulated
