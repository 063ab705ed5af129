#include <gtest/gtest.h>

#include "diagnostics/terminal/terminal_view.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

TEST(TerminalFlags, StandAnywhereAndUnknownOnesAreDropped) {
  const auto flags = parseFlags({"show", "-v", "--limit", "abc", "-n", "7", "--nope", "id", "-vj",
                                 "--filter", "some", "-t", "-f", "-r", "-a", "-e"});
  EXPECT_TRUE(flags.verbose && flags.tail && flags.follow && flags.raw && flags.all &&
              flags.exporting);
  EXPECT_FALSE(flags.json);
  EXPECT_EQ(flags.limit, 7);
  EXPECT_EQ(flags.filter, "some");
  EXPECT_EQ(flags.positionalArgs, (std::vector<std::string>{"show", "abc", "id"}));
  const auto ends = parseFlags({"-n", "--filter"});
  EXPECT_EQ(ends.limitOr(), 10);
  EXPECT_FALSE(ends.filter);
}

struct TerminalWorld : SimulatedWorld {
  explicit TerminalWorld(uint64_t seed = 1) : SimulatedWorld(seed) {
    main([this] {
      view.emplace(TerminalServices{dispatch,
                                    http,
                                    processes,
                                    settings,
                                    deviceId,
                                    auth,
                                    preferences,
                                    {"http://127.0.0.1:8001", "http://127.0.0.1:8082",
                                     "http://127.0.0.1:8765", "http://127.0.0.1:8780"},
                                    "0.1.0",
                                    "/data",
                                    [this] { return logger.getEntries(); },
                                    {},
                                    {}});
      view->clearTerminal();
    });
  }
  ~TerminalWorld() {
    main([this] { view.reset(); });
  }
  void main(const std::function<void()>& what) {
    dispatch.mainQueue()->sync(what);
    simulation->runFor(60s);
  }
  /// What the line printed, below the welcome.
  std::string run(const std::string& line) {
    size_t before = 0;
    main([&] {
      before = view->output().size();
      view->processCommand(line);
    });
    EXPECT_EQ(view->pending(), 0) << line;
    std::string text;
    for (size_t i = before; i < view->output().size(); ++i) text += view->output()[i].text;
    return text;
  }
  static bool has(const std::string& text, const std::string& part) {
    return text::contains(text, part);
  }

  Logger logger{dispatch, notifications};
  DeviceIdManager deviceId{files, settings, random};
  FirebaseAuthService auth{dispatch, http, files, logger, {"http://127.0.0.1:9099", "key"}};
  UserPreferences preferences{settings};
  std::optional<TerminalView> view;
};

TEST(Terminal, TheInputLineRemembersWhatWasEntered) {
  TerminalWorld world;
  world.main([&] {
    auto& view = *world.view;
    view.navigateHistory(1);
    EXPECT_EQ(view.input(), "");
    for (const char* line : {"stats", "config", " config ", "  "}) {
      view.setInput(line);
      view.executeCommand();
    }
    EXPECT_EQ(view.commandHistory(), (std::vector<std::string>{"stats", "config"}));
    view.navigateHistory(1);
    view.navigateHistory(1);
    view.navigateHistory(1);
    EXPECT_EQ(view.input(), "stats");
    view.navigateHistory(-1);
    EXPECT_EQ(view.input(), "config");
    view.navigateHistory(-1);
    view.navigateHistory(-1);
    EXPECT_EQ(view.input(), "");
  });
}

TEST(Terminal, EveryCommandOfTheHelpIsThereAndOthersAreNot) {
  TerminalWorld world;
  world.http.on("*", "*", ScriptedReply::body(R"({"success":true})"));
  for (const auto& word : terminalCommands()) {
    if (word == "shell" || word == "docker") continue;
    EXPECT_FALSE(TerminalWorld::has(world.run(word), "Unknown command")) << word;
  }
  const auto help = world.run("HELP");
  for (const auto& section : terminalHelp()) {
    EXPECT_TRUE(TerminalWorld::has(help, section.title));
    for (const auto& entry : section.entries)
      EXPECT_TRUE(TerminalWorld::has(help, entry.description));
  }
  EXPECT_EQ(world.run("frobnicate now"),
            "Unknown command: frobnicate\nType 'help' for available commands\n\n");
  EXPECT_EQ(world.run("shell"), "Usage: shell <command>\n\n");
  EXPECT_TRUE(TerminalWorld::has(world.run("notes burn"), "Unknown subcommand: burn"));
}

