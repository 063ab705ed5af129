#include <gtest/gtest.h>

#include "dictation/action_executor.h"
#include "dictation/command_executor.h"
#include "platform/simulated/simulated_world.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

struct Hands : SimulatedWorld {
  Hands() {
    desktop.addApplication({41, "notes", "Notes", "gtk", {{41, "Notes", {}, "", {}, 0}}});
    desktop.installed = {{"firefox-esr", "Firefox ESR", "firefox-esr"}};
  }
  ~Hands() { simulation->runFor(60s); }

  bool run(const Json& action) {
    const bool started = actions.execute(action);
    simulation->runFor(1s);
    return started;
  }
  bool run(const char* type) { return run(Json::object({{"type", type}})); }
  bool command(const std::string& text) {
    const bool started = commands.execute(text, std::nullopt);
    simulation->runFor(1s);
    return started;
  }
  bool logged(const std::string& line) const { return !logger.getEntries(line).empty(); }

  Logger logger{dispatch, notifications};
  std::vector<std::string> typed;
  std::vector<Bytes> spoken;
  ActionExecutor actions{platform,
                         logger,
                         {.typeText = [this](std::string text) { typed.push_back(text); },
                          .playAudio = [this](Bytes wav) { spoken.push_back(wav); }}};
  CommandExecutor commands{actions};
};

TEST(Actions, HaveTheirEffectsOnTheDesktop) {
  Hands hands;
  EXPECT_TRUE(hands.run(Json::object({{"type", "open_app"}, {"app_name", "Browser"}})));
  EXPECT_EQ(hands.workspace.frontmostApplication()->name, "Firefox ESR");
  EXPECT_TRUE(hands.run(Json::object({{"type", "type_text"}, {"text", "hi"}})));
  EXPECT_EQ(hands.typed, std::vector<std::string>{"hi"});
  EXPECT_TRUE(hands.run(Json::object({{"type", "clipboard"}, {"text", "copied"}})));
  EXPECT_EQ(hands.desktop.clipboard().text, "copied");
  EXPECT_TRUE(hands.run("notification"));
  EXPECT_EQ(hands.userNotifications.shown.at(0).first.title, "Kestrin");

  ASSERT_TRUE(hands.audio.setOutputVolume(95));
  EXPECT_TRUE(hands.run("volume_up"));
  EXPECT_EQ(hands.audio.outputVolume(), 100);
  EXPECT_TRUE(hands.run("volume_down"));
  EXPECT_EQ(hands.audio.outputVolume(), 90);

  hands.run("dark_mode_off");
  hands.run("brightness_down");
  hands.run("screenshot");
  hands.run("sleep");
  ASSERT_EQ(hands.controls.asked.size(), 4u);
  EXPECT_EQ(hands.controls.asked[0], "light");
  EXPECT_EQ(hands.controls.asked[1], "brightness -6");
  EXPECT_TRUE(hands.controls.asked[2].starts_with("screenshot /home/user/Desktop/screenshot_2026"));
  EXPECT_EQ(hands.controls.asked[3], "suspend");

  EXPECT_TRUE(hands.run(Json::object({{"type", "speak"}, {"text", "; rm -rf /"}})));
  EXPECT_EQ(hands.spoken.size(), 1u);
  EXPECT_EQ(hands.speech.spoken().at(0).first, "; rm -rf /");
}

TEST(Actions, OfAModelOpenAddressesAndFoldersButNeverFiles) {
  Hands hands;
  hands.files.put("/home/user/Music/evil.desktop", "");
  hands.run(Json::object({{"type", "open_url"}, {"url", "https://example.com"}}));
  hands.run(Json::object({{"type", "open_url"}, {"url", "/home/user/Music/evil.desktop"}}));
  hands.run(Json::object({{"type", "open_url"}, {"url", "file:///home/user/Music/evil.desktop"}}));
  for (const char* bad :
       {"javascript:alert(1)", "data:text/html,x", "x-terminal://run", "--new-window", "ftp://a.b/",
        "https://a b", "http:///etc/passwd", "https://a.b/\nx", "", "mailto:a@b?attach=/etc/passwd",
        "mailto:a@b?subject=x\ny", "smb://host/share", "$(reboot)"}) {
    hands.run(Json::object({{"type", "open_url"}, {"url", bad}}));
  }
  hands.run(Json::object({{"type", "open_url"}, {"url", "mailto:a@b?subject=x"}}));
  hands.command("ACTION: OPEN_FOLDER\nTARGET: ~/Music/evil.desktop");
  hands.command("ACTION: OPEN_FOLDER\nTARGET: Music");
  EXPECT_EQ(hands.desktop.opened,
            (std::vector<std::string>{"https://example.com", "mailto:a@b?subject=x",
                                      "/home/user/Music"}));
}

