#include "dictation/audio_recorder.h"

#include <cmath>
#include <gtest/gtest.h>

#include "dictation/pcm_collector.h"
#include "platform/audio/wav.h"
#include "platform/dispatch/simulation.h"
#include "platform/simulated/simulated_audio.h"
#include "platform/simulated/simulated_files.h"
#include "platform/simulated/simulated_settings.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

struct RecorderWorld {
  explicit RecorderWorld(uint64_t seed = 1) : dispatch(Simulation::make(seed)) {
    logger.setSink([this](std::string_view line) { printed += std::string(line) + "\n"; });
  }
  AudioRecorder& recorder() {
    if (!recorder_) {
      recorder_ = std::make_unique<AudioRecorder>(*dispatch, audio, files, settings, logger);
      dispatch->runReady();
    }
    return *recorder_;
  }
  Status start(std::function<void(float)> onLevel = {}) {
    std::optional<Status> outcome;
    recorder().startRecording(std::move(onLevel), [&](const Status& status) { outcome = status; });
    EXPECT_TRUE(dispatch->runUntil([&] { return outcome.has_value(); }, 3s));
    return outcome.value_or(fail("test", 1, "no outcome"));
  }
  Bytes record(Duration length) {
    EXPECT_TRUE(start());
    dispatch->runFor(length);
    return recorder().stopRecordingWithPCM().pcmData;
  }
  int count(const std::string& line) const {
    int found = 0;
    for (size_t at = 0; (at = printed.find(line, at)) != std::string::npos; ++at) ++found;
    return found;
  }

  std::unique_ptr<Simulation> dispatch;
  NotificationCenter notifications;
  std::string printed;
  Logger logger{*dispatch, notifications};
  SimulatedAudio audio{*dispatch};
  SimulatedFiles files{dispatch->clock()};
  SimulatedSettings settings;

 private:
  std::unique_ptr<AudioRecorder> recorder_;
};

int sampleAt(const Bytes& pcm, size_t index) {
  return int16_t(uint8_t(pcm.at(2 * index)) | uint8_t(pcm.at(2 * index + 1)) << 8);
}

std::vector<float> level(float value, double seconds, int rate = 48000) {
  return std::vector<float>(size_t(seconds * rate), value);
}

TEST(PickSamples, TakesEveryNthSampleOfTheFirstChannel) {
  std::vector<float> block(4096);
  for (size_t i = 0; i < block.size(); ++i) block[i] = float(i) / 8192;
  const Bytes third = pickSamples(block.data(), 4096, 1, 48000);
  ASSERT_EQ(third.size(), 1365U * 2);
  for (size_t i = 0; i < 1365; ++i)
    ASSERT_EQ(sampleAt(third, i), int(block[3 * i] * 32767.0F)) << i;
  const Bytes odd = pickSamples(block.data(), 4096, 1, 44100);
  ASSERT_EQ(odd.size(), 1486U * 2);
  EXPECT_EQ(sampleAt(odd, 1485), int(block[size_t(2.75625 * 1485)] * 32767.0F));
  const float stereo[] = {1.5F, 0, -1.5F, 0, NAN, 0, 0.5F, 1};
  const Bytes clamped = pickSamples(stereo, 4, 2, 16000);
  EXPECT_EQ(sampleAt(clamped, 0), 32767);
  EXPECT_EQ(sampleAt(clamped, 1), -32767);
  EXPECT_EQ(sampleAt(clamped, 2), 0);
  EXPECT_EQ(sampleAt(clamped, 3), 16383);
  EXPECT_TRUE(pickSamples(stereo, 2, 2, 48000).empty()) << "less than one sample";
}

