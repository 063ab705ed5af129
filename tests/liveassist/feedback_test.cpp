#include <gtest/gtest.h>

#include "identity/keychain_helper.h"
#include "liveassist/live_assist_service.h"
#include "liveassist/live_feedback_window.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

struct Panel : LiveAssistServiceDelegate {
  Panel(std::string given, std::string& shared) : name(std::move(given)), heard(shared) {}
  void didReceiveFeedback(LiveAssistService&, const Json& answer) override {
    heard += name + answer.stringAt("feedbackSummary", "-");
  }
  void didFail(LiveAssistService&, const std::string&) override { heard += name + "!"; }
  std::string name;
  std::string& heard;
};

struct Call : SimulatedWorld {
  static constexpr const char* address = "127.0.0.1:8780/memory/live-context";
  Call() {
    service.delegate = first;
    service.floatingDelegate = second;
    reply(ScriptedReply::body(R"({"success":true,"feedbackSummary":"F"})"));
  }
  void reply(const ScriptedReply& reply) { http.on("POST", address, reply); }
  void start(const std::string& text) {
    run([&] {
      service.appendTurn("Other", text);
      service.start();
    });
  }
  void run(const std::function<void()>& what) { dispatch.mainQueue()->sync(what); }
  /// Of each request so far: whether it asked for feedback.
  std::string asked() {
    std::string out;
    for (const auto& seen : http.requests(address)) {
      out += Json::parse(seen.request.body)->boolAt("generateFeedback").value_or(false) ? 'F' : '.';
    }
    return out;
  }

  Logger logger{dispatch, notifications};
  DeviceIdManager deviceId{files, settings, random};
  KeychainHelper keychain{secrets, logger};
  GeminiKeyManager geminiKey{keychain, settings};
  UserPreferences preferences{settings};
  std::string heard;
  std::shared_ptr<Panel> first = std::make_shared<Panel>("1", heard);
  std::shared_ptr<Panel> second = std::make_shared<Panel>("2", heard);
  LiveAssistService service{dispatch, logger,
                            std::make_shared<LiveContextClient>(
                                dispatch, http, settings, deviceId, geminiKey, preferences,
                                Endpoints{"", "", "", "http://127.0.0.1:8780"})};
};

const std::string longEnough(23, 'x');  // "[Other] " makes it 31 characters

TEST(FeedbackLoop, AsksWhenTheTextChangesAndEveryFifteenSecondsWhileItDoesNot) {
  Call call;
  call.start(longEnough.substr(1));
  call.simulation->runFor(7s);  // 2 s, 3 s, 6 s
  EXPECT_EQ(call.asked(), "...") << "30 characters are too few";
  call.run([&] { call.service.conversationTranscript += "x"; });
  call.simulation->runFor(20s);  // 9 s, ..., 27 s
  EXPECT_EQ(call.asked(), "...F.....F") << "again when more than 15 s have passed";
  call.run([&] { call.service.appendTurn("You", "Yes."); });
  call.simulation->runFor(3s);
  EXPECT_EQ(call.asked(), "...F.....FF");
  call.run([&] {
    call.service.reset();
    EXPECT_EQ(call.service.conversationTranscript, "");
  });
  call.simulation->runFor(10s);
  EXPECT_EQ(call.asked().size(), 11u);
  call.start(longEnough);
  call.run([&] { call.service.start(); });
  call.simulation->runFor(2500ms);
  EXPECT_EQ(call.asked(), "...F.....FFF") << "a new run asks at once, and starts once";
}

TEST(FeedbackLoop, OneRequestForFeedbackIsOutAtATimeAndAStuckOneThirtySecondsAtMost) {
  Call call;
  // Trickles, so that only a bound on the whole exchange ends it.
  ScriptedReply slow = ScriptedReply::body("");
  for (int i = 0; i < 60; ++i) slow.piece(1s, " ");
  call.reply(slow);
  call.start(longEnough);
  for (int i = 0; i < 12; ++i) {
    call.simulation->runFor(3s);
    call.run([&] { call.service.appendTurn("You", "more"); });
  }
  EXPECT_EQ(call.asked(), "F..........F.") << "at 2 s, and from 33 s on";
  EXPECT_TRUE(text::contains(call.heard, "1!2!"));
}