TEST(Terminal, LogsAreFilteredCutAndPrintedAsJson) {
  TerminalWorld world;
  EXPECT_TRUE(TerminalWorld::has(world.run("logs"), "💡 Tip: Use the app to generate logs"));
  for (int i = 0; i < 30; ++i)
    world.logger.log("Agent", LogLevel::info, "line " + std::to_string(i));
  world.logger.log("Audio", LogLevel::error, "It \"broke\"\n\x1b[2J");
  world.logger.log("ASR", LogLevel::debug, "a Transcript");
  const auto all = world.run("logs");
  EXPECT_TRUE(TerminalWorld::has(all, "Showing 20 of 32 log entries"));
  EXPECT_FALSE(TerminalWorld::has(all, "line 11"));
  EXPECT_TRUE(TerminalWorld::has(world.run("logs asr -v"), "Showing 1 of 1"));
  EXPECT_TRUE(TerminalWorld::has(world.run("logs agent --filter 29"), "Showing 1 of 1"));
  EXPECT_TRUE(TerminalWorld::has(world.run("logs xyz"), "APPLICATION LOGS (filter: xyz)"));
  const auto json = world.run("logs error -n 5 --json");
  const auto parsed = Json::parse(json.substr(json.find('[')));
  ASSERT_TRUE(parsed) << json;
  ASSERT_EQ(parsed->items().size(), 1u);
  EXPECT_EQ(parsed->items()[0].stringAt("level"), "ERROR");
  EXPECT_TRUE(TerminalWorld::has(json, "\n    \"source\": \"Audio\""));
}

TEST(Terminal, RecordsComeFromTheBackendAndAFailureIsSaid) {
  TerminalWorld world;
  world.http.on(
      "GET", "127.0.0.1:8780/notes/device_*",
      ScriptedReply::body(
          R"({"success":true,"notes":[{"id":"AB12cd","content":"# Lake\ndeep","createdAt":"2026-03-01T10:00:00Z"},
          {"id":"ffff","content":"other","createdAt":"x"}]})"));
  world.http.on(
      "GET", "127.0.0.1:8780/history/device_*",
      ScriptedReply::body(
          R"({"success":true,"history":[{"timestamp":"2026-03-01T10:00:00Z","mode":"email","transcript":"said"},
          {"timestamp":"x","mode":"chat","transcript":"hi"}]})"));
  EXPECT_TRUE(TerminalWorld::has(world.run("notes show AB12"), "# Lake\ndeep"))
      << "ids in any case";
  EXPECT_TRUE(TerminalWorld::has(world.run("notes --filter lake"), "Showing 1 of 2 notes"));
  const auto history = world.run("history --filter email");
  EXPECT_TRUE(TerminalWorld::has(history, "said") && !TerminalWorld::has(history, "hi\n"));
  const auto json = world.run("history -j");
  EXPECT_TRUE(Json::parse(json.substr(json.find('[')))) << json;
  for (const auto& reply : {ScriptedReply::refused(), ScriptedReply::body("<html>", 502),
                            ScriptedReply::body(R"({"history":7})")}) {
    world.http.on("*", "*", reply);
    for (const char* line : {"history", "research", "notes", "calls", "firestore sync"}) {
      world.main([&] { world.view->clearTerminal(); });
      world.run(line);
      EXPECT_TRUE(world.view->hasFailed()) << line;
    }
  }
  world.http.on("*", "*", ScriptedReply::refused());
  EXPECT_TRUE(TerminalWorld::has(world.run("health"), "Health check complete."));
}

}  // namespace
}  // namespace kestrin::test
