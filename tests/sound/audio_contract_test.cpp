#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>

#include "platform/audio/wav.h"
#include "sound/audio_world.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

Bytes beep(double hertz, double seconds) {
  return wav::write(wav::toPcm16(tone(hertz, seconds, 48000)), 48000);
}

/// What every backend of the audio port promises.
class AudioContract : public testing::TestWithParam<bool> {
 protected:
  std::unique_ptr<AudioCapture> open(CaptureOptions options) {
    auto capture = audio().capture(std::move(options));
    EXPECT_TRUE(capture) << capture.error().description;
    return capture ? std::move(*capture) : nullptr;
  }
  Audio& audio() { return world->audio(); }
  /// Nothing until it is loud enough in the last 0.2 s.
  bool hears(const Heard& heard, double hertz) {
    return world->waitUntil(
        [&] { return amplitude(heard.last(0.2), hertz, heard.sampleRate()) > 0.2; });
  }

  std::unique_ptr<AudioWorld> world = GetParam() ? makeRealAudioWorld() : makeSimulatedAudioWorld();
};

TEST_P(AudioContract, ListsAndChoosesDevices) {
  const auto inputs = audio().inputDevices().value();
  ASSERT_EQ(inputs.size(), 1U) << "monitors are no microphones";
  EXPECT_EQ(inputs[0].id, "mic");
  EXPECT_TRUE(inputs[0].isDefault);
  EXPECT_FALSE(inputs[0].name.empty());
  const auto outputs = audio().outputDevices().value();
  ASSERT_GE(outputs.size(), 1U);
  EXPECT_TRUE(std::any_of(outputs.begin(), outputs.end(),
                          [](const auto& d) { return d.id == "speakers" && d.isDefault; }));
  EXPECT_TRUE(audio().setDefaultInput("mic"));
  EXPECT_TRUE(audio().setDefaultOutput("speakers"));
  EXPECT_FALSE(audio().setDefaultInput("no such thing"));
  EXPECT_FALSE(audio().setDefaultOutput("no such thing"));
  EXPECT_GT(audio().inputFormat("").sampleRate, 0);
  EXPECT_EQ(audio().inputFormat("mic"), audio().inputFormat(""));
  EXPECT_EQ(audio().inputFormat("no such thing").sampleRate, 0);
  CaptureOptions nowhere;
  nowhere.deviceId = "no such thing";
  EXPECT_EQ(audio().capture(nowhere).error().code, noAudioDevice);
}

TEST_P(AudioContract, BlocksAreExactAndTheRestComesAtTheStop) {
  Heard heard, tail;
  auto capture = open(heard.options());
  auto brief = open(tail.options(AudioSource::microphone, 1'000'000));
  EXPECT_EQ(capture->format(), audio().inputFormat(""));
  ASSERT_TRUE(world->waitUntil([&] { return heard.blocks().size() >= 3 && tail.began(); }));
  brief->stop();
  ASSERT_EQ(tail.blocks().size(), 1U);
  EXPECT_GT(tail.blocks()[0], 0);
  EXPECT_LT(tail.blocks()[0], 1'000'000);
  capture->stop();
  auto blocks = heard.blocks();
  EXPECT_LE(blocks.back(), 4096);
  blocks.pop_back();
  for (const int frames : blocks) EXPECT_EQ(frames, 4096);
  capture.reset();
  EXPECT_FALSE(heard.stopped()) << "a stop of one's own is not told back";
}

TEST_P(AudioContract, MicrophoneAndSystemAudioStayApart) {
  Heard mic, system;
  auto microphone = open(mic.options());
  auto speakers = open(system.options(AudioSource::systemAudio, 320));
  EXPECT_EQ(speakers->format(), (AudioFormat{16000, 1}));
  world->speak(440, 10);
  world->playElsewhere(1000, 10);
  EXPECT_TRUE(hears(mic, 440));
  EXPECT_TRUE(hears(system, 1000));
  EXPECT_LT(amplitude(mic.last(0.2), 1000, mic.sampleRate()), 0.01);
  EXPECT_LT(amplitude(system.last(0.2), 440, 16000), 0.01);
}

TEST_P(AudioContract, SystemAudioFollowsTheDefaultOutput) {
  Heard system;
  auto speakers = open(system.options(AudioSource::systemAudio, 320));
  ASSERT_TRUE(world->waitUntil([&] { return system.began(); }));
  world->switchOutput();
  world->playElsewhere(1000, 10);
  EXPECT_TRUE(hears(system, 1000));
  EXPECT_FALSE(system.stopped());
}

