#include "diagnostics/logs_view.h"

#include <gtest/gtest.h>

#include "diagnostics/debug_report.h"
#include "diagnostics/log_file_redirector.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"
#include "support/seeds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

struct LogsPage : SimulatedWorld {
  explicit LogsPage(uint64_t seed = 1) : SimulatedWorld(seed) {
    view.onChange = [this] { ++changes; };
    logger.log("Audio", LogLevel::debug, "one");
    logger.log("Modes", LogLevel::info, "two");
    logger.log("Audio", LogLevel::warning, "three");
    logger.log("Net", LogLevel::error, "four");
  }
  ~LogsPage() { simulation->runFor(1s); }

  void onMain(const std::function<void()>& job) {
    dispatch.mainQueue()->post(job);
    simulation->runFor(1s);
  }
  std::string shown() {
    std::string out;
    for (const auto& entry : view.filteredEntries()) out += entry.message + " ";
    return out;
  }

  Logger logger{dispatch, notifications};
  LogsView view{dispatch, notifications, logger, files};
  int changes = 0;
};

TEST(LogsView, FollowsTheLogThroughFilterAndLevel) {
  LogsPage page;
  page.simulation->runFor(1s);
  EXPECT_EQ(page.shown(), "one two three four ");
  EXPECT_EQ(page.changes, 1);
  const char* expected[] = {"one two three four ", "one two three four ", "two three four ",
                            "three four ", "four "};
  for (int level = 0; level < 5; ++level) {
    page.onMain([&] { page.view.setLevelFilter(level); });
    EXPECT_EQ(page.shown(), expected[level]) << level;
  }
  page.onMain([&] {
    page.view.setLevelFilter(2);
    page.view.setFilter("AUDIO");
  });
  EXPECT_EQ(page.shown(), "three ");
  page.logger.log("Audio", LogLevel::error, "five");
  page.simulation->runFor(1s);
  EXPECT_EQ(page.shown(), "three five ");
  page.onMain([&] { page.view.clear(); });
  EXPECT_EQ(page.shown(), "");
}

TEST(LogsView, TheLatestRefreshWins) {
  forEachSeed(50, [](Simulation& simulation) {
    LogsPage page(simulation.seed());
    page.onMain([&] {
      for (const char* text : {"one", "two", "", "three"}) page.view.setFilter(text);
    });
    EXPECT_EQ(page.shown(), "three ");
  });
}

TEST(LogsView, ARowIsAsHighAsItsMessage) {
  const auto height = [](std::string message) {
    return LogsView::rowHeight({{}, LogLevel::info, "", std::move(message)});
  };
  std::string umlauts;
  for (int i = 0; i < 159; ++i) umlauts += "ü";
  EXPECT_EQ(height(""), 24);
  EXPECT_EQ(height("a\nb\nc"), 24);
  EXPECT_EQ(height(umlauts), 24);
  EXPECT_EQ(height(umlauts + "ü"), 40);
  EXPECT_EQ(height(umlauts + "ü\n"), 60);
}

TEST(LogsView, ExportsWhatItShowsAndTellsAFailure) {
  LogsPage page;
  page.onMain([&] { page.view.setFilter("Audio"); });
  const std::string path = "/tmp/" + page.view.suggestedExportName();
  std::optional<Status> done;
  page.onMain([&] { page.view.exportTo(path, [&](Status status) { done = status; }); });
  ASSERT_TRUE(done && *done);
  std::string expected;
  for (const auto& entry : page.view.filteredEntries()) expected += entry.formatted() + "\n";
  EXPECT_EQ(page.files.read(path).value(), expected);
  EXPECT_TRUE(text::contains(expected, "[WARN] [Audio] three\n"));
  page.files.makeReadOnly("/tmp");
  page.onMain([&] { page.view.exportTo(path, [&](Status status) { done = status; }); });
  EXPECT_FALSE(*done);
}

TEST(DebugReport, HoldsLogAndPreferencesButNeverTheKey) {
  SimulatedWorld world;
  const Date now = world.dispatch.clock().wallNow();
  const auto logFile = LogFileRedirector::path(world.files, now);
  ASSERT_TRUE(world.files.append(logFile, "a line\nkey=AIza-stored used\nclear AIza-clear"));
  world.settings.set("pref_geminiApiKey", "AIza-clear");
  world.settings.set("pref_b", "");
  world.settings.set("pref_a", "AIza-stored");
  world.settings.set("pref_c", true);
  world.settings.set("nibo_name", "Ada");
  const DebugReport report{world.files, world.settings, "AIza-stored", logFile};
  const std::string head =
      "Kestrin Debug Logs\nGenerated: " + dates::format(now, "yyyy-MM-dd HH:mm:ss") +
      "\nVersion: 1.0.0\n\n";
  const std::string preferences =
      "=== Preferences ===\npref_a: [removed]\npref_b: nil\npref_c: true\n";
  EXPECT_EQ(report.text(now),
            head + "a line\nkey=[removed] used\nclear [removed]\n\n" + preferences);
  ASSERT_TRUE(world.files.remove(logFile));
  ASSERT_TRUE(report.write("/tmp/report.txt", now));
  EXPECT_EQ(world.files.read("/tmp/report.txt").value(), head + preferences);
}

}  // namespace
}  // namespace kestrin
