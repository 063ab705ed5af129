#include <gtest/gtest.h>

#include "liveassist/behavioral_profile_detail_window.h"
#include "liveassist/behavioral_profile_manager.h"
#include "platform/simulated/simulated_settings.h"
#include "support/seeds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;
using Weights = BehavioralProfile::Weights;

constexpr auto microphone = LAAudioChannel::microphone;

BehavioralProfile feeling(const Weights& emotions) {
  BehavioralProfile profile = BehavioralProfile::empty();
  profile.emotionProfile = emotions;
  return profile;
}

TEST(BehavioralProfile, IsAMovingAverageOfWhatWasHeard) {
  auto profile = BehavioralProfile::empty();
  profile.emaUpdate({{"HAPPY", 1.0}}, {{"INFORM", 2.0}, {"ASK", 6.0}});
  EXPECT_NEAR(profile.emotionProfile["HAPPY"], 0.3, 1e-12);
  EXPECT_NEAR(profile.emotionProfile["NEUTRAL"], 0.7, 1e-12);
  EXPECT_NEAR(profile.intentProfile["ASK"], 0.75, 1e-12);
  profile.emaUpdate({{"HAPPY", 1.0}, {"SAD", 3.0}}, {{"INFORM", 1.0}});
  EXPECT_NEAR(profile.emotionProfile["HAPPY"], 0.7 * 0.3 + 0.3 * 0.25, 1e-12);
  EXPECT_NEAR(profile.intentProfile["INFORM"], 0.7 * 0.25 + 0.3, 1e-12);
  const auto before = profile;
  profile.emaUpdate({}, {});
  EXPECT_NEAR(profile.emotionProfile["HAPPY"], 0.7 * before.emotionProfile.at("HAPPY"), 1e-12);
  EXPECT_NEAR(profile.intentProfile["INFORM"], before.intentProfile.at("INFORM"), 1e-12);
  EXPECT_EQ(profile.segmentCount, 3);

  Weights many{{"LIGHTEST", 0.5}};
  for (int i = 0; i < 30; ++i) many["I" + std::to_string(i)] = 1 + i;
  auto crowded = BehavioralProfile::empty();
  crowded.emaUpdate({}, many);
  EXPECT_EQ(crowded.intentProfile.size(), 30U);
  EXPECT_EQ(crowded.intentProfile.count("LIGHTEST"), 0U);
  double sum = 0;
  for (const auto& [label, weight] : crowded.intentProfile) sum += weight;
  EXPECT_NEAR(sum, 1, 1e-9);
}

TEST(BehavioralProfile, NamesTheMoodByTheFirstRuleThatHolds) {
  for (const auto& [tag, emotions] : std::vector<std::pair<std::string, Weights>>{
           {"Engaged", {{"HAPPY", 0.8}}},
           {"Tense", {{"ANGRY", 0.6}}},
           {"Withdrawn", {{"SAD", 0.5}}},
           {"Calm", {{"HAPPY", 0.9}, {"SAD", 0.7}, {"ANGRY", -0.5}}},
           {"Neutral", {{"NEUTRAL", 1.0}, {"NOTHING KNOWN", 9.0}}},
           {"Assertive", {{"ANGRY", 0.3}, {"HAPPY", 0.2}}},
           {"Receptive", {{"FEAR", 0.35}, {"SAD", 0.3}}},
           {"Steady", {{"SURPRISE", 0.5}}}})
    EXPECT_EQ(feeling(emotions).moodTag(), tag);
}

TEST(BehavioralProfile, SumsUpTheUserForTheAgent) {
  auto profile = BehavioralProfile::empty();
  EXPECT_EQ(profile.summary(), "");
  profile.emaUpdate({{"HAPPY", 1}}, {{"ASK_FOR_HELP", 3}, {"inform", 1}});
  EXPECT_EQ(profile.summary(),
            "Mood: Steady | Emotions: Neutral (70%), Happy (30%), Sad (0%) | "
            "Intents: Ask For (75%), Inform (25%) | Segments: 1");
  EXPECT_EQ(BehavioralProfile::intentShortLabel("INTENT_GIVE__UP_NOW"), "Give Up");
}

