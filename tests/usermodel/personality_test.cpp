#include <gtest/gtest.h>

#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"
#include "usermodel/personality/personality_view.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

struct PersonalityWorld : SimulatedWorld {
  static constexpr const char* host = "127.0.0.1:8780";

  explicit PersonalityWorld(uint64_t seed = 1) : SimulatedWorld(seed) {
    answer("POST", "/personality-test",
           R"({"success":true,"personality":"Warm.","qa_transcript":"Q A"})");
    answer(
        "GET", "/archetype/device_*",
        R"({"success":true,"isDefault":false,"archetype":{"archetype_id":"x","name":"The X","emoji":"🎯",
               "confidence":0.8,"traits":["A",7],"style_prompt":"Be X."}})");
    answer("POST", "/classify-archetype/device_*",
           R"({"success":true,"archetype":{"archetype_id":"y","name":"The Y"}})");
    answer("GET", "/voice-profile/device_*",
           R"({"success":true,"profile":{"userId":"u","sampleCount":7,"emotion":[
               {"label":"EMOTION_HAPPY","value":0.5},{"label":"EMOTION_SAD"},{"label":"NEUTRAL","value":0.25},7],
               "age":[],"gender":[{"label":"GENDER_FEMALE","value":0}]}})");
  }
  ~PersonalityWorld() {
    main([this] {
      view.reset();
      service.reset();
    });
  }
  void answer(const char* method, const std::string& path, const char* body) {
    http.on(method, host + path, ScriptedReply::body(body));
  }
  void main(const std::function<void()>& what, Duration time = 1s) {
    dispatch.mainQueue()->sync(what);
    simulation->runFor(time);
  }
  size_t asked(const std::string& path) const { return http.requests(host + path).size(); }
  void speak() {
    main([this] { view->toggleRecording(); }, 200ms);
    audio.speak("mic", std::vector<float>(48000, 0.3F), 48000);
    simulation->runFor(2s);
    main([this] { view->toggleRecording(); }, 2s);
  }

  Logger logger{dispatch, notifications};
  DeviceIdManager deviceId{files, settings, random};
  UserPreferences preferences{settings};
  std::optional<PersonalityService> service{
      std::in_place, PersonalityService::Services{dispatch,
                                                  http,
                                                  random,
                                                  settings,
                                                  logger,
                                                  deviceId,
                                                  preferences,
                                                  {"", "", "", "http://127.0.0.1:8780"}}};
  std::optional<PersonalityView> view{
      std::in_place, PersonalityView::Services{dispatch, settings, *service, [this] {
                                                 return std::make_unique<AudioRecorder>(
                                                     dispatch, audio, files, settings, logger,
                                                     AudioRecorder::PreRoll::never);
                                               }}};
};

TEST(Personality, TheTestSendsWhatWasAnsweredAndKeepsWhatComesBack) {
  PersonalityWorld world;
  world.settings.set("nibo_user_name", Json("Sam"));
  world.main([&] { world.view->startTest(); });
  EXPECT_EQ(world.view->progress(), "1 of 5");
  world.main([&] { world.view->skip(); });
  world.speak();
  EXPECT_EQ(world.view->progress(), "3 of 5");
  world.main([&] { world.view->toggleRecording(); }, 13900ms);
  EXPECT_EQ(world.view->timerText(), "0:07");
  EXPECT_FALSE(world.view->isTimeShort());
  world.simulation->runFor(2s);
  EXPECT_TRUE(world.view->isTimeShort());
  world.simulation->runFor(6s);
  EXPECT_FALSE(world.view->isRecording()) << "twenty seconds are the end";
  EXPECT_EQ(world.view->progress(), "4 of 5");
  for (int i = 0; i < 2; ++i) world.main([&] { world.view->skip(); });
  ASSERT_EQ(world.asked("/personality-test"), 1u);
  const auto form = world.http.requests("*/personality-test").at(0).request.body;
  for (const char* part :
       {"name=\"user_id\"\r\n\r\ndevice_", "name=\"user_name\"\r\n\r\nSam\r\n",
        "filename=\"q0.wav\"\r\nContent-Type: audio/wav\r\n\r\nRIFF", "filename=\"q1.wav\"",
        "name=\"audio_count\"\r\n\r\n2\r\n", "\"question\":\"Tell us about yourself\""})
    EXPECT_NE(form.find(part), std::string::npos) << part;
  const auto asked = [&](const char* question) { return form.find(question); };
  EXPECT_LT(asked("How would friends"), asked("How do you prefer"));
  EXPECT_LT(asked("How do you prefer"), asked("Tell us about yourself"))
      << "the answers are counted without the skipped one, and so are their questions";
  EXPECT_EQ(world.view->state(), PersonalityView::State::profile);
  EXPECT_EQ(world.view->personality(), "Warm.");
  EXPECT_EQ(world.settings.string("nibo_user_about_me_transcript"), "Q A");
  EXPECT_EQ(world.view->archetypeText(), " The Y") << "classified anew";
  EXPECT_EQ(world.preferences.userArchetype()->stringAt("name"), "The Y");
}

