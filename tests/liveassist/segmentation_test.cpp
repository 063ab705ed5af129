#include <cmath>

#include "audio_world.h"
#include "liveassist/audio_segmenter.h"
#include "liveassist/mic_converter.h"
#include "platform/audio/wav.h"
#include "support/seeds.h"

namespace kestrin::test {
namespace {

/// The segmenter alone, fed byte by byte.
struct CutWorld {
  void feed(LAAudioChannel channel, size_t bytes) {
    // A new source for each piece: the one before is emptied first.
    segmenter->setSource(channel,
                         [pcm = Bytes(bytes, 'x')]() mutable { return std::exchange(pcm, {}); });
  }
  void hearMic(float rms, int frames) {
    for (int i = 0; i < frames; ++i) {
      mic->heard(rms, simulation->clock().steadyNow());
      mic->endSpeechIfSilent(simulation->clock().steadyNow());
    }
  }
  void hearSystem(float rms, int frames) {
    for (int i = 0; i < frames; ++i) system->heard(rms);
  }
  /// Sizes of what a pass cuts now: microphone, system; -1: nothing.
  std::pair<int, int> pass() {
    cut = {-1, -1};
    segmenter->process();
    segmenter->drain();
    return cut;
  }

  std::unique_ptr<Simulation> simulation = Simulation::make(1);
  NotificationCenter notifications;
  Logger logger{*simulation, notifications};
  LAVADConfig config;
  std::shared_ptr<MicrophoneDetector> mic = std::make_shared<MicrophoneDetector>(config);
  std::shared_ptr<SystemDetector> system = std::make_shared<SystemDetector>(config);
  std::pair<int, int> cut;
  std::shared_ptr<AudioSegmenter> segmenter = std::make_shared<AudioSegmenter>(
      *simulation, logger, config, mic, system, [this](LAAudioChannel channel, const Bytes& pcm) {
        (channel == microphone ? cut.first : cut.second) = int(pcm.size());
      });
};

using Cut = std::pair<int, int>;

TEST(Segmentation, CutsBySizeAndByWhatIsHeard) {
  struct Case {
    const char* name;
    std::function<void(CutWorld&)> arrange;
    size_t bytes;
    Cut expected;
  };
  const auto silence = [](CutWorld& world) {
    world.hearMic(0.01F, 1);
    world.hearMic(0, 41);
    world.hearSystem(0.01F, 1);
    world.hearSystem(0, 19);
  };
  const auto shortSilence = [](CutWorld& world) {
    world.hearMic(0.01F, 1);
    world.hearMic(0.002F, 40);
    world.hearSystem(0.01F, 1);
    world.hearSystem(0, 18);
  };
  const auto longSpeech = [](CutWorld& world) {
    world.hearMic(0.01F, 1);
    world.hearSystem(0.01F, 1);
    world.simulation->runFor(4s);
  };
  const auto pauseAndNewSpeech = [&](CutWorld& world) {
    silence(world);
    world.hearMic(0.01F, 1);
    world.hearSystem(0.01F, 1);
    world.simulation->runFor(500ms);
  };
  const auto longSinceSegment = [&](CutWorld& world) {
    world.feed(microphone, 256'000);
    world.feed(systemAudio, 256'000);
    EXPECT_EQ(world.pass(), (Cut{256'000, 256'000}));
    for (const auto channel : {microphone, systemAudio}) world.segmenter->release(channel);
    world.simulation->runFor(5s - 1ms);
    world.hearMic(0.01F, 1);
    world.hearSystem(0.01F, 1);
  };
  for (const Case& each : {
           Case{"silence, too little", silence, 15'999, {-1, -1}},
           Case{"silence", silence, 16'000, {16'000, 16'000}},
           Case{"one quiet frame short", shortSilence, 127'999, {-1, -1}},
           Case{"long speech, too little", longSpeech, 127'999, {-1, -1}},
           Case{"long speech", longSpeech, 128'000, {128'000, -1}},
           Case{"a pause before new speech", pauseAndNewSpeech, 16'000, {16'000, -1}},
           Case{"the last segment is old", longSinceSegment, 128'000, {-1, 128'000}},
           Case{"nothing heard", [](CutWorld&) {}, 255'999, {-1, -1}},
           Case{"the maximum", [](CutWorld&) {}, 256'000, {256'000, 256'000}},
       }) {
    CutWorld world;
    each.arrange(world);
    world.feed(microphone, each.bytes);
    world.feed(systemAudio, each.bytes);
    EXPECT_EQ(world.pass(), each.expected) << each.name;
    EXPECT_EQ(world.pass(), (Cut{-1, -1})) << each.name << ": in flight";
  }
}

TEST(Segmentation, APauseCountsForOneSegment) {
  CutWorld world;
  world.hearMic(0.01F, 1);
  world.hearMic(0, 41);
  world.hearMic(0.01F, 1);
  world.simulation->runFor(500ms);
  for (const Cut& expected : {Cut{16'000, -1}, Cut{-1, -1}}) {
    world.feed(microphone, 16'000);
    EXPECT_EQ(world.pass(), expected);
    world.segmenter->release(microphone);
  }
}

TEST(Segmentation, TheSystemThresholdFollowsTheLevel) {
  SystemDetector detector{LAVADConfig{}};
  const auto hear = [&](float rms, int frames = 1) {
    for (int i = 0; i < frames; ++i) detector.heard(rms);
    return detector.state();
  };
  EXPECT_FALSE(hear(0.004F, 50).systemSpeechActive) << "never below 0.005";
  EXPECT_TRUE(hear(0.006F).systemSpeechActive);
  const auto steady = hear(0.1F, 200);
  EXPECT_NEAR(steady.systemAdaptiveThreshold, 0.04F, 1e-5F);
  EXPECT_TRUE(steady.systemSpeechActive) << "a steady level is no silence";
  EXPECT_EQ(hear(0.01F, 18).systemSilenceFrameCount, 18);
  EXPECT_TRUE(detector.state().systemSpeechActive);
  EXPECT_FALSE(hear(0.01F).systemSpeechActive);
  const float wrong[] = {NAN, 1, INFINITY};
  EXPECT_EQ(rootMeanSquare(wrong, 3, 1), 0) << "no number, no lasting harm";
  const float stereo[] = {0.5F, 9, -0.5F, 9};
  EXPECT_EQ(rootMeanSquare(stereo, 2, 2), 0.5F) << "the first channel";
}

TEST(MicConverter, HasNoSeamBetweenBlocksAtAnyRate) {
  for (const int rate : {8000, 16000, 44100, 48000, 192000}) {
    MicConverter converter({rate, 2});
    Bytes pcm;
    for (int block = 0; block < 20; ++block) {
      std::vector<float> samples;
      for (int i = 0; i < 4096; ++i) {
        const double t = double(block * 4096 + i) / rate;
        const auto tone = float(0.5 * std::sin(2 * M_PI * 200 * t));
        samples.insert(samples.end(), {0.25F + tone, 0.25F - tone / 2});
      }
      pcm += converter.convert(samples);
    }
    ASSERT_EQ(pcm.size(), size_t(4096.0 * 16000 / rate) * 20 * 2) << rate;
    const auto heard = wav::fromPcm16(pcm);
    float least = 1, most = -1, step = 0;
    for (size_t i = heard.size() / 2; i < heard.size(); ++i) {
      least = std::min(least, heard[i]);
      most = std::max(most, heard[i]);
      step = std::max(step, std::abs(heard[i] - heard[i - 1]));
    }
    EXPECT_NEAR(most, 0.375, 0.004) << rate << ": the mean of the channels";
    EXPECT_NEAR(least, 0.125, 0.004) << rate;
    // At most two steps of the tone where a fraction of a sample is left out.
    EXPECT_LT(step, 2 * 0.125 * 2 * M_PI * 200 / 16000 + 0.001) << rate;
  }
}

TEST(LiveAssistAudio, SpeechAndPausesBecomeSegmentsOnBothChannelsAtOnce) {
  forEachSeed(10, [](Simulation& simulation) {
    AudioWorld world(simulation, 48000);
    ASSERT_EQ(world.start(), "");
    EXPECT_EQ(world.starts, "ms");
    world.audio.speak("mic", level(0.5F, 6, 48000), 48000);
    world.audio.playSystemSound(level(0.25F, 3, 16000), 16000);
    simulation.runFor(10s);
    const auto mine = world.of(microphone);
    const auto theirs = world.of(systemAudio);
    // The talker: at 4 s of sound, then when 41 frames (3.5 s) were quiet.
    ASSERT_GE(mine.size(), 2U);
    EXPECT_NEAR(mine[0].seconds(), 4.1, 0.25);
    EXPECT_NEAR(mine[0].at / 1ms, 4200, 300);
    EXPECT_NEAR(mine[0].peak(), 16384, 1600) << "the filter rings where it begins";
    EXPECT_NEAR(mine[1].at / 1ms, 8200, 500) << "4 s more, silence included";
    // The other side: 19 frames of 64 ms after its last word.
    ASSERT_GE(theirs.size(), 2U);
    EXPECT_NEAR(theirs[0].at / 1ms, 3000 + 19 * 64, 400);
    EXPECT_EQ(theirs[0].peak(), 8191);
    EXPECT_NEAR(theirs[1].seconds(), 0.7, 0.25) << "silence is not held back";
    EXPECT_EQ(theirs[1].peak(), 0);
    for (const auto channel : {microphone, systemAudio}) {
      double seconds = 0;
      for (const auto& each : world.of(channel)) seconds += each.seconds();
      const double last = double(world.of(channel).back().at / 1ms) / 1000;
      EXPECT_NEAR(seconds, last, 0.25) << "nothing is lost between segments";
    }
    EXPECT_EQ(world.logged("🎤 Speech detected (RMS=0.5000)"), 1);
    EXPECT_EQ(world.logged("🎤 Starting mic capture: 48000Hz, 1ch"), 1);
    EXPECT_EQ(world.logged("📤 Sending mic segment: "), int(mine.size()));
  });
}

TEST(LiveAssistAudio, OneSegmentOfAChannelIsOnItsWayAtATime) {
  forEachSeed(50, [](Simulation& simulation) {
    AudioWorld world(simulation);
    world.answerAfter.reset();
    ASSERT_EQ(world.start(), "");
    world.audio.speak("mic", level(0.5F, 60, 16000), 16000);
    world.audio.playSystemSound(level(0.5F, 60, 16000), 16000);
    simulation.runFor(19s);
    EXPECT_EQ(world.of(microphone).size(), 1U);
    EXPECT_EQ(world.of(systemAudio).size(), 1U);
    EXPECT_EQ(world.logged("⚠️ Mic transcription timed out — force-unlocking"), 0);
    simulation.runFor(1s);
    EXPECT_EQ(world.logged("⚠️ Mic transcription timed out — force-unlocking"), 1);
    ASSERT_EQ(world.of(microphone).size(), 2U);
    EXPECT_NEAR(world.of(microphone)[1].seconds(), 15.2, 0.4) << "all that came meanwhile";
    simulation.runFor(5s);
    EXPECT_EQ(world.of(systemAudio).size(), 1U) << "the other channel waits for its answer";
    world.onMain([&] { world.engine().markTranscriptionComplete(systemAudio); });
    simulation.runFor(400ms);
    EXPECT_EQ(world.of(systemAudio).size(), 2U);
    world.onMain([&] { world.engine().resetState(); });
    simulation.runFor(5s);
    EXPECT_EQ(world.of(microphone).size(), 3U) << "a new session opens the guards";
  });
}

TEST(LiveAssistAudio, StoppingGivesWhatIsDueAndDropsTheTail) {
  forEachSeed(50, [](Simulation& simulation) {
    AudioWorld world(simulation);
    ASSERT_EQ(world.start(), "");
    ASSERT_EQ(world.start(), "") << "a second start changes nothing";
    EXPECT_EQ(world.starts, "ms");
    simulation.runFor(300ms);
    world.stop();
    EXPECT_FALSE(world.engine().isCapturing());
    EXPECT_EQ(world.audio.openCaptures(), 0);
    EXPECT_TRUE(world.segments.empty()) << "9600 bytes";
    ASSERT_EQ(world.start(), "");
    world.answerAfter.reset();
    simulation.runFor(1250ms);
    world.audio.playSystemSound(level(0.5F, 1, 16000), 16000);
    simulation.runFor(2500ms);
    EXPECT_EQ(world.of(systemAudio).size(), 1U) << "the silence before";
    world.onMain([&] {
      world.engine().markTranscriptionComplete(systemAudio);
      world.engine().stopCapture();
    });
    simulation.runFor(5s);
    ASSERT_EQ(world.of(systemAudio).size(), 2U);
    EXPECT_EQ(world.of(systemAudio).back().peak(), 16383);
  });
}

}  // namespace
}  // namespace kestrin::test
