#include "app/desk.h"

namespace kestrin::test {
namespace {

TEST(Results, MarkersOfACommandRunAsActions) {
  Desk desk;
  desk.desktop.installed = {{"firefox-esr", "Firefox ESR", "firefox-esr"}};
  auto& app = desk.startReady();
  desk.agentAnswersMode("command",
                        "[ACTION:open_app app_name=\"Firefox\"][action:VOLUME_UP][ACTION:mute]");
  desk.dictateWhole();
  EXPECT_TRUE(desk.showed("✅ 3 actions executed!")) << desk.shown();
  EXPECT_EQ(desk.text(), "abc") << "a command's text never reaches the caret";
  EXPECT_TRUE(desk.audio.outputMuted());
  EXPECT_EQ(desk.workspace.frontmostApplication()->name, "Firefox ESR");
  const auto& entry = app.mainWindow().historyEntries().front();
  EXPECT_EQ(entry.output, "3 actions executed");
  EXPECT_EQ(entry.appContext, "System");
}

TEST(Results, OnlyTheUserLetsActionsPressKeysAndOnlyForThisRun) {
  Desk desk;
  desk.settings.set("pref_actionTier", Json("elevated"));
  auto& app = desk.startReady();
  const auto pressed = [&] {
    desk.agentAnswersMode("command", "[ACTION:elevate][ACTION:press_key key=\"a\"][ACTION:mute]");
    desk.dictateWhole();
    return desk.desktop.recorded("chord").size();
  };
  const auto tier = [&] { return Json::parse(app.statusJson())->stringAt("action_tier", ""); };
  EXPECT_EQ(pressed(), 0u) << "a stored setting raised the tier by itself";
  EXPECT_EQ(tier(), "safe");
  desk.onMain([&] { app.obey(ControlCommand::elevate); });
  EXPECT_EQ(tier(), "elevated");
  EXPECT_TRUE(desk.showed("Actions may press keys and run scripts until Kestrin ends"));
  EXPECT_EQ(pressed(), 1u);
  desk.onMain([&] { app.obey(ControlCommand::lower); });
  EXPECT_EQ(pressed(), 1u);

  desk.onMain([&] { app.obey(ControlCommand::elevate); });
  desk.settings.set("pref_actionTier", Json("safe"));
  desk.simulation->runFor(1s);
  EXPECT_EQ(tier(), "safe") << "switching it off takes effect at once";
  desk.onMain([&] { app.obey(ControlCommand::elevate); });
  EXPECT_EQ(tier(), "safe");
  EXPECT_TRUE(desk.showed("Key presses and scripts are switched off in the settings"));
  EXPECT_EQ(pressed(), 1u);
}

TEST(Results, AfterFifteenRequestsTheUserIsLearntAnewAndTheirStyleGoesWithTheNext) {
  Desk desk;
  desk.settings.set(UserPreferences::userPersonalityKey, Json("dry"));
  desk.http.on("POST", "127.0.0.1:8780/refresh-personality/*",
               ScriptedReply::body(R"({"success":true,"personality":"warm"})"));
  desk.http.on(
      "POST", "127.0.0.1:8780/classify-archetype/*",
      ScriptedReply::body(
          R"({"success":true,"archetype":{"archetype_id":"x","name":"The X","style_prompt":"Be X."}})"));
  auto& app = desk.startReady();
  const auto lastBody = [&] {
    return *Json::parse(desk.http.requests("127.0.0.1:8765/process/stream").back().request.body);
  };
  for (int i = 0; i < 15; ++i) desk.dictateWhole();
  EXPECT_EQ(lastBody().stringAt("user_archetype_style", "none"), "none");
  EXPECT_EQ(lastBody().stringAt("user_personality", ""), "dry");
  desk.dictateWhole();
  EXPECT_EQ(lastBody().stringAt("user_archetype_style", ""), "Be X.");
  EXPECT_EQ(lastBody().stringAt("user_personality", ""), "warm");
  const auto asked = desk.http.requests("127.0.0.1:8780/refresh-personality/*");
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(Json::parse(asked[0].request.body)->stringAt("current_personality", ""), "dry");
  EXPECT_EQ(app.core().logger.getEntries("Archetype reclassified: The X").size(), 1u);
}

TEST(Results, ACommandWithoutMarkersIsReadAsASentence) {
  Desk desk;
  auto& app = desk.startReady();
  desk.agentAnswersMode("command", "Enable dark mode");
  desk.dictateWhole();
  EXPECT_TRUE(desk.showed("✅ Command executed!")) << desk.shown();
  EXPECT_EQ(desk.controls.asked, std::vector<std::string>{"dark"});
  desk.agentAnswersMode("command", "Make me a sandwich");
  desk.dictateWhole();
  EXPECT_TRUE(desk.showed("❌ Command failed"));
  EXPECT_EQ(app.mainWindow().historyEntries().front().output, "❌ Failed: Make me a sandwich");
}

/// A result whose text never passed through the stream: there is nothing but the result handler.
struct Handler : Desk {
  Handler() {
    startReady();
    services =
        std::make_unique<DictationServices>(DictationServices{dispatch,
                                                              random,
                                                              application->core().logger,
                                                              nullptr,
                                                              application->core().transcription,
                                                              recorder,
                                                              application->core().player,
                                                              application->overlay(),
                                                              application->mainWindow(),
                                                              actions,
                                                              commands,
                                                              paste,
                                                              undelivered,
                                                              "fn",
                                                              {},
                                                              {}});
    services->manager = std::make_shared<StreamingRequestManager>(
        InsertionPorts::from(platform), application->core().logger, undelivered);
    results = std::make_unique<ResultHandler>(*services);
    statuses.clear();
  }
  ~Handler() { simulation->runFor(30s); }

