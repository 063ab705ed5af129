#include "notes/history.h"

#include <algorithm>
#include <gtest/gtest.h>

#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

constexpr const char* cacheFile = "/home/user/.local/share/Kestrin/Cache/history.json";
constexpr const char* historyUrl = "127.0.0.1:8780/history/*";

Json record(const std::string& output, const std::string& timestamp = "2026-03-01T10:00:00Z") {
  return Json::object({{"timestamp", timestamp},
                       {"mode", "email"},
                       {"transcript", "said"},
                       {"processedText", output},
                       {"appName", "Mail"}});
}

struct Page : SimulatedWorld {
  Page() {
    logger.setSink([this](std::string_view line) { printed.emplace_back(line); });
    answerStats(7);
  }
  ~Page() { simulation->runFor(60s); }

  void answerHistory(Json::Array records) {
    http.on("GET", historyUrl, ScriptedReply::json(Json::object({{"history", Json(records)}})));
  }
  void answerStats(int words) {
    http.on(
        "GET", "127.0.0.1:8780/user-stats/*",
        ScriptedReply::json(Json::object({{"stats", Json::object({{"totalWords", words},
                                                                  {"averageWPM", 93.6},
                                                                  {"streak", 3},
                                                                  {"transcriptionCount", 2}})}})));
  }
  void onMain(std::function<void()> job, Duration after = 5s) {
    dispatch.mainQueue()->post(std::move(job));
    simulation->runFor(after);
  }
  void fetch() {
    onMain([this] { history.fetchHistoryFromServer(); }, 20s);
  }
  void add(const std::string& output, const std::string& mode = "chat") {
    onMain([&] { history.addHistoryEntry(mode, "said", output, "Notes"); }, 0s);
  }
  HistoryEntry server(const std::string& output, Date at) {
    auto entry = HistoryEntry::fromServer(record(output), random.uuid(), {});
    entry.timestamp = at;
    return entry;
  }
  void merge(const std::vector<HistoryEntry>& entries) {
    onMain([&] { history.mergeHistory(entries); }, 0s);
  }
  std::vector<std::string> outputs() const {
    std::vector<std::string> out;
    for (const auto& entry : history.historyEntries()) out.push_back(entry.output);
    return out;
  }
  bool printedLine(const std::string& line) const {
    return std::find(printed.begin(), printed.end(), line) != printed.end();
  }

  std::vector<std::string> printed;
  Logger logger{dispatch, notifications};
  LocalCache cache{files, logger};
  StatsService stats{http, logger, cache, {"", "", "", "http://127.0.0.1:8780"}};
  DeviceIdManager deviceId{files, settings, random};
  History history{{dispatch, random, logger, deviceId, stats}};
};

using Outputs = std::vector<std::string>;

TEST(History, TheFiftyFirstEntryPushesTheOldestOutAndTheStatisticsFollow) {
  Page page;
  for (int i = 0; i < 51; ++i) page.add(std::to_string(i));
  ASSERT_EQ(page.history.historyEntries().size(), 50u);
  EXPECT_EQ(page.outputs().front(), "50");
  EXPECT_EQ(page.outputs().back(), "1");
  page.simulation->runFor(1400ms);
  EXPECT_TRUE(page.http.requests().empty()) << "the backend cannot have the record yet";
  page.simulation->runFor(1s);
  EXPECT_EQ(page.history.currentStats(), (UserStats{7, 94, 3, 2}));
  EXPECT_TRUE(page.printedLine("✅ Stats loaded: 7 words, 94 WPM, 3 day streak"));
  // What fails later leaves what was shown.
  page.http.on("GET", "127.0.0.1:8780/user-stats/*",
               ScriptedReply::body(R"({"stats":{"totalWords":9}})", 500));
  page.onMain([&] { page.history.fetchStats(); });
  EXPECT_TRUE(page.printedLine("❌ Failed to parse stats JSON"));
  EXPECT_EQ(page.history.currentStats().totalWords, 7);
}

