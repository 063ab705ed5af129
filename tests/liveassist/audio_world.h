#pragma once

#include <algorithm>
#include <gtest/gtest.h>

#include "liveassist/live_assist_audio_engine.h"
#include "platform/dispatch/simulation.h"
#include "platform/simulated/simulated_audio.h"

namespace kestrin::test {

using namespace std::chrono_literals;

constexpr auto microphone = LAAudioChannel::microphone;
constexpr auto systemAudio = LAAudioChannel::system;

inline std::vector<float> level(float value, double seconds, int rate) {
  return std::vector<float>(size_t(seconds * rate), value);
}

/// An engine at work on a simulated sound server. `answerAfter`: how long the recogniser takes for
/// a segment; nothing: it never answers.
struct AudioWorld {
  struct Segment {
    LAAudioChannel channel;
    Bytes pcm;
    Duration at;

    double seconds() const { return double(pcm.size()) / segmentBytesPerSecond; }
    /// The loudest sample, of 32767.
    int peak() const {
      int loudest = 0;
      for (size_t i = 0; i + 1 < pcm.size(); i += 2)
        loudest = std::max(loudest, std::abs(int(int16_t(uint8_t(pcm[i]) | pcm[i + 1] << 8))));
      return loudest;
    }
  };
  struct Owner final : LAAudioEngineDelegate {
    explicit Owner(AudioWorld& w) : world(w) {}
    void didSegmentAudio(LiveAssistAudioEngine&, Bytes pcm, LAAudioChannel channel) override {
      EXPECT_TRUE(world.simulation.mainQueue()->isCurrent());
      world.segments.push_back({channel, std::move(pcm), world.simulation.elapsed()});
      if (!world.answerAfter) return;
      // An answer may come when the engine is gone.
      world.simulation.mainQueue()->postAfter(*world.answerAfter,
                                              [&engine = world.engine_, channel] {
                                                if (engine)
                                                  engine->markTranscriptionComplete(channel);
                                              });
    }
    void didStartCapture(LiveAssistAudioEngine&, LAAudioChannel channel) override {
      world.starts += channel == microphone ? "m" : "s";
    }
    AudioWorld& world;
  };

  explicit AudioWorld(Simulation& s, int rate = 16000) : simulation(s) {
    audio.removeMicrophone("mic");
    audio.addMicrophone("mic", "Microphone", {rate, 1});
    audio.setFragment(60ms, 15ms);
    engine().delegate = owner;
  }
  ~AudioWorld() {
    onMain([this] { engine_.reset(); });
    simulation.runFor(5s);
  }

  LiveAssistAudioEngine& engine() { return *engine_; }
  void onMain(std::function<void()> job) {
    bool done = false;
    simulation.mainQueue()->post([&] {
      job();
      done = true;
    });
    ASSERT_TRUE(simulation.runUntil([&] { return done; }, 10s)) << simulation.dump();
  }
  /// What the completion said: "" for a success.
  std::string start() {
    std::string said = "nothing";
    onMain([&] {
      engine().startCapture([&](const Status& status) {
        said = status ? "" : status.error().domain + ": " + status.error().description;
      });
    });
    simulation.runUntil([&] { return said != "nothing"; }, 10s);
    return said;
  }
  void stop() {
    onMain([this] { engine().stopCapture(); });
    simulation.runReady();
  }
  std::vector<Segment> of(LAAudioChannel channel) const {
    std::vector<Segment> chosen;
    for (const Segment& each : segments)
      if (each.channel == channel) chosen.push_back(each);
    return chosen;
  }
  int logged(const std::string& part) const {
    const auto entries = logger.getEntries();
    return int(std::count_if(entries.begin(), entries.end(), [&](const LogEntry& entry) {
      return entry.message.find(part) != std::string::npos;
    }));
  }

  Simulation& simulation;
  NotificationCenter notifications;
  Logger logger{simulation, notifications};
  SimulatedAudio audio{simulation};
  std::optional<Duration> answerAfter = 200ms;
  std::vector<Segment> segments;
  std::string starts;
  std::shared_ptr<Owner> owner = std::make_shared<Owner>(*this);

 private:
  std::unique_ptr<LiveAssistAudioEngine> engine_ =
      std::make_unique<LiveAssistAudioEngine>(simulation, audio, logger);
};

}  // namespace kestrin::test