  void handle(TranscriptionResult result) {
    onMain([&] { results->handle({"gone", "Notes", result, std::nullopt}); });
    simulation->runFor(3s);
  }

  UndeliveredStore undelivered;
  AudioRecorder recorder{dispatch, audio, files, settings, logger};
  CaretPaste paste{InsertionPorts::from(platform), logger, undelivered};
  ActionExecutor actions{platform, logger, {}};
  CommandExecutor commands{actions};
  std::unique_ptr<DictationServices> services;
  std::unique_ptr<ResultHandler> results;

 private:
  Logger logger{dispatch, notifications};
};

TEST(Results, ATextThatDidNotPassThroughTheStreamIsPastedAndTheClipboardGivenBack) {
  Handler desk;
  desk.desktop.userCopies("mine");
  desk.handle({.text = " pasted", .mode = "chat", .transcript = "said"});
  EXPECT_EQ(desk.text(), "abc pasted");
  EXPECT_EQ(desk.clipboard(), "mine");
  EXPECT_EQ(desk.statuses.front(), "✅ Done! Ready for next");
  EXPECT_EQ(desk.statuses.back(), "Ready — Hold fn 🌐 to record");
  EXPECT_TRUE(desk.undelivered.empty());

  // A dictation without words changes nothing.
  desk.handle({.text = "", .mode = "chat"});
  EXPECT_EQ(desk.text(), "abc pasted");
  EXPECT_EQ(desk.clipboard(), "mine");
}

TEST(Results, APasteThatNobodyTakesStaysOnTheClipboardAndIsNeverCalledDelivered) {
  Handler desk;
  desk.desktop.userCopies("mine");
  desk.desktop.element(Desk::editorPid, "/text")->acceptsPaste = false;
  desk.handle({.text = "precious", .mode = "chat"});
  EXPECT_EQ(desk.clipboard(), "precious");
  ASSERT_EQ(desk.undelivered.texts().size(), 1u);
  EXPECT_EQ(desk.undelivered.texts()[0].text, "precious");
  EXPECT_TRUE(desk.showed("⚠️ Nothing took the pasted text - the text is on the clipboard"))
      << desk.shown();
}

TEST(Results, APasswordFieldGetsNoTextAndTheClipboardStays) {
  Handler desk;
  desk.desktop.userCopies("mine");
  desk.desktop.element(Desk::editorPid, "/text")->role = "AXSecureTextField";
  desk.handle({.text = "secret?", .mode = "chat"});
  EXPECT_EQ(desk.text(), "abc");
  EXPECT_EQ(desk.clipboard(), "mine");
  EXPECT_TRUE(desk.showed("⚠️ Password fields get no text - the text is kept to be sent again"))
      << desk.shown();
}

TEST(Results, AnOldClipboardIsNeverPastedWhenOursCannotBeSet) {
  Handler desk;
  desk.desktop.userCopies("old");
  FaultPlan plan;
  plan.arm(2);  // the clipboard is read first, then set
  SimulatedPasteboard refusing(desk.dispatch, desk.desktop, &plan);
  CaretPaste paste({desk.dispatch, desk.random, desk.workspace, desk.accessibility, desk.input,
                    refusing, desk.browser},
                   desk.application->core().logger, desk.undelivered);
  std::optional<DeliveryReport> report;
  desk.onMain([&] { paste.pasteText("new", [&](const DeliveryReport& r) { report = r; }); });
  desk.simulation->runFor(3s);
  ASSERT_TRUE(report);
  EXPECT_EQ(report->outcome, DeliveryOutcome::kept);
  EXPECT_EQ(plan.sites().back(), "pasteboard.set");
  EXPECT_EQ(desk.text(), "abc");
}

TEST(Results, ATerminalTakesItsOwnPasteChord) {
  Handler desk;
  desk.desktop.element(Desk::editorPid, "/text")->role = "AXTerminal";
  desk.handle({.text = "ls", .mode = "chat"});
  EXPECT_EQ(desk.desktop.recorded("chord"), std::vector<std::string>{"control+shift+v"});
}

TEST(Results, APasteStartsNothingOnATerminalsCommandLine) {
  Handler desk;
  desk.desktop.element(Desk::editorPid, "/text")->role = "AXTerminal";
  desk.handle({.text = "rm x\r\nls\x1b[201~\u009b~\tü\n", .mode = "chat"});
  EXPECT_EQ(desk.text(), "abcrm x  ls [201~ ~ ü");
}

TEST(Results, AVoiceReplyIsPlayedAndMayLeadToAPage) {
  Handler desk;
  desk.handle({.text = "It is noon.",
               .mode = "chat",
               .transcript = "time?",
               .isVoiceResponse = true,
               .audioResponse = wav::write(Bytes(3200, '\0')),
               .shouldNavigate = "calendar"});
  EXPECT_EQ(desk.statuses.front(), "🔊 Speaking response...");
  EXPECT_EQ(desk.audio.played().size(), 1u);
  EXPECT_TRUE(desk.printedLine("🔊 Voice response playback complete"));
  EXPECT_EQ(desk.application->mainWindow().currentTab(), "calendar");
  EXPECT_EQ(desk.application->mainWindow().historyEntries().front().mode, "Voice Assistant");
  EXPECT_EQ(desk.text(), "abc");
}

}  // namespace
}  // namespace kestrin::test