TEST(History, ALocalEntryWinsOverTheServersCopyOfTheSameMinute) {
  Page page;
  const Date minute = *dates::parseIso8601("2026-03-01T10:00:00Z");
  const std::string eighty = text::prefix(std::string(100, 'x'), 80);
  page.merge({page.server("✅ Hello", minute + 5s), page.server(eighty + "one", minute + 6s),
              page.server("📝 ✅ note", minute + 7s)});
  page.merge({page.server("Hello", minute + 59s), page.server("Hello", minute + 60s),
              page.server("Hello", minute - 1s), page.server(eighty + "two", minute + 8s),
              page.server("🔊 ✅ ❌ 📝 Hello", minute), page.server("✅ note", minute + 9s),
              page.server("note", minute + 10s)});
  // Each sign is taken off once, in one order: "📝 ✅ note" keeps its second one.
  EXPECT_EQ(page.outputs(),
            (Outputs{"Hello", "✅ note", "📝 ✅ note", eighty + "one", "✅ Hello", "Hello"}));
  std::vector<HistoryEntry> many;
  for (int i = 0; i < 60; ++i) many.push_back(page.server(std::to_string(i), minute));
  page.merge(many);
  EXPECT_EQ(page.history.historyEntries().size(), 66u) << "a merged list has no limit";
}

TEST(History, ServerRecordsAreReadWithTheirFallBacks) {
  Page page;
  page.answerHistory({record("b", "2026-03-01T10:00:00.250Z"), record("c", "2026-03-01T10:00:00Z"),
                      Json::object({{"processedText", 7}, {"timestamp", "soon"}}), "no record"});
  page.fetch();
  ASSERT_EQ(page.history.historyEntries().size(), 3u);
  const auto& bare = page.history.historyEntries()[0];
  EXPECT_EQ(bare.mode, "plain");
  EXPECT_EQ(bare.output + bare.input + bare.appContext, "");
  EXPECT_LT(page.dispatch.clock().wallNow() - bare.timestamp, 1min) << "without a time it is now";
  const auto& whole = page.history.historyEntries()[1];
  EXPECT_EQ(dates::iso8601(whole.timestamp, true), "2026-03-01T10:00:00.250Z");
  EXPECT_EQ(whole.mode + whole.input + whole.output + whole.appContext, "emailsaidbMail");
  EXPECT_TRUE(page.printedLine("📜 Loaded 3 history entries from server"));
  const auto asked = page.http.requests(historyUrl).at(0).request;
  EXPECT_EQ(asked.url, "http://127.0.0.1:8780/history/" + page.deviceId.deviceId() + "?limit=50");
}

TEST(History, WithoutTheBackendTheLastGoodAnswerIsShown) {
  Page page;
  page.files.put(cacheFile, "{\"history\":");
  page.http.on("GET", historyUrl, ScriptedReply::refused());
  page.fetch();
  EXPECT_TRUE(page.history.historyEntries().empty()) << "a torn file is no history";
  page.answerHistory({record("kept"), record("also kept")});
  page.fetch();
  for (const auto& broken :
       {ScriptedReply::refused(), ScriptedReply::never(), ScriptedReply::body(""),
        ScriptedReply::body("<html>", 502), ScriptedReply::body(R"({"history":"none"})")}) {
    Page next;
    next.files.put(cacheFile, *page.files.read(cacheFile));
    next.http.on("GET", historyUrl, broken);
    next.fetch();
    EXPECT_EQ(next.outputs(), (Outputs{"kept", "also kept"}));
    EXPECT_TRUE(next.printedLine("🗂️ Using cached history (2 items)"));
    EXPECT_EQ(*next.files.read(cacheFile), *page.files.read(cacheFile))
        << "a bad answer replaces no good one";
  }
  page.files.makeReadOnly("/home/user/.local/share");
  page.answerHistory({record("fresh")});
  page.fetch();
  EXPECT_EQ(page.outputs().size(), 3u);
  EXPECT_TRUE(std::any_of(page.printed.begin(), page.printed.end(), [](const auto& line) {
    return line.starts_with("⚠️ Failed to cache history: ");
  }));
}

