#include "diagnostics/logger.h"

#include <gtest/gtest.h>

#include "platform/simulated/simulated_world.h"
#include "support/seeds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

struct LogDesk : SimulatedWorld {
  Logger logger{dispatch, notifications};
  std::string posted;
  SubscriptionHandle watching =
      notifications.observeAll([this](const std::string& name, const Json& userInfo) {
        EXPECT_TRUE(dispatch.mainQueue()->isCurrent());
        posted += name + " " + std::to_string(userInfo.intAt("count").value_or(0)) + "\n";
      });

  void log(int count, int from = 0) {
    for (int i = 0; i < count; ++i) logger.log("Test", LogLevel::info, std::to_string(from + i));
  }
};

TEST(Logger, TheOldestThousandGoAtOnce) {
  LogDesk desk;
  desk.log(5000);
  EXPECT_EQ(desk.logger.getEntries().size(), 5000U);
  desk.log(1, 5000);
  const auto entries = desk.logger.getEntries();
  ASSERT_EQ(entries.size(), 4001U);
  EXPECT_EQ(entries.front().message, "1000");
  EXPECT_EQ(entries.back().message, "5000");
  desk.log(20'000, 5001);
  EXPECT_EQ(desk.logger.getEntries().size(), 4001U);
  EXPECT_EQ(desk.logger.getEntries().back().message, "25000");
}

TEST(Logger, ABurstIsOneNotificationBehindItsLastLine) {
  LogDesk desk;
  for (int i = 0; i < 100; ++i) {
    desk.log(1, i);
    desk.simulation->runFor(1ms);
  }
  desk.simulation->runFor(148ms);
  EXPECT_EQ(desk.posted, "");
  desk.simulation->runFor(1ms);
  EXPECT_EQ(desk.posted, "logEntriesBatchAdded 100\n");
  desk.simulation->runFor(10s);
  desk.log(2);
  desk.simulation->runFor(10s);
  EXPECT_EQ(desk.posted, "logEntriesBatchAdded 100\nlogEntriesBatchAdded 2\n");
}

TEST(Logger, FiltersByLevelAndByEitherFieldInAnyCase) {
  LogDesk desk;
  desk.logger.log("Audio", LogLevel::debug, "Gerät bereit");
  desk.logger.log("Modes", LogLevel::warning, "no AUDIO here");
  desk.logger.log("Net", LogLevel::error, "bad \xFF byte");
  const auto messages = [&](std::optional<std::string> filter, std::optional<LogLevel> level) {
    std::string out;
    for (const auto& entry : desk.logger.getEntries(filter, level)) out += entry.message + "|";
    return out;
  };
  EXPECT_EQ(messages("audio", {}), "Gerät bereit|no AUDIO here|");
  EXPECT_EQ(messages("GERÄT", {}), "Gerät bereit|");
  EXPECT_EQ(messages({}, LogLevel::warning), "no AUDIO here|bad \uFFFD byte|");
  EXPECT_EQ(messages("audio", LogLevel::error), "");
  EXPECT_EQ(desk.logger.getEntries("bad")[0].formatted(),
            "[" + dates::format(desk.dispatch.clock().wallNow(), "HH:mm:ss.SSS") +
                "] [ERROR] [Net] bad \uFFFD byte");
  const auto entries = desk.logger.getEntries();
  const auto read = logFromJson(Json::parse(logToJson(entries).dump()).value());
  ASSERT_EQ(read.size(), entries.size());
  for (size_t i = 0; i < read.size(); ++i) EXPECT_EQ(read[i].formatted(), entries[i].formatted());
  EXPECT_TRUE(
      logFromJson(Json::parse(R"([{}, 7, {"timestamp": "x", "message": "y"}])").value()).empty());
}

TEST(Logger, ClearTakesWhatWasLoggedBeforeAndNothingElse) {
  forEachSeed(20, [](Simulation& simulation) {
    NotificationCenter notifications;
    Logger logger(simulation, notifications);
    const auto writer = simulation.makeQueue("writer");
    for (int i = 0; i < 1500; ++i) logger.log("Test", LogLevel::info, "old");
    writer->post([&] {
      logger.clear();
      for (int i = 0; i < 1500; ++i) logger.log("Test", LogLevel::info, "new");
    });
    simulation.globalQueue()->post([&] { logger.getEntries(); });
    simulation.runFor(1s);
    EXPECT_EQ(logger.getEntries("old").size(), 0U);
    EXPECT_EQ(logger.getEntries("new").size(), 1500U);
  });
}

TEST(Logger, APrintedTextIsOneEntryAndOneLineOfTheSinkEach) {
  LogDesk desk;
  std::string sink;
  desk.logger.setSink([&](std::string_view line) { sink += std::string(line) + "\n"; });
  desk.logger.print("[Audio] started\n\n❌ lost \xE2\x82");
  EXPECT_EQ(sink, "[Audio] started\n\n❌ lost \uFFFD\n");
  const auto entries = desk.logger.getEntries();
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].source, "Audio");
  EXPECT_EQ(entries[1].level, LogLevel::error);
}

TEST(ParseLogMessage, GuessesLevelAndSource) {
  struct Case {
    const char* line;
    bool isStandardError;
    LogLevel level;
    const char* source;
    const char* message;
  };
  const Case cases[] = {
      {"[Audio] started", false, LogLevel::info, "Audio", "started"},
      {"pre [Audio]  [x] y ", false, LogLevel::info, "Audio", "[x] y"},
      {"[Audio]", false, LogLevel::info, "Audio", "[Audio]"},
      {"[] empty", false, LogLevel::info, "System", "[] empty"},
      {"Network: connection failed", false, LogLevel::error, "Network", "connection failed"},
      {"a : b: c ", false, LogLevel::info, "a", "b: c"},
      {"Network:", false, LogLevel::info, "System", "Network:"},
      {"Network:  ", false, LogLevel::info, "Network", "Network:  "},
      {"plain", false, LogLevel::info, "System", "plain"},
      {"plain", true, LogLevel::error, "System", "plain"},
      {"warning: 0 errors", true, LogLevel::error, "warning", "0 errors"},
      {"⚠️ careful", true, LogLevel::warning, "System", "⚠️ careful"},
      {"🔍 looking", true, LogLevel::debug, "System", "🔍 looking"},
      {"An EXCEPTION", false, LogLevel::error, "System", "An EXCEPTION"},
      {"[UI] src/View.swift:42 drawn", false, LogLevel::info, "View.swift",
       "src/View.swift:42 drawn"},
      {"[UI] at: View.swift:42", false, LogLevel::info, "at", "at: View.swift:42"},
  };
  for (const Case& each : cases) {
    const auto parsed = parseLogMessage(each.line, each.isStandardError);
    EXPECT_EQ(parsed.level, each.level) << each.line;
    EXPECT_EQ(parsed.source, each.source) << each.line;
    EXPECT_EQ(parsed.message, each.message) << each.line;
  }
}

}  // namespace
}  // namespace kestrin
