#include <SQLiteCpp/SQLiteCpp.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "companion/backend/backend_service.h"
#include "companion/backend/backup.h"
#include "companion/backend/database.h"
#include "companion/backend/store.h"
#include "companion/raw_client.h"
#include "platform/dispatch/threads.h"
#include "platform/linux/linux_files.h"
#include "support/worlds.h"

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

TEST_F(StoreTest, AStreakOutlivesClocksThatChangeAtMidnight) {
  Store store = open();
  const auto streak = [&](const char* user, std::vector<const char*> times, const char* now) {
    for (const char* time : times) {
      Dictation one = dictation(time, "x", "X");
      one.userId = user;
      EXPECT_TRUE(store.add(one));
    }
    return store.statistics(user, at(now), "America/Havana")->streak;
  };
  // Forward from 0:00 to 1:00 on March 8th; 4:30 UTC is still the 7th.
  EXPECT_EQ(
      streak("spring", {"2026-03-06T12:00:00Z", "2026-03-08T04:30:00Z", "2026-03-08T05:10:00Z"},
             "2026-03-08T12:00:00Z"),
      3);
  // Back from 1:00 to 0:00 on November 1st: 4:10 UTC and 5:10 UTC are both 0:10 of that day.
  EXPECT_EQ(
      streak("autumn", {"2026-10-31T20:00:00Z", "2026-11-01T04:10:00Z", "2026-11-01T05:10:00Z"},
             "2026-11-01T20:00:00Z"),
      2);
  EXPECT_EQ(streak("ahead", {"2026-11-03T20:00:00Z"}, "2026-11-01T20:00:00Z"), 0)
      << "the clock was put back";
  Dictation absurd = dictation("2026-03-01T10:00:00Z", "one two", "One two", INT64_MAX);
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(store.add(absurd));
  EXPECT_EQ(store.statistics("u", at("2026-03-01T11:00:00Z"), zone)->totalWords, 6);
}

TEST_F(StoreTest, WhatIsClearedIsNoLongerInTheFiles) {
  Store store = open();
  const std::string secret = "the heron nests behind the mill";
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(store.add(dictation("2026-03-01T10:00:00Z", secret.c_str(), secret.c_str())));
  }
  const auto onDisk = [&] {
    for (const auto& file : std::filesystem::directory_iterator(folder + "/inner")) {
      std::ifstream in(file.path(), std::ios::binary);
      const std::string bytes(std::istreambuf_iterator<char>(in), {});
      if (bytes.find(secret) != std::string::npos) return true;
    }
    return false;
  };
  EXPECT_TRUE(onDisk());
  ASSERT_TRUE(store.clearHistory("u"));
  EXPECT_FALSE(onDisk());
}

TEST_F(StoreTest, FilesOfOtherVersionsAreBroughtOnOrLeftAlone) {
  {
    Store store = open();
    ASSERT_TRUE(store.add(dictation("2026-03-01T10:00:00Z", "a", "A")));
  }
  const auto set = [&](int version) {
    SQLite::Database database(folder + "/inner/store.sqlite", SQLite::OPEN_READWRITE);
    database.exec("PRAGMA user_version = " + std::to_string(version));
  };
  set(0);  // as the first files were
  EXPECT_EQ(open().history("u", 10)->size(), 1u);
  set(999);
  const auto newer = Store::open(folder + "/inner/store.sqlite");
  ASSERT_FALSE(newer);
  EXPECT_NE(newer.error().description.find("newer version"), std::string::npos);
}

TEST_F(StoreTest, ACopyBringsTheDataBackAndABrokenOneChangesNothing) {
  const std::string path = folder + "/inner/store.sqlite", copy = folder + "/copy.kestrin";
  std::optional<Store> store(open());
  ASSERT_TRUE(store->add(dictation("2026-03-01T10:00:00Z", "kept words", "Kept words.")));
  ASSERT_TRUE(exportStore(path, copy)) << "while the companion works";
  EXPECT_EQ(std::filesystem::status(copy).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  ASSERT_TRUE(store->add(dictation("2026-03-02T10:00:00Z", "later", "Later.")));
  EXPECT_FALSE(eraseStore(path)) << "it is open";
  ASSERT_TRUE(importStore(path, copy)) << "also while the companion works";
  EXPECT_EQ(store->history("u", 10)->size(), 1u);

  const std::string whole = *LinuxFiles().read(copy);
  for (const std::string& broken :
       {std::string(), whole.substr(0, whole.size() / 2), std::string(5000, 'x')}) {
    ASSERT_TRUE(LinuxFiles().writeAtomic(folder + "/broken", broken));
    EXPECT_FALSE(importStore(path, folder + "/broken"));
  }
  EXPECT_FALSE(importStore(path, folder + "/nowhere"));
  EXPECT_FALSE(exportStore(path, "/proc/nowhere/copy"));
  EXPECT_EQ(store->history("u", 10)->size(), 1u);
  store.reset();
  ASSERT_TRUE(eraseStore(path));
  EXPECT_FALSE(std::filesystem::exists(path) || std::filesystem::exists(path + "-wal"));
  EXPECT_TRUE(open().history("u", 10)->empty());
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

/// The routes on a real port.
class BackendTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    service.emplace(*dispatch, open(), "1.2.3");
    server.emplace(*dispatch, server::ServerOptions{});
    service->addRoutes(*server);
    ASSERT_TRUE(server->start());
  }
  void TearDown() override {
    server.reset();
    service.reset();
    StoreTest::TearDown();
  }
  Json ask(const char* method, const std::string& path, const std::string& body = "",
           const std::string& headers = "") {
    const std::string answer = kestrin::testing::ask(server->port(), method, path, body, headers);
    status = answer.size() > 12 ? std::stoi(answer.substr(9, 3)) : 0;
    return Json::parse(answer.substr(answer.find("\r\n\r\n") + 4)).value_or(Json());
  }
  void log(const std::string& user, const std::string& text) {
    ask("POST", "/log-transcription",
        Json::object({{"user_id", user}, {"transcript", text}, {"processed_text", text}}).dump());
  }

  const std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  std::optional<BackendService> service;
  std::optional<server::Server> server;
  int status = 0;
};

