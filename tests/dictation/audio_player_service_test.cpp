#include "dictation/audio_player_service.h"

#include <gtest/gtest.h>

#include "platform/dispatch/simulation.h"
#include "platform/simulated/simulated_audio.h"
#include "platform/simulated/simulated_settings.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

TEST(AudioPlayerService, PlaysOneReplyAtATime) {
  const auto dispatch = Simulation::make();
  NotificationCenter notifications;
  Logger logger(*dispatch, notifications);
  SimulatedAudio audio(*dispatch);
  SimulatedSettings settings;
  AudioPlayerService player(*dispatch, audio, settings, logger);
  std::string ended;
  const Bytes second = wav::write(Bytes(32000, '\0'));

  player.play(second, [&] { ended += "a"; });
  EXPECT_TRUE(player.isPlaying());
  dispatch->runFor(0ms);
  EXPECT_EQ(audio.played().back().volume, 0.8F);
  settings.set("pref_voiceVolume", Json(30));
  player.applyPreferences();
  EXPECT_EQ(audio.played().back().volume, 0.3F) << "at once, in mid-sound";
  dispatch->runFor(500ms);
  player.play(second, [&] { ended += "b"; });
  EXPECT_TRUE(audio.played()[0].stopped);
  dispatch->runFor(49ms);
  EXPECT_EQ(audio.played().size(), 1U);
  EXPECT_TRUE(player.isPlaying());
  dispatch->runFor(1ms);
  EXPECT_EQ(audio.played().size(), 2U);
  dispatch->runFor(999ms);
  EXPECT_EQ(ended, "");
  dispatch->runFor(1ms);
  EXPECT_EQ(ended, "b");
  EXPECT_FALSE(player.isPlaying());

  player.play("not a sound", [&] { ended += "c"; });
  dispatch->runFor(0ms);
  EXPECT_EQ(ended, "bc") << "what cannot play is over at once";
  EXPECT_FALSE(player.isPlaying());
  EXPECT_EQ(logger.getEntries("❌ Audio playback error: ").size(), 1U);
  player.play(second, [&] { ended += "d"; });
  dispatch->runFor(0ms);
  player.play(second, [&] { ended += "e"; });
  EXPECT_TRUE(player.stop());
  EXPECT_FALSE(player.stop());
  dispatch->runFor(5s);
  EXPECT_EQ(ended, "bc");
  EXPECT_EQ(audio.played().size(), 3U) << "a stop also stops the sound that was about to begin";
  player.play(second, [&] { ended += "f"; });
  player.play(second, [&] { ended += "g"; });
  dispatch->runFor(5s);
  EXPECT_EQ(ended, "bcg") << "a sound that is replaced while it is being opened never starts";
}

}  // namespace
}  // namespace kestrin