TEST(AudioRecorder, DeliversAllThatWasSaidWhileTheKeyWasDown) {
  RecorderWorld world;
  world.audio.removeMicrophone("mic");
  world.audio.addMicrophone("usb", "USB Microphone", {16000, 2});
  EXPECT_TRUE(world.recorder().isEngineReady());
  world.audio.speak("usb", level(0.5F, 0.75, 16000), 16000);
  const Bytes pcm = world.record(1s);
  ASSERT_EQ(pcm.size(), 32000U) << "the last, partial block included";
  EXPECT_EQ(sampleAt(pcm, 0), 16383);
  EXPECT_EQ(sampleAt(pcm, 11999), 16383);
  EXPECT_EQ(sampleAt(pcm, 12000), 0);
  EXPECT_EQ(world.recorder().audioDurationMs(), 1000);
  EXPECT_EQ(world.recorder().firstSoundAfter(), Duration(15ms));
  EXPECT_EQ(world.count("🎙️ Recording started (PCM-only mode: true)\n"
                        "🎙️ Input format: 16000 Hz, 2 channels\n"
                        "🎤 PCM data size: 32000 bytes (1.0s at 16kHz)"),
            1);
  EXPECT_EQ(world.audio.openCaptures(), 0);
  EXPECT_TRUE(world.recorder().stopRecordingWithPCM().pcmData.empty());
  EXPECT_EQ(world.count("⚠️ stopRecordingWithPCM called but not recording"), 1);
}

TEST(AudioRecorder, ShowsASmoothedLevelThatFollowsTheSensitivity) {
  for (const auto& [sensitivity, expected] :
       {std::pair{-1, 0.3F * 0.25F}, {100, 0.3F * 0.4F}, {0, 0.3F * 0.1F}}) {
    RecorderWorld world;
    if (sensitivity >= 0) world.settings.set("pref_inputSensitivity", Json(sensitivity));
    AudioRecorder::applyPreferences(world.settings);
    world.audio.speak("mic", level(-0.05F, 9), 48000);
    std::vector<float> levels;
    ASSERT_TRUE(world.start([&](float value) { levels.push_back(value); }));
    world.recorder().startRecording({},
                                    [](const Status&) { FAIL() << "a second start is ignored"; });
    world.dispatch->runFor(4s);
    ASSERT_GT(levels.size(), 40U);
    EXPECT_NEAR(levels[0], expected, 1e-4);
    EXPECT_NEAR(levels.back(), expected / 0.3F, 1e-3);
    EXPECT_EQ(world.recorder().currentLevel(), levels.back());
  }
}

TEST(AudioRecorder, TwoEmptyRecordingsInARowResetTheEngineOnce) {
  RecorderWorld world;
  const auto resets = [&] {
    world.dispatch->runReady();
    return world.count("✅ Audio engine reset complete");
  };
  world.record(0s);
  world.record(100ms);
  world.record(0s);
  EXPECT_EQ(resets(), 0);
  world.record(0s);
  EXPECT_EQ(resets(), 1);
  EXPECT_FALSE(world.recorder().isEngineReady());
  EXPECT_EQ(world.count("⚠️ Empty PCM data - failure count: 2"), 1);
  EXPECT_FALSE(world.record(100ms).empty());
  EXPECT_EQ(world.recorder().consecutiveFailures(), 0);
}

TEST(AudioRecorder, AResetInTheBackgroundSparesTheNextRecording) {
  for (uint64_t seed = 1; seed <= 200; ++seed) {
    RecorderWorld world(seed);
    world.record(0s);
    world.dispatch->mainQueue()->post([&] { world.recorder().resetEngineInBackground(); });
    world.dispatch->mainQueue()->post([&] {
      world.recorder().startRecording({}, [](const Status& status) { EXPECT_TRUE(status); });
    });
    world.dispatch->runFor(500ms);
    ASSERT_EQ(world.recorder().stopRecordingWithPCM().pcmData.size() / 3200, 4U) << "seed " << seed;
  }
}

TEST(AudioRecorder, SaysWhyItCannotStartAndStartsWhenItCan) {
  RecorderWorld world;
  const auto why = [&] {
    const auto started = world.start();
    return started ? std::string() : started.error().description;
  };
  world.audio.setServerRunning(false);
  EXPECT_EQ(why(), "No sound server is reachable.");
  world.audio.setServerRunning(true);
  world.audio.refuseCaptures(Error{"Audio", audioRefused, "Busy"});
  EXPECT_EQ(why(), "Busy");
  EXPECT_FALSE(world.recorder().isRecording());
  world.audio.refuseCaptures(std::nullopt);
  world.audio.removeMicrophone("mic");
  EXPECT_EQ(why(), "Invalid audio format - microphone may be in use. Please try again.");
  EXPECT_FALSE(world.recorder().isEngineReady());
  world.audio.addMicrophone("usb", "USB", {48000, 1});
  EXPECT_FALSE(world.record(200ms).empty());
}

