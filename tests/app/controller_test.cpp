#include "app/desk.h"

namespace kestrin::test {
namespace {

TEST(Controller, ADictationArrivesAtTheCaretAndIsToldAllTheWay) {
  Desk desk;
  auto& app = desk.startReady();
  EXPECT_EQ(desk.statuses.back(), "✅ Ready — Hold Right Ctrl to record");
  desk.press();
  EXPECT_TRUE(app.delegate().isRecording());
  EXPECT_EQ(app.delegate().statusIcon(), AppDelegate::StatusIcon::recording);
  EXPECT_EQ(desk.statuses.back(), "🔴 Recording in Notes...");
  EXPECT_TRUE(app.overlay().isRecordingActive());

  desk.statuses.clear();
  desk.desktop.releaseHoldKey();
  desk.simulation->runFor(8s);
  EXPECT_EQ(desk.text(), "abcHello there");
  EXPECT_EQ(desk.statuses, (std::vector<std::string>{"⏳ Processing... (1 stream)", "📝 Streaming...",
                                                     "✅ Done! Ready for next",
                                                     "Ready — Hold Right Ctrl to record"}));
  const auto& history = app.mainWindow().historyEntries();
  ASSERT_EQ(history.size(), 1u);
  EXPECT_EQ(history[0].input, "hello");
  EXPECT_EQ(history[0].output, "Hello there");
  EXPECT_EQ(history[0].appContext, "Notes");
  EXPECT_FALSE(app.overlay().isVisible());
  EXPECT_EQ(app.delegate().statusIcon(), AppDelegate::StatusIcon::idle);
}

TEST(Controller, APressBeforeTheServicesAnswerIsRefusedWithAWord) {
  Desk desk;
  desk.http.on("GET", "127.0.0.1:8765/health", ScriptedReply::refused());
  auto& app = desk.start();
  desk.simulation->runFor(50ms);
  desk.dictateWhole();
  EXPECT_TRUE(desk.showed("⏳ Still loading, please wait...")) << desk.shown();
  EXPECT_EQ(desk.streams(), 0u);
  EXPECT_TRUE(desk.showed("Waiting for services... (1/10)"));
  // The application opens in the end, and each dictation reports its own error.
  desk.simulation->runFor(60s);
  EXPECT_TRUE(app.delegate().isAppReady);
  EXPECT_TRUE(desk.showed("⚠️ Some services may be slow"));
}

TEST(Controller, APressEndsAnAbsenceAndTheHomesRestLeavesADictationsStatusAlone) {
  Desk desk;
  auto& app = desk.startReady();
  Home& home = app.pages().home();
  desk.onMain([&] { home.activity().startTracking(); });
  desk.simulation->runFor(700s);
  EXPECT_TRUE(home.activity().isAway());
  desk.dictateWhole();
  EXPECT_FALSE(home.activity().isAway()) << "with a microphone that opens anew for each press";

  const auto giveUp = [&](const std::string& meanwhile) {
    desk.onMain([&] {
      home.view().handleQuickAction("What now?");
      if (!meanwhile.empty()) app.mainWindow().updateStatus(meanwhile, StatusColor::red);
      home.view().closePanel();
    });
    return app.mainWindow().status().text;
  };
  EXPECT_EQ(giveUp(""), "Hold Right Ctrl to ask anything");
  EXPECT_EQ(giveUp("🔴 Recording..."), "🔴 Recording...");
}

TEST(Controller, ATapOrAChordRecordsNothing) {
  Desk desk;
  auto& app = desk.startReady();
  desk.press(150ms);
  EXPECT_TRUE(app.delegate().isRecording());
  EXPECT_FALSE(app.overlay().isVisible()) << "the overlay flickers at every shortcut";
  desk.desktop.pressOtherKey();
  desk.simulation->runFor(10ms);
  EXPECT_FALSE(app.delegate().isRecording());
  desk.simulation->runFor(2s);
  desk.desktop.releaseHoldKey();
  desk.dictate(150ms);
  desk.simulation->runFor(5s);
  EXPECT_EQ(desk.streams(), 0u);
  EXPECT_FALSE(desk.showed("❌ No audio recorded")) << desk.shown();
  EXPECT_EQ(desk.audio.openCaptures(), 0);

  // Once the press counts, other keys change nothing.
  desk.press(500ms);
  desk.desktop.pressOtherKey();
  desk.press(500ms);
  EXPECT_TRUE(app.delegate().isRecording());
  desk.desktop.releaseHoldKey();
  desk.simulation->runFor(8s);
  EXPECT_EQ(desk.text(), "abcHello there");
}

TEST(Controller, AReplyThatIsBeingSpokenIsStoppedBeforeTheMicrophoneOpens) {
  Desk desk;
  auto& app = desk.startReady();
  const auto wav = wav::write(Bytes(16000 * 2 * 20, '\0'));
  const auto speakReply = [&] {
    desk.onMain([&] { app.core().player.play(wav, {}); });
    desk.simulation->runFor(300ms);
    ASSERT_TRUE(app.core().player.isPlaying());
  };
  speakReply();
  desk.press(100ms);
  EXPECT_FALSE(app.delegate().isRecording()) << "recording before the reply has faded";
  EXPECT_TRUE(app.delegate().isStartingRecording());
  desk.press(900ms);
  EXPECT_TRUE(app.delegate().isRecording());
  EXPECT_FALSE(app.core().player.isPlaying());
  desk.desktop.releaseHoldKey();
  desk.simulation->runFor(8s);
  EXPECT_EQ(desk.text(), "abcHello there");

  speakReply();
  desk.press(70ms);
  desk.desktop.releaseHoldKey();
  desk.simulation->runFor(2s);
  EXPECT_TRUE(desk.printedLine("⚠️ Fn released before recording could start – aborting"));
  EXPECT_FALSE(app.delegate().isRecording());
}

TEST(Controller, ARecorderThatFailsAfterAReplyIsTriedOnceMore) {
  for (const bool alsoReleased : {false, true}) {
    Desk desk;
    auto& app = desk.startReady();
    desk.onMain([&] { app.core().player.play(wav::write(Bytes(16000 * 2 * 20, '\0')), {}); });
    desk.simulation->runFor(300ms);
    desk.audio.refuseCaptures(Error{"Audio", 9, "busy"});
    desk.press(200ms);
    EXPECT_FALSE(app.delegate().isRecording());
    desk.audio.refuseCaptures(std::nullopt);
    if (alsoReleased) desk.desktop.releaseHoldKey();
    desk.simulation->runFor(1s);
    // A release in between has cancelled the start: no microphone stays open without a key held.
    EXPECT_EQ(app.delegate().isRecording(), !alsoReleased);
    EXPECT_TRUE(desk.printedLine("retrying with engine reset"));
    desk.desktop.releaseHoldKey();
  }
}

TEST(Controller, ASoundServerThatTakesItsTimeHoldsNothingUp) {
  Desk desk;
  auto& app = desk.startReady();
  desk.audio.setOpeningTime(2s);
  desk.press(1s);
  EXPECT_TRUE(app.delegate().isStartingRecording());
  const auto before = desk.simulation->clock().steadyNow();
  desk.onMain([] {});
  EXPECT_EQ(desk.simulation->clock().steadyNow(), before) << "the main queue did not wait";
  desk.desktop.releaseHoldKey();
  desk.simulation->runFor(3s);
  EXPECT_TRUE(desk.printedLine("⚠️ Fn released before recording could start – aborting"));
  EXPECT_FALSE(app.delegate().isRecording());
  EXPECT_EQ(desk.audio.openCaptures(), 0) << "nothing listens without a key held";

  // A press while the microphone of the one before is still being opened.
  desk.press(500ms);
  desk.desktop.releaseHoldKey();
  desk.simulation->runFor(100ms);
  desk.press(6s);
  EXPECT_TRUE(app.delegate().isRecording());
  desk.desktop.releaseHoldKey();
  desk.simulation->runFor(8s);
  EXPECT_EQ(desk.text(), "abcHello there");
  EXPECT_EQ(desk.audio.openCaptures(), 0);
}

TEST(Controller, AMicrophoneThatCannotBeOpenedIsToldAndTheNextPressWorks) {
  Desk desk;
  auto& app = desk.startReady();
  desk.audio.refuseCaptures(Error{"Audio", 9, "The device is busy"});
  desk.dictateWhole();
  EXPECT_TRUE(desk.showed("❌ Recording failed: The device is busy")) << desk.shown();
  EXPECT_FALSE(app.delegate().isStartingRecording());
  desk.audio.refuseCaptures(std::nullopt);
  desk.dictateWhole();
  EXPECT_EQ(desk.text(), "abcHello there");
}

TEST(Controller, ARecordingThatFailedIsKeptAndSentAgain) {
  Desk desk;
  auto& app = desk.startReady();
  desk.http.once("POST", "127.0.0.1:8001/transcribe/pcm", ScriptedReply::refused());
  desk.dictate();
  desk.simulation->runFor(2s);
  EXPECT_EQ(app.undelivered().recordings().size(), 1u);
  EXPECT_TRUE(app.mainWindow().historyEntries().empty());
  ASSERT_EQ(app.overlay().rows().size(), 1u);
  EXPECT_EQ(app.overlay().rows()[0].button, OverlayRow::Button::sendAgain);
  EXPECT_TRUE(desk.statuses.back().starts_with("❌ ")) << desk.statuses.back();
  desk.simulation->runFor(3s);
  EXPECT_EQ(desk.statuses.back(), "Ready — Hold Right Ctrl to record");

  desk.onMain([&] { app.overlay().sendAgain(); });
  desk.simulation->runFor(8s);
  EXPECT_EQ(desk.text(), "abcHello there");
  EXPECT_TRUE(app.undelivered().empty());
  desk.onMain([&] { app.obey(ControlCommand::retry); });
  EXPECT_TRUE(desk.showed("Nothing to send again"));
}

TEST(Controller, TwoDictationsRunSideBySideWhateverTheOrder) {
  for (uint64_t seed = 1; seed <= 50; ++seed) {
    Desk desk(seed);
    auto& app = desk.startReady();
    auto slow = ScriptedReply::events({});
    slow.piece(4s, Desk::chunk(" slow"));
    desk.http.once("POST", "127.0.0.1:8765/process/stream", slow);
    desk.dictate();
    desk.simulation->runFor(300ms);
    desk.desktop.activate(42);
    desk.press();
    EXPECT_EQ(desk.statuses.back(), "🔴 Recording in Other... (1 active)");
    EXPECT_TRUE(app.overlay().isRecordingActive());
    EXPECT_EQ(app.overlay().rows().size(), 1u);
    desk.desktop.releaseHoldKey();
    desk.simulation->runFor(1500ms);
    EXPECT_TRUE(desk.showed("⏳ Processing... (2 streams)"));
    EXPECT_TRUE(desk.showed("Ready - 1 stream active")) << desk.shown();
    desk.simulation->runFor(12s);
    EXPECT_EQ(desk.text(41), "abc slow") << "seed " << seed;
    EXPECT_EQ(desk.text(42), "Hello there") << "seed " << seed;
    EXPECT_EQ(desk.statuses.back(), "Ready — Hold Right Ctrl to record");
  }
}

TEST(Controller, ACancelledDictationEndsWithoutTextHistoryOrPaste) {
  Desk desk;
  auto& app = desk.startReady();
  auto slow = ScriptedReply::events({});
  slow.piece(2s, Desk::chunk("too late"));
  desk.http.on("POST", "127.0.0.1:8765/process/stream", slow);
  desk.dictate();
  desk.simulation->runFor(500ms);
  ASSERT_EQ(app.overlay().rows().size(), 1u);
  desk.onMain([&] { app.overlay().stopStreamingRequest(app.overlay().rows()[0].id); });
  desk.simulation->runFor(12s);
  EXPECT_EQ(desk.text(), "abc");
  EXPECT_TRUE(app.mainWindow().historyEntries().empty());
  EXPECT_TRUE(app.undelivered().empty());
  EXPECT_TRUE(desk.desktop.recorded("chord").empty());

  // While recording, cancel drops the recording.
  desk.press();
  desk.onMain([&] { app.obey(ControlCommand::cancel); });
  EXPECT_FALSE(app.delegate().isRecording());
  desk.desktop.releaseHoldKey();
  desk.simulation->runFor(5s);
  EXPECT_EQ(desk.streams(), 1u);
}

TEST(Controller, OtherProgramsPressTheKeyOverTheBusAndReadTheStatus) {
  Desk desk;
  auto& app = desk.startReady();
  desk.speak(2s);
  desk.onMain([&] { app.obey(ControlCommand::toggle); });
  desk.simulation->runFor(1s);
  auto status = Json::parse(app.statusJson()).value();
  EXPECT_EQ(status.boolAt("ready"), true);
  EXPECT_EQ(status.boolAt("recording"), true);
  EXPECT_EQ(status.stringAt("status_line"), "🔴 Recording in Notes...");
  EXPECT_EQ(status.objectAt("services")->boolAt("asr"), true);
  desk.onMain([&] { app.obey(ControlCommand::toggle); });
  desk.simulation->runFor(10ms);
  EXPECT_EQ(Json::parse(app.statusJson())->intAt("active"), 1);
  desk.simulation->runFor(8s);
  EXPECT_EQ(Json::parse(app.statusJson())->intAt("active"), 0);
  EXPECT_EQ(desk.text(), "abcHello there");
}

TEST(Controller, AnEditorsProjectGoesWithTheRequest) {
  Desk desk;
  desk.files.put("/home/user/Projects/kestrin/src/main.swift", "");
  desk.files.put("/home/user/Projects/kestrin/node_modules/x.js", "");
  desk.desktop.addApplication(
      {77,
       "code",
       "Visual Studio Code",
       "Chromium",
       {{77, "main.swift - kestrin - Visual Studio Code", {{.path = "/text"}}, "/text", {}, 0}}});
  desk.startReady();
  desk.dictateWhole();
  const auto requests = desk.streamRequests();
  ASSERT_EQ(requests.size(), 1u);
  const auto body = Json::parse(requests[0].request.body).value();
  const auto context = Json::parse(body.stringAt("app_context", "")).value();
  EXPECT_EQ(context.stringAt("workspace_path"), "/home/user/Projects/kestrin");
  EXPECT_EQ(context.stringsAt("workspace_files"), std::vector<std::string>{"src/main.swift"});
  EXPECT_EQ(context.stringAt("active_file_name"), "main.swift");
  EXPECT_GE(context.intAt("audio_duration_ms").value_or(0), 900);
}

TEST(Controller, HowTheUserSoundsGoesWithTheRequestAndIsKept) {
  Desk desk;
  auto& app = desk.startReady();
  auto& profile = app.core().behavioralProfile;
  profile.update(LAAudioChannel::microphone, {{"HAPPY", 1}}, {});
  desk.dictateWhole();
  const auto body = Json::parse(desk.streamRequests().at(0).request.body).value();
  EXPECT_EQ(body.stringAt("voice_profile_summary"), profile.voiceProfileSummary());
  desk.onMain([&] { app.stop(); });
  desk.simulation->runFor(1s);
  EXPECT_EQ(desk.settings.get("behavioralProfile_user"), profile.userProfile().toJson());
}

TEST(Controller, WithoutAHoldKeyTheApplicationStaysUp) {
  Desk healthy;
  healthy.faults.arm(0);
  healthy.startReady();
  const auto sites = healthy.faults.sites();
  const auto keyMonitor = std::find(sites.begin(), sites.end(), "keys.start");
  ASSERT_NE(keyMonitor, sites.end());
  Desk desk;
  desk.settings.set("pref_holdKey", "fn");
  desk.faults.arm(static_cast<int>(keyMonitor - sites.begin()) + 1);
  auto& app = desk.start();
  desk.simulation->runFor(5s);
  EXPECT_TRUE(desk.showed("❌ Failed to setup key monitoring")) << desk.shown();
  EXPECT_TRUE(app.delegate().isAppReady);
  EXPECT_EQ(desk.statuses.back(), "✅ Ready — Hold fn 🌐 to record") << "fn stands as written";
}

}  // namespace
}  // namespace kestrin::test
