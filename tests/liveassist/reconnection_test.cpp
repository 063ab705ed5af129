#include "audio_world.h"
#include "support/seeds.h"

namespace kestrin::test {
namespace {

const char* const reconnected = "✅ Microphone reconnected (attempt ";

/// Whether the microphone's line carries sound of this level.
// A filter rings a little where a sound begins.
bool isHeard(AudioWorld& world, const std::string& device, int rate, float value) {
  world.segments.clear();
  world.audio.speak(device, level(value, 6, rate), rate);
  world.simulation.runFor(6s);
  const auto heard = world.of(microphone);
  return std::any_of(heard.begin(), heard.end(), [&](const AudioWorld::Segment& each) {
    return std::abs(double(each.peak()) / 32768 / double(value) - 1) < 0.15;
  });
}

TEST(LiveAssistAudio, FollowsTheMicrophoneThatIsThere) {
  forEachSeed(50, [](Simulation& simulation) {
    AudioWorld world(simulation);
    world.audio.addMicrophone("usb", "USB", {32000, 2});
    ASSERT_EQ(world.start(), "");
    EXPECT_TRUE(isHeard(world, "mic", 16000, 0.125F));
    // Another one becomes the default.
    ASSERT_TRUE(world.audio.setDefaultInput("usb"));
    simulation.runFor(5s);
    EXPECT_EQ(world.logged("⚠️ Audio config changed (another app may have taken the mic)"), 1);
    EXPECT_EQ(world.logged("🔄 Reconnecting microphone after config change..."), 1);
    EXPECT_TRUE(isHeard(world, "usb", 32000, 0.25F));
    EXPECT_EQ(world.logged("🎤 Starting mic capture: 32000Hz, 2ch"), 1);
    // Unplugged: the other one takes over half a second later.
    world.audio.removeMicrophone("usb");
    simulation.runFor(499ms);
    EXPECT_EQ(world.logged(reconnected), 1);
    simulation.runFor(2ms);
    EXPECT_EQ(world.logged(reconnected), 2);
    EXPECT_TRUE(isHeard(world, "mic", 16000, 0.5F));
    EXPECT_EQ(world.starts, "msmm");
    EXPECT_EQ(world.audio.openCaptures(), 2) << "the old ones are closed";
  });
}

TEST(LiveAssistAudio, BothChannelsComeBackWithTheSoundServer) {
  forEachSeed(50, [](Simulation& simulation) {
    AudioWorld world(simulation);
    ASSERT_EQ(world.start(), "");
    simulation.runFor(3s);
    world.audio.setServerRunning(false);
    simulation.runFor(8s);
    EXPECT_GE(world.logged("❌ Mic reconnection failed: No sound server is reachable."), 3);
    EXPECT_GE(world.logged("⚠️ No mic buffers for "), 1);
    world.audio.setServerRunning(true);
    simulation.runFor(3s + 100ms);
    EXPECT_EQ(world.logged(reconnected), 1);
    EXPECT_TRUE(world.engine().isCapturing());
    EXPECT_TRUE(isHeard(world, "mic", 16000, 0.5F));
    world.segments.clear();
    world.audio.playSystemSound(level(0.5F, 3, 16000), 16000);
    simulation.runFor(6s);
    ASSERT_FALSE(world.of(systemAudio).empty());
    EXPECT_EQ(world.starts, "msms");
    simulation.runFor(20s);
    EXPECT_EQ(world.logged(reconnected), 1) << "one success ends the attempts";
  });
}

TEST(LiveAssistAudio, AMicrophoneThatSleepsIsTriedAgainUntilItGivesSound) {
  forEachSeed(50, [](Simulation& simulation) {
    AudioWorld world(simulation);
    ASSERT_EQ(world.start(), "");
    simulation.runFor(2s);
    world.audio.setSuspended("mic", true);
    simulation.runFor(8s);
    EXPECT_EQ(world.logged("⚠️ No mic buffers for "), 1) << "5 s are allowed";
    EXPECT_EQ(world.logged("⚠️ Audio config changed"), 0);
    simulation.runFor(10s);
    EXPECT_GE(world.logged("⚠️ No mic buffers for 6.0s — reconnecting"), 1);
    world.audio.setSuspended("mic", false);
    EXPECT_TRUE(isHeard(world, "mic", 16000, 0.5F));
  });
}

TEST(LiveAssistAudio, GivesTheMicrophoneUpAfterNineteenAttempts) {
  forEachSeed(50, [](Simulation& simulation) {
    AudioWorld world(simulation);
    ASSERT_EQ(world.start(), "");
    world.audio.refuseCaptures(Error{"Audio", audioRefused, "Busy"});
    world.audio.removeMicrophone("mic");
    world.audio.addMicrophone("mic", "Microphone", {16000, 1});
    simulation.runFor(45s);
    EXPECT_EQ(world.logged("❌ Mic reconnection failed: Busy"), 19);
    EXPECT_EQ(world.logged("❌ Too many mic reconnections (20). Giving up."), 1);
    world.audio.refuseCaptures(std::nullopt);
    simulation.runFor(6s);
    EXPECT_EQ(world.logged(reconnected), 0) << "also when it would work";
    EXPECT_TRUE(world.engine().isCapturing());
    world.segments.clear();
    simulation.runFor(5s);
    EXPECT_FALSE(world.of(systemAudio).empty()) << "the other side is still heard";
    world.onMain([&] { world.engine().resetState(); });
    world.stop();
    EXPECT_EQ(world.start(), "");
    EXPECT_TRUE(isHeard(world, "mic", 16000, 0.5F));
  });
}

TEST(LiveAssistAudio, SaysWhyItCannotStart) {
  const auto simulation = Simulation::make(1);
  AudioWorld world(*simulation);
  world.audio.setServerRunning(false);
  EXPECT_EQ(world.start(), "Audio: No sound server is reachable.");
  world.audio.setServerRunning(true);
  world.audio.removeMicrophone("mic");
  EXPECT_EQ(world.start(), "LiveAssist: Invalid mic format: 0 Hz, 0 ch");
  EXPECT_EQ(world.starts, "");
  world.audio.addMicrophone("mic", "Microphone", {16000, 1});
  world.audio.refuseCaptures(Error{"Audio", audioRefused, "Busy"});
  EXPECT_EQ(world.start(), "Audio: Busy");
  simulation->runFor(20s);
  EXPECT_EQ(world.logged(reconnected) + world.logged("❌ Mic reconnection failed"), 0)
      << "nobody asked for a microphone";
  world.audio.refuseCaptures(std::nullopt);
  EXPECT_EQ(world.start(), "");
}

TEST(LiveAssistAudio, StoppingOrLeavingWhileItOpensLeavesNothingOpen) {
  forEachSeed(50, [](Simulation& simulation) {
    AudioWorld world(simulation);
    world.audio.setOpeningTime(1s);
    for (const Duration wait : {500ms, 1500ms}) {
      std::string said;
      const auto note = [&](const Status& status) { said += status ? "ok." : "no."; };
      world.onMain([&] { world.engine().startCapture(note); });
      simulation.runFor(wait);
      world.onMain([&] { world.engine().startCapture(note); });
      world.stop();
      EXPECT_EQ(said, "no.no.");
      simulation.runFor(5s);
      EXPECT_EQ(said, "no.no.");
      EXPECT_FALSE(world.engine().isCapturing());
      EXPECT_EQ(world.audio.openCaptures(), 0);
      EXPECT_TRUE(world.segments.empty());
    }
    {
      AudioWorld left(simulation);
      left.audio.setOpeningTime(1s);
      left.onMain([&] { left.engine().startCapture([](const Status&) { FAIL(); }); });
      simulation.runFor(500ms);
    }
  });
}

}  // namespace
}  // namespace kestrin::test
