#include <gtest/gtest.h>

#include "liveassist/behavioral_profile_manager.h"
#include "liveassist/live_assist_transcriber.h"
#include "platform/simulated/simulated_world.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

constexpr auto microphone = LAAudioChannel::microphone;
constexpr auto systemAudio = LAAudioChannel::system;
constexpr const char* where = "127.0.0.1:8001/transcribe/pcm";

struct LineWorld final : LATranscriberDelegate, SimulatedWorld {
  LineWorld() : SimulatedWorld(1) { transcriber->delegate = receiver; }
  void didTranscribe(LiveAssistTranscriber&, const std::string& text, LAAudioChannel channel,
                     const LATranscriptionMetadata& metadata) override {
    lines.push_back(rawValue(channel) + ": " + text + " / " + metadata.displayString());
    last = metadata;
  }
  void didFailChannel(LiveAssistTranscriber&, LAAudioChannel channel,
                      const std::string& error) override {
    lines.push_back(rawValue(channel) + " failed: " + error);
  }
  /// What comes of a segment of one second that the recogniser answers like this.
  std::string hear(const std::string& answer, LAAudioChannel channel = microphone) {
    http.on("POST", where, ScriptedReply::body(answer));
    transcriber->transcribe(Bytes(32000, 'x'), channel);
    simulation->runFor(1s);
    return lines.empty() ? "" : lines.back();
  }

  Logger logger{dispatch, notifications};
  BehavioralProfileManager profiles{dispatch, settings};
  std::shared_ptr<LiveAssistTranscriber> transcriber = std::make_shared<LiveAssistTranscriber>(
      dispatch, http, random, logger, profiles, Endpoints{.asr = "http://127.0.0.1:8001"});
  std::shared_ptr<LATranscriberDelegate> receiver{this, [](LATranscriberDelegate*) {}};
  std::vector<std::string> lines;
  LATranscriptionMetadata last;
};

TEST(Transcriber, ASegmentBecomesACleanLineWithLabels) {
  LineWorld world;
  EXPECT_EQ(world.hear(R"({"transcript":"hello  there\nEMOTION_HAPPY END","metadata":[
      {"gender":"GENDER_MALE","age_range":"AGE_25_34","emotion":"EMOTION_HAPPY",
       "intent":"INTENT_INFORM"},{"gender":"GENDER_FEMALE"}]})"),
            "microphone: hello there / S1 1.0s MALE 25_34 HAPPY [INFORM]");
  EXPECT_EQ(world.last.loggingDict(), Json::object({{"duration", 1.0},
                                                    {"gender", "GENDER_MALE"},
                                                    {"age", "AGE_25_34"},
                                                    {"emotion", "EMOTION_HAPPY"},
                                                    {"intent", "INTENT_INFORM"}}));
  EXPECT_EQ(world.hear(R"({"transcript":"","text":"It ends","metadata":"none"})", systemAudio),
            "system: It ends / S1 1.0s");
  const auto request = world.http.requests(where).front().request;
  EXPECT_EQ(request.timeout, 30s);
  EXPECT_NE(request.body.find("name=\"top_k\"\r\n\r\n10\r\n"), std::string::npos);
  EXPECT_NE(request.body.find("\r\n\r\n" + Bytes(32000, 'x') + "\r\n--"), std::string::npos);
}

TEST(Transcriber, SaysWhyThereIsNoLine) {
  LineWorld world;
  for (const auto& [answer, said] : std::vector<std::pair<std::string, std::string>>{
           {"", "Invalid ASR response"},
           {"[1]", "Invalid ASR response"},
           {R"({"error":"model missing","transcript":"words"})", "model missing"},
           {R"({"error":"","transcript":5})", "empty"},
           {R"({"transcript":"AGE_20_30 GENDER_FEMALE INTENT_ASK SPEAKER_CHANGE END"})", "empty"},
           {R"({"transcript":" ok "})", "empty"},
           {R"({"transcript":". . ."})", "empty"}})
    EXPECT_EQ(world.hear(answer), "microphone failed: " + said) << answer;
  EXPECT_EQ(world.profiles.userProfile().segmentCount, 0);
  EXPECT_EQ(world.hear(R"({"transcript":"ok."})"), "microphone: ok. / S1 1.0s");
  world.http.on("POST", where, ScriptedReply::never());
  world.transcriber->transcribe(Bytes(4, 'x'), systemAudio);
  world.simulation->runFor(31s);
  EXPECT_EQ(world.lines.back(), "system failed: The request timed out");
  world.transcriber->transcribe({}, systemAudio);
  world.simulation->runFor(1s);
  EXPECT_EQ(world.lines.size(), 9U) << "nothing was asked";
}

TEST(Transcriber, FeedsTheProfileOfTheChannel) {
  LineWorld world;
  world.hear(R"({"transcript":"words","metadata_probs":{"emotion":[
      {"token":"EMOTION_HAPPY","probability":0.5},{"token":"EMOTION_SAD"},
      {"token":"EMOTION_SAD","probability":"1"},{"token":"EMOTION_FEAR","probability":-4}]}})");
  EXPECT_NEAR(world.profiles.userProfile().emotionProfile.at("HAPPY"), 0.3, 1e-9);
  EXPECT_TRUE(world.profiles.userProfile().intentProfile.empty());
  world.hear(R"({"transcript":"words","metadata":{"emotion":"EMOTION_SAD","intent":"INTENT_ASK"},
      "metadata_probs":{"emotion":[],"intent":[]}})",
             systemAudio);
  const auto other = world.profiles.systemProfile();
  EXPECT_NEAR(other.emotionProfile.at("SAD"), 0.3 * 0.8 / 0.98, 1e-9);
  EXPECT_EQ(other.topIntents(1).at(0).first, "ASK");
  world.hear(R"({"transcript":"words","metadata":{"emotion":"EMOTION_SAD"}})");
  EXPECT_EQ(world.profiles.userProfile().segmentCount, 1);
}

TEST(Transcriber, NumbersTheSpeakersOfEachChannel) {
  // Labels of a channel's segments (m, f, or - for none) and the speaker's number after each.
  for (const auto& [genders, numbers] : std::vector<std::pair<std::string, std::string>>{
           {"mfm", "112"}, {"mff", "111"}, {"f", "1"}, {"-mf-m", "11112"}, {"mfmfm", "11223"}}) {
    LineWorld world;
    for (size_t i = 0; i < genders.size(); ++i) {
      const std::string label = genders[i] == 'm' ? "male" : genders[i] == 'f' ? "FEMALE" : "";
      world.hear(R"({"transcript":"words","metadata":{"gender":")" + label + "\"}}", systemAudio);
      EXPECT_EQ(world.last.speakerNumber, numbers[i] - '0') << genders << " " << i;
      EXPECT_EQ(world.last.speakerChanged, i > 0 && numbers[i] != numbers[i - 1]);
    }
    EXPECT_EQ(world.transcriber->speakerNumber(microphone), 1);
  }
}

}  // namespace
}  // namespace kestrin