TEST(Actions, OfTheElevatedTierNeedItAndAScriptNeedsTheUsersWord) {
  Hands hands;
  const auto key = Json::object({{"type", "press_key"},
                                 {"key", "Enter"},
                                 {"modifiers", Json::arrayOf(std::vector<std::string>{"cmd"})}});
  const auto script = Json::object({{"type", "run_script"}, {"script", "date"}});
  EXPECT_FALSE(hands.run(key));
  EXPECT_TRUE(hands.logged("press_key blocked — elevated tier required"));
  EXPECT_FALSE(hands.run(script));
  EXPECT_TRUE(hands.logged("run_script blocked — elevated tier required"));
  EXPECT_TRUE(hands.desktop.recorded("chord").empty());

  hands.actions.currentTier = SafetyTier::elevated;
  EXPECT_TRUE(hands.run(key));
  EXPECT_EQ(hands.desktop.recorded("chord"), std::vector<std::string>{"control+Return"});
  hands.processes.on("sh", ScriptedProgram{});
  EXPECT_TRUE(hands.run(script));
  ASSERT_EQ(hands.userNotifications.shown.size(), 1u);
  EXPECT_EQ(hands.userNotifications.shown[0].first.body, "date");
  EXPECT_TRUE(hands.processes.seen().empty()) << "it ran before the user agreed";
  hands.userNotifications.shown[0].second("cancel");
  hands.simulation->runFor(1s);
  EXPECT_TRUE(hands.processes.seen().empty());
  hands.userNotifications.shown[0].second("run");
  hands.simulation->runFor(1s);
  EXPECT_EQ(hands.processes.seen().size(), 1u);
}

TEST(Actions, NeverStartAProgramForWhatAModelCallsAnApplication) {
  Hands hands;
  for (const char* name : {"; rm -rf ~", "$(reboot)", "`reboot`", "--version", "/bin/sh", "../evil",
                           "evil.desktop", "notes\n--help", "", "\xff"}) {
    for (const char* type : {"open_app", "close_app"}) {
      hands.run(Json::object({{"type", type}, {"app_name", name}}));
    }
    hands.command(std::string("ACTION: OPEN_APP\nTARGET: ") + name);
    hands.command(std::string("open ") + name);
  }
  EXPECT_TRUE(hands.processes.seen().empty());
  EXPECT_EQ(hands.workspace.frontmostApplication()->name, "Notes");
}

TEST(Actions, AScriptThatCannotBeSeenWholeIsNotOffered) {
  Hands hands;
  hands.actions.currentTier = SafetyTier::elevated;
  for (const std::string& script :
       {std::string(500, 'a'), "date" + std::string(12, '\n') + "reboot",
        "date" + std::string(60, ' ') + "; reboot", std::string("date\r; reboot"),
        std::string("date \u202e; toober"), std::string("da\u200bte"), std::string("date\x1b[8m"),
        std::string("da\xffte"), std::string("x\u2028y"), std::string("x\u0085y")}) {
    hands.run(Json::object({{"type", "run_script"}, {"script", script}}));
  }
  EXPECT_TRUE(hands.userNotifications.shown.empty());
  hands.run(Json::object({{"type", "run_script"}, {"script", "for i in 1 2; do\n\techo ü\ndone"}}));
  EXPECT_EQ(hands.userNotifications.shown.size(), 1u);
}

TEST(Actions, ThatCannotRunAreLoggedOrLeftAlone) {
  Hands hands;
  EXPECT_FALSE(hands.run(Json::object({{"name", "open_app"}})));
  EXPECT_TRUE(hands.logged("missing 'type' in action"));
  EXPECT_FALSE(hands.run("frobnicate"));
  EXPECT_TRUE(hands.logged("Unknown action type: frobnicate"));
  EXPECT_FALSE(hands.run(Json::object({{"type", "open_app"}, {"app_name", 3}})));
  EXPECT_TRUE(hands.run(Json::object({{"type", "open_app"}, {"app_name", "No such thing"}})));
  EXPECT_TRUE(hands.logged("open_app: "));
}

TEST(Commands, MarkersBecomeActionsInTheirOrder) {
  const auto actions = parseActionMarkers(
      "Sure! [ACTION:open_app app=\"Safari\"][action:VOLUME  level=\"30\" level=\"40\"] [ACTION:x");
  ASSERT_EQ(actions.size(), 2u);
  EXPECT_EQ(actions[0], Json::object({{"type", "open_app"}, {"app", "Safari"}}));
  EXPECT_EQ(actions[1], Json::object({{"type", "volume"}, {"level", "40"}}));
  EXPECT_TRUE(parseActionMarkers("[ACTION:]\xff").empty());
}

TEST(Commands, TakeTheLineFormAndPlainSentences) {
  Hands hands;
  EXPECT_TRUE(hands.command("ACTION: OPEN_URL\nTARGET: example.com"));
  EXPECT_TRUE(hands.command("ACTION: open_url TARGET: http://plain.example"));
  EXPECT_EQ(hands.desktop.opened,
            (std::vector<std::string>{"https://example.com", "http://plain.example"}));
  EXPECT_TRUE(hands.command("Open Firefox."));
  EXPECT_EQ(hands.workspace.frontmostApplication()->name, "Firefox ESR");
  EXPECT_TRUE(hands.command("please mute"));
  EXPECT_TRUE(hands.audio.outputMuted());
  EXPECT_TRUE(hands.command("Unmute now"));
  EXPECT_FALSE(hands.audio.outputMuted());
  EXPECT_TRUE(hands.command("ENABLE DARK MODE"));
  for (const char* nonsense : {"ACTION: FORMAT_DISK\nTARGET: /", "dark mode", "", "open "}) {
    EXPECT_FALSE(hands.command(nonsense)) << nonsense;
  }
}

}  // namespace
}  // namespace kestrin
