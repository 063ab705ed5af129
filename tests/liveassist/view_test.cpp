#include "liveassist/live_world.h"

namespace kestrin::test {
namespace {

TEST(LiveAssistView, AConversationIsShownStoredAndHelpedWith) {
  LiveWorld world;
  auto& view = world.view();
  EXPECT_EQ(view.status().text, "Ready to capture");
  world.main([&] {
    view.startCapture();
    EXPECT_EQ(view.status().text, "Starting capture...");
    view.startCapture();
  });
  EXPECT_EQ(view.status().text, "🔴 Capturing...");
  EXPECT_EQ(world.sent("/live-assist/session/start").size(), 1u);
  EXPECT_EQ(world.sent("/memory/live-context").size(), 0u) << "nothing was said yet";
  EXPECT_EQ(world.live->feedbackWindow().thinkingText(), "◐ Listening…");

  world.say(LAAudioChannel::microphone);
  world.say(LAAudioChannel::system);
  EXPECT_EQ(world.shownLines(),
            "[Microphone started]\n[System audio started]\nThis is line 1\nThis is line 2\n");
  ASSERT_EQ(world.sent("/live-assist/transcript").size(), 2u);
  EXPECT_EQ(world.sent("/live-assist/transcript")[1].stringAt("channel"), "system");

  world.simulation->runFor(4s);
  const Json asked = world.sent("/memory/live-context").back();
  EXPECT_EQ(asked.stringAt("transcript"), "[YOU] This is line 1\n[OTHER] This is line 2");
  EXPECT_EQ(asked.stringAt("use_case"), "sales_call");
  EXPECT_EQ(asked.members().size(), 12u);
  EXPECT_EQ(view.panel().feedbackSummary(), "It goes well");
  EXPECT_EQ(world.live->feedbackWindow().suggestionRows(), std::vector<std::string>{"Ask"});

  world.main([&] {
    view.chat().pin(view.chat().messages()[0].id);
    view.chat().pin(view.chat().messages()[0].id);
    EXPECT_EQ(view.status().text, "Pinned to context");
    view.chat().copy(view.chat().messages()[1].id);
    view.editPromptClicked();
    EXPECT_EQ(view.alert()->title, "Cannot Edit Prompt During Active Session");
  });
  EXPECT_EQ(view.sessions().pinnedItems().size(), 1u);
  EXPECT_EQ(world.pasteboard.string().value_or(""), "This is line 2");
  EXPECT_EQ(view.chat().confirmation(), "Copied");

  world.main([&] { view.stopCapture(); });
  std::string order;
  for (const auto& seen : world.http.requests(backend + std::string("/live-assist/session/*"))) {
    const auto body = Json::parse(seen.request.body);
    if (body && body->has("feedbackSnapshot")) order += "snapshot ";
    if (seen.request.url.ends_with("/end")) order += "end ";
  }
  EXPECT_EQ(order, "snapshot end ");
  EXPECT_EQ(view.status().text, "Capture stopped");
  const size_t before = world.sent("/memory/live-context").size();
  world.simulation->runFor(30s);
  EXPECT_EQ(world.sent("/memory/live-context").size(), before);

  world.main([&] { view.newSessionClicked(); });
  EXPECT_EQ(world.shownLines(), "");
  EXPECT_TRUE(view.sessions().pinnedItems().empty() && view.panel().feedbackSummary().empty());
}

TEST(LiveAssistView, WhatComesLateStaysOutOfTheNextSession) {
  LiveWorld world;
  auto& view = world.view();
  world.main([&] { view.panel().selectContact("ann@example.com", "Ann"); });
  world.answer("/memory/live-context",
               ScriptedReply::body(R"({"feedbackSummary":"Late"})").after(20s));
  world.start();
  const auto updates = world.sent("/live-assist/session/update");
  EXPECT_TRUE(std::any_of(updates.begin(), updates.end(), [](const Json& body) {
    return body.stringAt("contactEmail") == "ann@example.com";
  })) << "chosen before there was a session";
  world.say(LAAudioChannel::system);
  world.http.on("POST", "127.0.0.1:8001/*",
                ScriptedReply::body(R"({"transcript":"Too late"})").after(15s));
  world.say(LAAudioChannel::system);
  world.main([&] { view.stopCapture(); });
  world.simulation->runFor(10s);
  EXPECT_FALSE(world.live->feedbackWindow().isVisible()) << "an answer does not bring it back";
  world.main([&] { view.newSessionClicked(); }, 30s);
  EXPECT_EQ(world.shownLines(), "");
}

TEST(LiveAssistView, TheSwitchStopsTheRefreshAloneAndIsRemembered) {
  LiveWorld world;
  world.start();
  world.say(LAAudioChannel::system);
  world.main([&] { world.view().liveAssistToggled(false); });
  const size_t before = world.sent("/memory/live-context").size();
  world.say(LAAudioChannel::system);
  world.simulation->runFor(10s);
  EXPECT_EQ(world.sent("/memory/live-context").size(), before);
  EXPECT_EQ(world.view().chat().messages().size(), 2u);
  EXPECT_EQ(world.view().status().text, "Feedback off");
  EXPECT_FALSE(world.settings.boolean(LiveAssistView::enabledKey, true));
  world.main([&] { world.view().liveAssistToggled(true); }, 4s);
  EXPECT_GT(world.sent("/memory/live-context").size(), before);
}

TEST(LiveAssistView, OnlyTickedFilesGoOutAndOnlyWithTheirSource) {
  LiveWorld world;
  const std::string home = world.files.home();
  ASSERT_TRUE(world.files.writeAtomic(home + "/plan.PDF", "%PDF"));
  ASSERT_TRUE(world.files.writeAtomic(home + "/long.txt", std::string(5000, 'x')));
  ASSERT_TRUE(world.files.writeAtomic(home + "/bad.md", "\xff\xfe"));
  ASSERT_TRUE(world.files.writeAtomic(home + "/other.docx", "PK"));
  world.start();
  world.main([&] {
    world.view().files().attachLocal({home + "/plan.PDF", home + "/long.txt", home + "/bad.md",
                                      home + "/other.docx", home + "/gone.txt", home + "/6.txt"});
  });
  EXPECT_EQ(world.view().files().countText(), "5/5 attached • 5 used for context");
  world.say(LAAudioChannel::system);
  EXPECT_TRUE(world.sent("/memory/live-context").back().objectsAt("documents").empty());
  world.main([&] { world.view().panel().setSource("docs", true); }, 4s);
  const Json asked = world.sent("/memory/live-context").back();
  const auto documents = asked.objectsAt("documents");
  ASSERT_EQ(documents.size(), 2u);
  EXPECT_EQ(documents[0]->stringAt("content_bytes"), text::base64Encode("%PDF"));
  EXPECT_EQ(documents[0]->stringAt("mime_type"), "application/pdf");
  EXPECT_EQ(documents[1]->stringAt("content")->size(), 1800u);
  const auto errors = world.logger.getEntries("Files");
  const auto failures = std::count_if(errors.begin(), errors.end(), [](const LogEntry& entry) {
    return entry.message.starts_with("Failed to read text file: ");
  });
  EXPECT_EQ(failures, 2) << "read once, however often the refresh asks";
}

TEST(LiveAssistView, AStoredSessionIsContinuedAsANewOne) {
  LiveWorld world;
  ASSERT_TRUE(world.files.writeAtomic(world.files.home() + "/there.txt", "text"));
  world.answer("/live-assist/sessions/*",
               R"({"success":true,"sessions":[{"id":"old","title":"[your title]",
                   "transcriptCount":2,"totalDurationMs":65000,"microphoneCount":1,
                   "systemAudioCount":1,"contactEmail":"ann@example.com"}]})");
  world.answer("/live-assist/session/old",
               R"({"success":true,"session":{"id":"old","useCase":"meeting",
                   "contactEmail":"ann@example.com","contactName":"Ann",
                   "feedbackSnapshot":{"feedbackSummary":"So far"}}})");
  world.answer("/live-assist/session/old/transcripts",
               R"({"success":true,"transcripts":[
                   {"text":"Hello","channel":"microphone","metadata":{"emotion":"EMOTION_HAPPY"}},
                   {"text":"Good day","channel":"system","speakerNumber":2}]})");
  auto& view = world.view();
  world.main([&] { view.history().showSessionHistory(); });
  ASSERT_EQ(view.history().cards().size(), 1u);
  const auto card = view.history().cards()[0];
  EXPECT_EQ(card.title, "Live Session (2 segments)");
  EXPECT_EQ(card.duration, "1m 5s");
  EXPECT_EQ(card.counts, "🎤 1 seg  •  🖥 1 seg");
  world.answer("/live-assist/session/old/deliver",
               ScriptedReply::body(R"({"success":false,"error":"no mail"})", 501));
  world.main([&] { view.history().emailReport(card.emailId); });
  EXPECT_EQ(view.history().cards()[0].emailLabel, "Email Failed");

  world.main([&] { view.history().choose("old"); });
  EXPECT_EQ(world.shownLines(),
            "[Loaded previous session]\nHello\nGood day\nSession loaded (2 segments)\n");
  EXPECT_EQ(view.chat().micTranscripts()[0].emotion, "HAPPY");
  EXPECT_EQ(view.panel().header(), "Ann");
  EXPECT_EQ(view.liveAssistUseCase(), LALiveAssistUseCase::meeting);
  EXPECT_EQ(view.panel().feedbackSummary(), "So far");
  EXPECT_EQ(view.status().text, "Session loaded — start capture to continue");
  world.start();
  world.simulation->runFor(4s);
  EXPECT_EQ(world.sent("/live-assist/session/start").size(), 1u);
  EXPECT_EQ(world.sent("/memory/live-context").back().stringAt("transcript"),
            "[OTHER] Good day\n[YOU] Hello");
  world.answer("/live-assist/session/gone", ScriptedReply::lost());
  world.main([&] { view.loadSession("gone"); });
  EXPECT_EQ(view.status().text, "Failed to load session");
}