TEST(History, WhatIsClearedDoesNotComeBackWithALateAnswer) {
  Page page;
  page.answerHistory({record("old")});
  page.fetch();
  ASSERT_EQ(page.outputs(), Outputs{"old"});
  page.http.on("GET", historyUrl,
               ScriptedReply::json(Json::object({{"history", Json::array()}})).after(300ms));
  page.http.once("GET", historyUrl,
                 ScriptedReply::json(Json::object({{"history", Json(Json::Array{record("old")})}}))
                     .after(300ms));
  page.http.on("DELETE", historyUrl, ScriptedReply::json(Json::object({{"success", true}})));
  std::optional<Status> cleared;
  page.onMain([&] { page.history.fetchHistoryFromServer(); }, 50ms);
  page.onMain([&] { page.history.clearHistory([&](const Status& status) { cleared = status; }); });
  ASSERT_TRUE(cleared && cleared->has_value());
  EXPECT_TRUE(page.history.historyEntries().empty());
  EXPECT_FALSE(page.files.exists(cacheFile));
  page.fetch();
  EXPECT_TRUE(page.history.historyEntries().empty());

  page.http.on("DELETE", historyUrl,
               ScriptedReply::body(R"({"success":false,"error":"disk full"})", 500));
  page.onMain([&] { page.history.clearHistory([&](const Status& status) { cleared = status; }); });
  ASSERT_TRUE(cleared && !cleared->has_value());
  EXPECT_EQ(cleared->error().description, "disk full");
}

TEST(History, DaysAreThoseOfTheCalendarAlsoWhenTheClocksChange) {
  const auto at = [](const char* text) { return *dates::parseIso8601(text); };
  std::vector<HistoryEntry> entries(5);
  entries[0].timestamp = at("2026-03-28T23:30:00Z");  // the 29th in Paris, a day of 23 hours
  entries[1].timestamp = at("2026-03-30T09:00:00Z");
  entries[2].timestamp = at("2026-03-29T21:59:00Z");
  entries[3].timestamp = at("2026-03-29T22:01:00Z");
  entries[4].timestamp = at("2026-03-28T22:00:00Z");
  const auto days = groupEntriesByDate(entries, at("2026-03-30T10:00:00Z"), "Europe/Paris");
  std::string shown;
  for (const auto& day : days) {
    shown += day.title + ":" + std::to_string(day.entries.size()) + " ";
  }
  EXPECT_EQ(shown, "Today:2 Yesterday:2 March 28, 2026:1 ");
  EXPECT_EQ(days[1].entries[0].timestamp, entries[0].timestamp) << "the list's order stays";
}

TEST(History, TheSearchLeavesWhatHoldsTheWords) {
  Page page;
  EXPECT_EQ(page.history.emptyText(),
            (Outputs{"No transcriptions yet", "Hold fn 🌐 to start your first voice command"}));
  page.add("Grüße aus Köln", "email");
  page.add("Milk", "notes");
  const auto left = [&](const std::string& query) {
    page.onMain([&] { page.history.setSearchQuery(query); }, 0s);
    size_t count = 0;
    for (const auto& day : page.history.groupEntriesByDate()) count += day.entries.size();
    return count;
  };
  EXPECT_EQ(left("KÖLN"), 1u);
  EXPECT_EQ(left(" note"), 2u) << "the mode of one, the application of both";
  EXPECT_EQ(left("  "), 2u);
  EXPECT_TRUE(page.history.emptyText().empty());
  EXPECT_EQ(left("tea"), 0u);
  EXPECT_EQ(page.history.emptyText(), Outputs{"No results for \"tea\""});
}

TEST(History, TheHistogramCountsWhatIsThere) {
  Page page;
  page.answerHistory({record("a"), record("b"), Json::object({{"mode", "chat"}}),
                      Json::object({{"appName", "Notes"}})});
  EXPECT_TRUE(page.history.modeHistogram().isEmpty());
  page.onMain([&] { page.history.fetchModeHistogram("u"); });
  EXPECT_EQ(page.history.modeHistogram().modes, (ModeHistogram::Counts{{"email", 2}, {"chat", 1}}));
  EXPECT_EQ(page.history.modeHistogram().applications,
            (ModeHistogram::Counts{{"Mail", 2}, {"Notes", 1}}));
  EXPECT_TRUE(page.http.requests(historyUrl).at(0).request.url.ends_with("u?limit=100"));
  EXPECT_TRUE(page.history.historyEntries().empty());
}

}  // namespace
}  // namespace kestrin::test