TEST(FeedbackLoop, TheRequestSaysAllThatTheBackendNeeds) {
  Call call;
  call.settings.set("pref_useLocalLLM", true);
  call.settings.set("pref_llmEndpoint", "http://127.0.0.1:8080");
  call.run([&] {
    call.service.contextFilters = {{"docs", true}};
    call.service.pinnedItems = {Json::object({{"id", "p"}})};
    call.service.contactEmail = "ann@example.com";
  });
  call.start("Hi");
  call.simulation->runFor(2s);
  const auto seen = call.http.requests(Call::address).at(0).request;
  EXPECT_EQ(seen.headers[0].second, "application/json");
  const Json body = *Json::parse(seen.body);
  EXPECT_EQ(body.stringAt("device_user_id"), call.deviceId.deviceId());
  EXPECT_EQ(body.stringAt("custom_prompt"), defaultLiveAssistPrompts().at("meeting"));
  EXPECT_TRUE(body.find("gemini_api_key")->isNull());
  std::string keys;
  for (const auto& [key, value] : body.members()) keys += key + " ";
  EXPECT_EQ(keys,
            "device_user_id contact_email transcript documents generateFeedback use_case "
            "custom_prompt filters pinnedItems gemini_api_key custom_llm_url use_local_llm ");
  EXPECT_EQ(call.heard, "1F2F");
}

TEST(FeedbackLoop, BrokenRepliesChangeNothingOnScreen) {
  const std::vector<std::pair<ScriptedReply, const char*>> cases{
      {ScriptedReply::refused(), "1!2!"},
      {ScriptedReply::lost(), "1!2!"},
      {ScriptedReply::body("{\"success\":true}").cutAfter(4), "1!2!"},
      {ScriptedReply::body("<html>"), ""},
      {ScriptedReply::body("[1]"), ""},
      {ScriptedReply::body(R"({"success":"yes"})"), ""},
      {ScriptedReply::body(R"({"success":false,"error":"busy"})", 503), ""},
      {ScriptedReply::body(R"({"success":true,"feedbackSummary":5})"), "1-2-"}};
  for (const auto& [reply, heard] : cases) {
    Call call;
    call.reply(reply);
    call.start(longEnough);
    call.simulation->runFor(2500ms);
    EXPECT_EQ(call.heard, heard);
    EXPECT_FALSE(call.service.pacing().isFeedbackRequestInFlight());
    EXPECT_FALSE(call.service.pacing().lastFeedbackReceivedAt());
  }
}

TEST(FeedbackLoop, AnAnswerForAnEndedCallReachesNobody) {
  Call call;
  call.reply(ScriptedReply::body(R"({"success":true,"feedbackSummary":"old"})").after(1s));
  call.start(longEnough);
  call.simulation->runFor(2500ms);
  call.run([&] { call.service.reset(); });
  call.start("Hi");
  call.simulation->runFor(1s);
  EXPECT_EQ(call.heard, "");
}

TEST(FeedbackWindow, ShowsWhatFitsAndHowOldItIs) {
  SimulatedWorld world;
  LiveFeedbackWindow window(world.dispatch);
  int changes = 0;
  const auto run = [&](const std::function<void()>& what) {
    world.dispatch.mainQueue()->sync(what);
  };
  run([&] {
    window.onChange = [&] { ++changes; };
    window.showListening();
    window.update("", {});
    EXPECT_EQ(window.thinkingText(), "◐ Listening…");
    window.update(std::string(90, 'a'), {"1", std::string(71, 'b'), std::string(70, 'c'), "4"});
  });
  EXPECT_EQ(window.thinkingText(), "");
  EXPECT_EQ(window.summaryLabel(), std::string(90, 'a'));
  EXPECT_EQ(window.suggestionRows(),
            (std::vector<std::string>{"1", std::string(67, 'b') + "...", std::string(70, 'c')}));
  EXPECT_EQ(window.frontRequests(), 1) << "it was visible";
  EXPECT_EQ(window.timestampLabel(), "● now");
  world.simulation->runFor(61s);
  EXPECT_EQ(window.timestampLabel(), "● 1m");
  run([&] {
    window.update(std::string(91, 'e'), {});
    EXPECT_EQ(window.summaryLabel(), std::string(87, 'e') + "...");
    window.dismiss();
  });
  changes = 0;
  world.simulation->runFor(60s);
  EXPECT_EQ(changes, 0) << "nothing ticks behind a hidden window";
  run([&] { window.clear(); });
  EXPECT_TRUE(window.currentSummary().empty() && window.timestampLabel().empty());
}

}  // namespace
}  // namespace kestrin