TEST_F(BackendTest, ADeviceSeesAndClearsItsOwnRecordsAlone) {
  log("device_a", "mine");
  log("device_b", "yours");
  const auto count = [&](const std::string& user) {
    return ask("GET", "/history/" + user).objectsAt("history").size();
  };
  EXPECT_EQ(count("device_a"), 1u);
  EXPECT_EQ(count("device_c"), 0u);
  EXPECT_EQ(ask("GET", "/user-stats/device_c").objectAt("stats")->intAt("totalWords"), 0);
  const std::string asB = "X-Device-Id: device_b\r\n";
  for (const char* path : {"/history/device_a", "/user-stats/device_a", "/user/profile/device_a",
                           "/voice-profile/device_a"}) {
    EXPECT_TRUE(ask("GET", path, "", asB).has("error"));
    EXPECT_EQ(status, 403) << path;
  }
  ask("DELETE", "/history/device_a", "", asB);
  EXPECT_EQ(status, 403);
  ask("POST", "/log-transcription", R"({"user_id":"device_a","transcript":"forged"})", asB);
  EXPECT_EQ(status, 403);
  EXPECT_EQ(count("device_a"), 1u);
  EXPECT_EQ(ask("DELETE", "/history/device_a").boolAt("success"), true);
  EXPECT_EQ(count("device_a"), 0u);
  EXPECT_EQ(count("device_b"), 1u);
}

TEST_F(BackendTest, AFullDiskIsSaidAndCostsNothingThatWasKept) {
  log("device_a", "kept");
  std::atomic<bool> done = false;
  service->withStore([&](Store& store) {
    store.database()->exec("PRAGMA max_page_count = 1");  // of no more than there is
    done = true;
  });
  ASSERT_TRUE(kestrin::test::eventually([&] { return done.load(); }));
  int refused = 0;
  for (int i = 0; i < 20; ++i) {
    log("device_a", std::string(100'000, 'x'));
    refused += status == 507;
    EXPECT_TRUE(status == 200 || status == 507) << status;
  }
  EXPECT_GE(refused, 10);
  EXPECT_GE(ask("GET", "/history/device_a").objectsAt("history").size(), 1u);
}

TEST_F(BackendTest, RequestsBeyondTheLimitsAreRefusedWithTheReason) {
  for (int i = 0; i < 3; ++i) log("u", std::to_string(i));
  EXPECT_EQ(ask("GET", "/history/u?limit=2").objectsAt("history").size(), 2u);
  EXPECT_EQ(ask("GET", "/history/u?limit=99999999999999999999").objectsAt("history").size(), 3u);
  for (const char* limit : {"0", "-1", "two", "2x", "-99999999999999999999"}) {
    EXPECT_TRUE(ask("GET", std::string("/history/u?limit=") + limit).has("error"));
    EXPECT_EQ(status, 400) << limit;
  }
  for (const std::string& id :
       {std::string(), std::string(129, 'u'), std::string("a/b"), std::string("%FF")}) {
    EXPECT_TRUE(ask("GET", "/history/" + id).has("error"));
    EXPECT_EQ(status, 400) << id;
  }
  log("u", std::string((1u << 20) + 1, 'x'));
  EXPECT_EQ(status, 413);
  EXPECT_EQ(ask("GET", "/history/u").objectsAt("history").size(), 3u);
}

TEST_F(BackendTest, TheProfileNamesTheDeviceAndTheVersionIsTheInstalledOne) {
  EXPECT_FALSE(ask("GET", "/user/profile/u").objectAt("user")->has("createdAt"));
  log("u", "x");
  const Json profile = ask("GET", "/user/profile/u");
  EXPECT_TRUE(dates::parseIso8601(profile.objectAt("user")->stringAt("createdAt", "")));
  EXPECT_FALSE(profile.objectAt("user")->has("email")) << "no mail account is connected";
  EXPECT_EQ(ask("GET", "/app/version").stringAt("version"), "1.2.3");
}

TEST_F(BackendTest, TheRoutesKeepADictationAndHandItBack) {
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