TEST(BehavioralProfileDetailWindow, ShowsOneSideBesideTheOther) {
  BehavioralProfileDetailWindow window("You");
  int changes = 0;
  window.onChange = [&] { ++changes; };
  EXPECT_EQ(window.intentsNote(), "No intent data yet — waiting for speech segments.");
  auto profile = feeling({{"HAPPY", 0.5}, {"SAD", 0.5}});
  for (int i = 0; i < 14; ++i) profile.intentProfile["I" + std::to_string(i)] = 1.0 / 14;
  profile.intentProfile["I7"] = 0.5;
  window.show(profile, feeling({{"ANGRY", 1.0}}));
  EXPECT_EQ(changes, 1);
  EXPECT_EQ(window.dominantEmotion(), "Happy");
  EXPECT_EQ(window.emotionRows()[3].comparison, 1.0);
  EXPECT_EQ(window.gauges()[0].valueText + window.gauges()[0].comparisonText, "+0.10-0.50");
  EXPECT_EQ(window.intentRows().size(), 12U);
  EXPECT_EQ(window.intentRows()[0].label, "I7");
  EXPECT_EQ(window.intentsNote(), "2 more intents tracked");
  EXPECT_EQ(window.statistics()[4].value, "36%");
  EXPECT_EQ(window.statistics()[5].value, "100%") << "bounded";
  EXPECT_EQ(MiniMoodRingView::of(BehavioralProfile::empty()).topIntent, "");
}

struct ProfileWorld {
  explicit ProfileWorld(Simulation& s) : simulation(s) {}
  std::unique_ptr<BehavioralProfileManager> nextRun() {
    return std::make_unique<BehavioralProfileManager>(simulation, settings);
  }
  Simulation& simulation;
  SimulatedSettings settings;
};

TEST(BehavioralProfileManager, KeepsTheUserForTheDayAndTheOtherForTheSession) {
  forEachSeed(50, [](Simulation& simulation) {
    ProfileWorld world(simulation);
    auto profiles = world.nextRun();
    int told = 0;
    const auto updates = profiles->observe([&] { ++told; });
    profiles->updateSimple(microphone, "emotion_happy", "intent_ask");
    profiles->update(LAAudioChannel::system, {{"SAD", 1}}, {});
    profiles->updateSimple(microphone, "EMOTION_UNKNOWN", "ask");
    const auto user = profiles->userProfile();
    EXPECT_EQ(user.segmentCount, 2);
    EXPECT_NEAR(user.emotionProfile.at("HAPPY"), 0.7 * 0.3 * 0.8 / 0.98 + 0.3 / 7, 1e-9);
    EXPECT_EQ(user.intentProfile, (Weights{{"ASK", 1.0}}));
    simulation.runReady();
    EXPECT_EQ(told, 3);
    EXPECT_EQ(world.nextRun()->voiceProfileSummary(), "") << "nothing was saved yet";
    profiles->persistUserProfile();
    profiles->resetSystemProfile();
    EXPECT_EQ(profiles->systemProfile(), BehavioralProfile::empty());
    simulation.runFor(14h + 59min);  // to one minute before midnight in UTC
    EXPECT_EQ(world.nextRun()->userProfile(), user);
    simulation.runFor(2min);
    EXPECT_EQ(world.nextRun()->userProfile(), BehavioralProfile::empty());
    EXPECT_EQ(world.settings.string("behavioralProfile_userDate"), "2026-03-03T00:01:00Z");
    EXPECT_EQ(BehavioralProfile::fromJson(*world.settings.get("behavioralProfile_user")),
              BehavioralProfile::empty());
    profiles->resetUserProfileIfNeeded();
    EXPECT_EQ(profiles->userProfile(), user) << "the day of the store counts";
    profiles->persistIfChanged();
    EXPECT_EQ(world.nextRun()->userProfile(), BehavioralProfile::empty()) << "nothing new to save";
  });
}

TEST(BehavioralProfileManager, AStoredProfileThatIsNoneIsNotRead) {
  const auto simulation = Simulation::make(1);
  ProfileWorld world(*simulation);
  world.settings.set("behavioralProfile_userDate", "2026-03-02T08:00:00Z");
  const std::string good = R"({"emotionProfile":{"SAD":1},"intentProfile":{},"segmentCount":7})";
  world.settings.set("behavioralProfile_user", *Json::parse(good));
  EXPECT_EQ(world.nextRun()->userProfile().segmentCount, 7);
  for (const char* broken :
       {R"("text")", R"({"emotionProfile":{"SAD":1},"intentProfile":{}})",
        R"({"emotionProfile":{"SAD":"1"},"intentProfile":{},"segmentCount":7})",
        R"({"emotionProfile":[],"intentProfile":{},"segmentCount":7})",
        R"({"emotionProfile":{},"intentProfile":{},"segmentCount":-7})"}) {
    world.settings.set("behavioralProfile_user", *Json::parse(broken));
    EXPECT_EQ(world.nextRun()->userProfile(), BehavioralProfile::empty()) << broken;
  }
}

}  // namespace
}  // namespace kestrin