TEST_P(AudioContract, OurOwnVoiceIsNotPartOfTheSystemAudio) {
  Heard system;
  auto speakers = open(system.options(AudioSource::systemAudio, 320));
  ASSERT_TRUE(world->waitUntil([&] { return system.began(); }));
  std::atomic<bool> ended = false;
  auto playback = audio().play(beep(1000, 0.6), 1, [&](bool) { ended = true; }).value();
  ASSERT_TRUE(world->waitUntil([&] { return ended.load(); }));
  const double until = system.seconds();
  ASSERT_TRUE(world->waitUntil([&] { return system.seconds() > until + 0.3; }));
  EXPECT_LT(amplitude(system.last(1.0), 1000, 16000), 0.01);
  world->playElsewhere(500, 10);
  EXPECT_TRUE(hears(system, 500)) << "others are heard again afterwards";
}

TEST_P(AudioContract, AnUnpluggedMicrophoneEndsTheCaptureAndKeepsWhatWasHeard) {
  Heard heard;
  auto capture = open(heard.options(AudioSource::microphone, 1'000'000));
  ASSERT_TRUE(world->waitUntil([&] { return heard.began(); }));
  world->unplugMicrophone();
  ASSERT_TRUE(world->waitUntil([&] { return heard.stopped().has_value(); }));
  EXPECT_EQ(heard.stopped(), AudioStop::deviceGone);
  EXPECT_EQ(heard.blocks().size(), 1U) << "the block that had begun";
  capture->stop();
  EXPECT_EQ(heard.blocks().size(), 1U);
  EXPECT_EQ(audio().inputFormat("").sampleRate, 0) << "the system's sound is no substitute";
  EXPECT_EQ(audio().capture({}).error().code, noAudioDevice);
}

TEST_P(AudioContract, ComesBackWithTheServer) {
  Heard before, after;
  std::atomic<int> ended = -1;
  auto capture = open(before.options());
  auto playback = audio().play(beep(440, 15), 1, [&](bool whole) { ended = whole; }).value();
  ASSERT_TRUE(world->waitUntil([&] { return before.blocks().size() >= 2; }));
  world->stopServer();
  ASSERT_TRUE(world->waitUntil([&] { return before.stopped() && ended >= 0; }));
  EXPECT_EQ(before.stopped(), AudioStop::serverGone);
  EXPECT_EQ(ended, 0);
  EXPECT_EQ(audio().available().error().code, noSoundServer);
  EXPECT_EQ(audio().capture({}).error().code, noSoundServer);
  EXPECT_EQ(audio().inputFormat("").sampleRate, 0);
  world->startServer();
  EXPECT_TRUE(audio().available());
  auto again = open(after.options());
  EXPECT_TRUE(world->waitUntil([&] { return after.blocks().size() >= 2; }));
}

TEST_P(AudioContract, ADeviceThatGivesNothingIsReported) {
  world->suspendMicrophone();
  Heard heard;
  auto options = heard.options();
  options.firstDataDeadline = 300ms;
  auto capture = open(options);
  ASSERT_TRUE(world->waitUntil([&] { return heard.stopped().has_value(); }));
  EXPECT_EQ(heard.stopped(), AudioStop::noFirstData);
  EXPECT_TRUE(heard.blocks().empty());
}

TEST_P(AudioContract, PlaysToTheEndUnlessStopped) {
  std::atomic<int> ended = -1, stopped = -1;
  auto first = audio().play(beep(440, 0.2), 0.5F, [&](bool whole) { ended = whole; }).value();
  auto second = audio().play(beep(440, 0.3), 0.5F, [&](bool whole) { stopped = whole; }).value();
  second->setVolume(0);
  second->stop();
  ASSERT_TRUE(world->waitUntil([&] { return ended >= 0; }));
  EXPECT_EQ(ended, 1);
  ended = -1;
  auto third = audio().play(beep(440, 0.6), 1, [&](bool whole) { ended = whole; }).value();
  ASSERT_TRUE(world->waitUntil([&] { return ended >= 0; }));
  EXPECT_EQ(stopped, -1);
  EXPECT_EQ(audio().play("no sound at all", 1, nullptr).error().code, unplayableSound);
}

TEST_P(AudioContract, VolumeStaysWithinItsLimits) {
  for (const auto& [asked, got] : {std::pair{30, 30}, {95, 95}, {250, 100}, {-5, 0}, {40, 40}}) {
    EXPECT_TRUE(audio().setOutputVolume(asked));
    EXPECT_EQ(audio().outputVolume().value(), got);
  }
  world->switchOutput();
  EXPECT_TRUE(audio().setOutputMuted(true));
  EXPECT_TRUE(world->outputIsMuted());
  EXPECT_TRUE(audio().setOutputMuted(false));
  EXPECT_FALSE(world->outputIsMuted());
}

INSTANTIATE_TEST_SUITE_P(Backends, AudioContract, testing::Bool(), [](const auto& backend) {
  return backend.param ? "PulseAudio" : "Simulated";
});

}  // namespace
}  // namespace kestrin::test