TEST(AudioRecorder, AMicrophoneTakenAwayLeavesWhatWasSaid) {
  RecorderWorld world;
  std::vector<std::string> lines;
  world.recorder().onInterrupted = [&](const std::string& line) { lines.push_back(line); };
  ASSERT_TRUE(world.start());
  world.dispatch->runFor(500ms);
  world.audio.removeMicrophone("mic");
  world.dispatch->runFor(500ms);
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "⚠️ Microphone disconnected - what you said until then is kept"}));
  EXPECT_TRUE(world.recorder().isRecording()) << "the key is still down";
  EXPECT_NEAR(double(world.recorder().stopRecordingWithPCM().pcmData.size()), 16000, 1000);

  world.audio.addMicrophone("mic", "Microphone", {48000, 1});
  world.audio.setSuspended("mic", true);
  EXPECT_TRUE(world.record(3s).empty());
  EXPECT_EQ(lines.back(), "⚠️ The microphone delivers no sound");
}

TEST(AudioRecorder, UsesTheMicrophoneThatTheUserChose) {
  RecorderWorld world;
  world.audio.addMicrophone("usb", "USB Microphone", {16000, 1});
  world.audio.speak("usb", level(0.5F, 9, 16000), 16000);
  world.settings.set("pref_inputDevice", Json("USB Microphone"));
  EXPECT_EQ(sampleAt(world.record(100ms), 100), 16383);
  world.audio.removeMicrophone("usb");
  EXPECT_EQ(sampleAt(world.record(100ms), 100), 0) << "gone: the default one";
  EXPECT_GE(world.count("⚠️ Input device \"USB Microphone\" not found - using the default"), 1);
}

TEST(AudioRecorder, PreRollHasTheWordThatWasSaidBeforeThePress) {
  for (uint64_t seed = 1; seed <= 20; ++seed) {
    RecorderWorld world(seed);
    int changes = 0;
    world.recorder().onPreRollChanged = [&] { ++changes; };
    EXPECT_FALSE(world.recorder().isPreRollActive());
    EXPECT_EQ(world.audio.openCaptures(), 0) << "never without being asked";
    world.settings.set("pref_preRoll", Json(true));
    world.dispatch->runFor(5s);
    EXPECT_TRUE(world.recorder().isPreRollActive());
    for (int round = 0; round < 2; ++round) {
      world.audio.speak("mic", level(0.5F, 0.4), 48000);
      world.dispatch->runFor(400ms);
      const Bytes pcm = world.record(1s);
      int loud = 0;
      for (size_t i = 0; i < pcm.size() / 2; ++i) loud += sampleAt(pcm, i) == 16383;
      EXPECT_NEAR(loud, 6400, 10) << "the whole word";
      EXPECT_GE(pcm.size(), 32000U + 14000U);
      EXPECT_LE(pcm.size(), 32000U + 14400U + 2 * 1366U) << "not more than 0.45 s and a block";
      world.dispatch->runFor(1s);
      EXPECT_TRUE(world.recorder().isPreRollActive());
    }
    world.audio.removeMicrophone("mic");
    world.dispatch->runFor(1s);
    EXPECT_FALSE(world.recorder().isPreRollActive());
    world.audio.addMicrophone("mic", "Microphone", {48000, 1});
    world.dispatch->runFor(3s);
    EXPECT_TRUE(world.recorder().isPreRollActive()) << "back with the microphone";
    world.settings.set("pref_preRoll", Json(false));
    world.dispatch->runFor(1s);
    EXPECT_FALSE(world.recorder().isPreRollActive());
    EXPECT_EQ(world.audio.openCaptures(), 0);
    EXPECT_GE(changes, 4);
  }
}

TEST(AudioRecorder, WritesAFileOnlyWhenAskedAndDeletesIt) {
  RecorderWorld world;
  world.recorder().pcmOnlyMode = false;
  ASSERT_TRUE(world.start());
  world.dispatch->runFor(1s);
  const auto recording = world.recorder().stopRecordingWithPCM();
  ASSERT_TRUE(recording.url);
  EXPECT_EQ(wav::readPcm16(world.files.read(*recording.url).value()).value(), recording.pcmData);
  world.recorder().cleanup();
  EXPECT_FALSE(world.files.exists(*recording.url));
}

}  // namespace
}  // namespace kestrin