TEST(Personality, AFailedTestLeavesTheEarlierOne) {
  for (const auto& [reply, why] : std::vector<std::pair<ScriptedReply, std::string>>{
           {ScriptedReply::refused(), "Could not connect to 127.0.0.1:8780"},
           {ScriptedReply::body("<html>"), "Invalid response"},
           {ScriptedReply::body(R"({"success":false,"error":"too short"})"), "too short"},
           {ScriptedReply::body(R"({"success":true,"qa_transcript":"x"})"), "Invalid response"},
           {ScriptedReply::body(R"({"success":false})"), "Unknown error"}}) {
    PersonalityWorld world;
    world.settings.set(UserPreferences::userPersonalityKey, Json("Earlier."));
    world.http.on("POST", "127.0.0.1:8780/personality-test", reply);
    world.main([&] { world.view->startTest(); });
    for (int i = 0; i < 5; ++i) world.main([&] { world.view->skip(); });
    EXPECT_EQ(world.view->state(), PersonalityView::State::failed);
    EXPECT_EQ(world.view->failure(), why);
    EXPECT_EQ(world.view->personality(), "Earlier.");
    EXPECT_NE(world.http.requests("*/personality-test")
                  .at(0)
                  .request.body.find("name=\"audio_count\"\r\n\r\n0\r\n"),
              std::string::npos);
  }
  PersonalityWorld quiet;
  quiet.main([&] {
    quiet.view->startTest();
    quiet.view->toggleRecording();
    quiet.view->toggleRecording();
  });
  EXPECT_EQ(quiet.view->notice(), "No audio recorded");
  EXPECT_EQ(quiet.view->progress(), "1 of 5");
}

TEST(Personality, NothingWaitsForTheRecorderAndNoMicrophoneStaysOpen) {
  PersonalityWorld world;
  world.settings.set("pref_preRoll", Json(true));
  world.audio.setOpeningTime(2s);
  const auto took = [&](const std::function<void()>& step) {
    Duration time{};
    world.main([&] {
      const auto began = world.dispatch.clock().steadyNow();
      step();
      time = world.dispatch.clock().steadyNow() - began;
    });
    return time;
  };
  world.main([&] { world.view->startTest(); });
  EXPECT_EQ(took([&] { world.view->toggleRecording(); }), 0s);
  EXPECT_EQ(took([&] { world.view->skip(); }), 0s) << "while the microphone is being opened";
  EXPECT_EQ(took([&] { world.view->toggleRecording(); }), 0s);
  EXPECT_EQ(took([&] { world.view->leaveTest(); }), 0s);
  world.main([&] { world.view->startTest(); }, 5s);
  world.audio.setOpeningTime(0s);
  world.speak();
  EXPECT_EQ(world.view->progress(), "2 of 5");
  EXPECT_EQ(world.audio.openCaptures(), 0) << "for the next answer another one is opened";
}