TEST(LiveAssistView, EachFailureIsSaidAndTheNextStartWorks) {
  LiveWorld world;
  world.audio.setServerRunning(false);
  world.start();
  EXPECT_TRUE(world.view().status().text.starts_with("Error: ")) << world.view().status().text;
  EXPECT_TRUE(world.view().canStart());
  world.audio.setServerRunning(true);
  world.start();
  ASSERT_TRUE(world.view().isCapturing());
  world.http.on("POST", "127.0.0.1:8001/*", ScriptedReply::refused());
  world.say(LAAudioChannel::system);
  EXPECT_TRUE(world.view().status().text.starts_with("ASR error ("));
  world.http.on("POST", "127.0.0.1:8001/*",
                ScriptedReply::body(R"({"transcript":"Here we are again"})"));
  for (const auto& reply : {ScriptedReply::lost(), ScriptedReply::body("<html>"),
                            ScriptedReply::body(R"({"success":false,"error":"full"})", 507),
                            ScriptedReply::body(R"({"success":true,"suggestions":7})")}) {
    world.answer("/memory/live-context", reply);
    world.say(LAAudioChannel::system);
    EXPECT_EQ(world.view().panel().feedbackSummary(), "");
    EXPECT_FALSE(world.view().loop().pacing().isFeedbackRequestInFlight());
  }
  EXPECT_GE(world.view().chat().systemTranscripts().size(), 4u) << "the transcript goes on";
}

}  // namespace
}  // namespace kestrin::test
