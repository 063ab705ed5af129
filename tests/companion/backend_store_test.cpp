#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "companion/backend/backend_service.h"
#include "companion/backend/store.h"
#include "companion/raw_client.h"
#include "platform/dispatch/threads.h"

namespace kestrin::backend {
namespace {

constexpr const char* zone = "Europe/Paris";

class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder = ::testing::TempDir() + "/kestrin-store-" + std::to_string(getpid());
    std::filesystem::remove_all(folder);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }
  Store open() {
    auto store = Store::open(folder + "/inner/store.sqlite");
    EXPECT_TRUE(store) << store.error().description;
    return std::move(*store);
  }
  static Date at(const char* text) { return *dates::parseIso8601(text); }
  static Dictation dictation(const char* when, const char* said, const char* written,
                             int64_t length = 0) {
    Dictation out;
    out.userId = "u";
    out.at = at(when);
    out.transcript = said;
    out.processedText = written;
    out.audioMilliseconds = length;
    return out;
  }

  std::string folder;
};

TEST_F(StoreTest, KeepsDictationsForTheirUserAloneAcrossRestarts) {
  {
    Store store = open();
    ASSERT_TRUE(store.add(dictation("2026-03-01T10:00:00Z", "a", "A'; DROP TABLE dictation; --")));
    ASSERT_TRUE(store.add(dictation("2026-03-01T11:00:00.250Z", "b", "B")));
    Dictation other = dictation("2026-03-01T12:00:00Z", "c", "C");
    other.userId = "other";
    ASSERT_TRUE(store.add(other));
  }
  struct stat info {};
  ASSERT_EQ(stat((folder + "/inner/store.sqlite").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  Store store = open();
  auto found = store.history("u", 10);
  ASSERT_TRUE(found && found->size() == 2);
  EXPECT_EQ((*found)[0].processedText, "B");
  EXPECT_EQ(dates::iso8601((*found)[0].at, true), "2026-03-01T11:00:00.250Z");
  EXPECT_EQ((*found)[1].processedText, "A'; DROP TABLE dictation; --");
  EXPECT_EQ(store.history("u", 1)->size(), 1u);
  EXPECT_EQ(store.history("u", -5)->size(), 0u);
  ASSERT_TRUE(store.clearHistory("u"));
  EXPECT_TRUE(store.history("u", 10)->empty());
  EXPECT_EQ(store.history("other", 10)->size(), 1u);
}

TEST_F(StoreTest, StatisticsCountWordsSpeedAndDaysOfTheUsersZone) {
  Store store = open();
  const Date now = at("2026-03-30T09:00:00Z");  // the clocks went forward on the 29th
  EXPECT_EQ(store.statistics("u", now, zone)->streak, 0);
  ASSERT_TRUE(store.add(
      dictation("2026-03-29T22:30:00Z", "one two three", "One, two, three and four.", 2000)));
  ASSERT_TRUE(store.add(dictation("2026-03-28T23:30:00Z", "x", "X")));  // the 29th in Paris
  ASSERT_TRUE(store.add(dictation("2026-03-28T10:00:00Z", "x", "X")));
  ASSERT_TRUE(store.add(dictation("2026-03-26T10:00:00Z", "x", "X")));
  Dictation failed = dictation("2026-03-27T10:00:00Z", "x", "X");
  failed.success = false;
  ASSERT_TRUE(store.add(failed));
  const auto statistics = store.statistics("u", now, zone);
  ASSERT_TRUE(statistics);
  EXPECT_EQ(statistics->transcriptionCount, 4);
  EXPECT_EQ(statistics->totalWords, 8);
  EXPECT_EQ(statistics->averageWpm, 90);
  EXPECT_EQ(statistics->streak, 3);
  EXPECT_EQ(store.statistics("u", at("2026-03-31T09:00:00Z"), zone)->streak, 3)
      << "yesterday still counts";
  EXPECT_EQ(store.statistics("u", at("2026-04-01T09:00:00Z"), zone)->streak, 0);
}

TEST_F(StoreTest, VoiceSamplesBecomeMeans) {
  Store store = open();
  const Date now = at("2026-03-01T10:00:00Z");
  EXPECT_FALSE(store.voiceSum("u")->has_value());
  const auto sample = [](const char* text) { return *Json::parse(text); };
  ASSERT_TRUE(store.addVoiceSample(
      "u", sample(R"({"emotion":[{"token":"happy","probability":0.5},{"token":7}],"age":"x"})"),
      now));
  ASSERT_TRUE(store.addVoiceSample(
      "u",
      sample(
          R"({"emotion":[{"token":"happy","probability":1},{"token":"sad","probability":0.5}]})"),
      now));
  const auto sum = store.voiceSum("u");
  ASSERT_TRUE(sum && *sum);
  EXPECT_EQ((*sum)->sampleCount, 2);
  EXPECT_DOUBLE_EQ((*sum)->attributes.at("emotion").at("happy"), 0.75);
  EXPECT_DOUBLE_EQ((*sum)->attributes.at("emotion").at("sad"), 0.25);
  EXPECT_TRUE((*sum)->attributes.at("age").empty());
}

TEST_F(StoreTest, AFileThatIsNoDatabaseIsAnErrorAndStays) {
  std::filesystem::create_directories(folder);
  std::ofstream(folder + "/notes.txt") << std::string(5000, 'x');
  EXPECT_FALSE(Store::open(folder + "/notes.txt"));
  EXPECT_EQ(std::filesystem::file_size(folder + "/notes.txt"), 5000u);
  EXPECT_FALSE(Store::open("/proc/nowhere/store.sqlite"));
}

TEST_F(StoreTest, TheRoutesKeepADictationAndHandItBack) {
  const auto dispatch = ThreadsDispatch::make();
  BackendService service(*dispatch, open());
  server::Server server(*dispatch, {});
  service.addRoutes(server);
  ASSERT_TRUE(server.start());
  const auto ask = [&](const char* method, const std::string& path, const std::string& body = "") {
    const std::string answer = kestrin::testing::ask(server.port(), method, path, body);
    return Json::parse(answer.substr(answer.find("\r\n\r\n") + 4)).value_or(Json());
  };
  const Json logged =
      ask("POST", "/log-transcription",
          R"({"user_id":"u","mode":"auto","detected_mode":"email","transcript":"hi",)"
          R"("processed_text":"Hi.","app_context":"{\"app_name\":\"Mail\",\"page\":\"secret\"}"})");
  EXPECT_EQ(logged.boolAt("success"), true);
  const Json history = ask("GET", "/history/u?limit=5");
  ASSERT_EQ(history.objectsAt("history").size(), 1u);
  const Json& entry = *history.objectsAt("history")[0];
  EXPECT_EQ(entry.stringAt("mode"), "email");
  EXPECT_EQ(entry.stringAt("processedText"), "Hi.");
  EXPECT_EQ(entry.stringAt("appName"), "Mail");
  EXPECT_TRUE(dates::parseIso8601(entry.stringAt("timestamp", "")));
  EXPECT_EQ(ask("GET", "/user-stats/u").objectAt("stats")->intAt("transcriptionCount"), 1);
  EXPECT_FALSE(ask("GET", "/voice-profile/u").has("profile"));
  ask("POST", "/update-voice-profile",
      R"({"user_id":"u","voice_metadata_probs":{"emotion":[{"token":"sad","probability":1}]}})");
  const Json profile = *ask("GET", "/voice-profile/u").objectAt("profile");
  EXPECT_EQ(profile.objectsAt("emotion").at(0)->stringAt("label"), "sad");
  EXPECT_TRUE(ask("POST", "/log-transcription", "{}").has("error"));
  EXPECT_EQ(ask("POST", "/refresh-personality/u", R"({"user_id":"u","current_personality":"calm"})")
                .stringAt("personality"),
            "calm");
}

}  // namespace
}  // namespace kestrin::backend