TEST(Personality, WhatComesOfAnEarlierTestLeavesTheOneUnderWayAlone) {
  for (const char* body : {R"({"success":true,"personality":"Warm."})", R"({"success":false})"}) {
    PersonalityWorld world;
    world.http.on("POST", "127.0.0.1:8780/personality-test", ScriptedReply::body(body).after(30s));
    world.main([&] { world.view->startTest(); });
    for (int i = 0; i < 5; ++i) world.main([&] { world.view->skip(); });
    EXPECT_EQ(world.view->state(), PersonalityView::State::processing);
    world.main([&] {
      world.view->leaveTest();
      world.view->startTest();
    });
    world.main([&] { world.view->toggleRecording(); }, 1s);
    world.simulation->runFor(15s);
    world.main([&] { world.view->startTest(); });
    EXPECT_FALSE(world.view->isRecording()) << "a new test begins without the old one's recorder";
    world.simulation->runFor(30s);
    EXPECT_EQ(world.view->state(), PersonalityView::State::question);
    EXPECT_EQ(world.view->progress(), "1 of 5");
  }
}

TEST(Personality, ArchetypeAndVoiceAreAskedOnceInFiveMinutes) {
  PersonalityWorld world;
  std::string printed;
  world.logger.setSink([&](std::string_view line) { printed += line; });
  Archetype archetype;
  const auto ask = [&](Duration after) {
    world.simulation->runFor(after);
    world.main([&] { world.service->getArchetype([&](const Archetype& a) { archetype = a; }); },
               0s);
    world.simulation->runFor(50ms);
  };
  ask(0s);
  EXPECT_EQ(archetype.name, "The X");
  EXPECT_EQ(archetype.traits, std::vector<std::string>{"A"});
  ask(299s);
  EXPECT_EQ(world.asked("/archetype/*"), 1u);
  ask(2s);
  EXPECT_EQ(world.asked("/archetype/*"), 2u);
  world.http.on("*", "127.0.0.1:8780/archetype/*", ScriptedReply::refused());
  ask(301s);
  EXPECT_EQ(archetype, Archetype::defaultArchetype());
  EXPECT_TRUE(world.service->isDefault());
  EXPECT_NE(printed.find("❌ Failed to fetch archetype: "), std::string::npos);
  EXPECT_EQ(printed.find("❌ Failed to parse archetype: "), std::string::npos);
  world.answer("GET", "/archetype/*", "<p>");
  ask(0s);
  EXPECT_NE(printed.find("❌ Failed to parse archetype: "), std::string::npos)
      << "there was an answer";

  std::optional<VoiceProfile> profile;
  const auto voice = [&](bool force) {
    world.main([&] {
      world.service->fetchProfile(force,
                                  [&](const std::optional<VoiceProfile>& p) { profile = p; });
    });
    return world.asked("/voice-profile/*");
  };
  EXPECT_EQ(voice(false), 1u);
  ASSERT_TRUE(profile);
  EXPECT_NE(printed.find("📊 Fetching voice profile for " + world.deviceId.deviceId()),
            std::string::npos);
  EXPECT_EQ(profile->emotion.size(), 2u) << "a point without a value is dropped";
  const auto charts = radarCharts(*profile);
  ASSERT_EQ(charts.size(), 1u) << "nothing to show is no chart";
  EXPECT_EQ(charts[0].axisLabels, (std::vector<std::string>{"Happy", "Neutral"}));
  EXPECT_EQ(charts[0].values, (std::vector<double>{1, 0.5}));
  EXPECT_EQ(charts[0].description, "Happy 50 %, Neutral 25 %") << "as it is, not as it is drawn";
  EXPECT_EQ(voice(false), 1u);
  world.main([&] { world.service->forgetVoiceProfile(); });
  EXPECT_EQ(voice(false), 2u);
  EXPECT_EQ(voice(true), 3u);
  world.main([&] {
    world.service->fetchProfile(true, [](const auto&) {});
    world.service->forgetVoiceProfile();
  });
  EXPECT_EQ(voice(false), 5u) << "what was asked for before the dictation does not hold it";
  world.http.on("*", "127.0.0.1:8780/voice-profile/*", ScriptedReply::body("[]"));
  EXPECT_EQ(voice(true), 6u);
  EXPECT_FALSE(profile);
}

}  // namespace
}  // namespace kestrin::test
