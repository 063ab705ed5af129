#include "app/desk.h"

namespace kestrin::test {
namespace {

/// A desk whose services the companion runs.
struct CompanionDesk : Desk {
  explicit CompanionDesk(uint64_t seed = 1) : Desk(seed) {
    settings.set("pref_serviceHost", "companion");
    processes.on("kestrin-companion", [this](const ProcessSpec&) {
      return ScriptedProgram{.exitCode = 1, .endless = companionLives};
    });
  }
  bool companionLives = true;
};

std::vector<Duration> timesOf(const Desk& desk, const std::string& where) {
  std::vector<Duration> times;
  for (const auto& seen : desk.http.requests(where)) times.push_back(seen.at.sinceStart);
  return times;
}

TEST(Start, TellsEachStepAndOpensWhenAllAnswer) {
  CompanionDesk desk;
  std::vector<std::string> told;
  auto& app = desk.startReady();
  EXPECT_EQ(
      desk.shown(),
      "Initializing services...\nReady — Hold Right Ctrl to record\n"
      "Starting Kestrin Intelligence...\nInitializing AI models...\nConnecting to services...\n"
      "✅ Ready — Hold Right Ctrl to record");
  auto& overlay = app.startSequence().loadingOverlay();
  EXPECT_EQ(overlay.phase(), LoadingOverlayView::Phase::revealing);
  EXPECT_EQ(overlay.services(),
            (LoadingOverlayView::Services{ServiceState::ready, ServiceState::ready,
                                          ServiceState::ready, ServiceState::ready}));
  EXPECT_EQ(overlay.llmName(), "Natural language service (Off)");
  EXPECT_LT(desk.simulation->elapsed(), 100ms) << "the start waits for something of its own";
}

TEST(Start, WhoeverStartsItSeesItUnlessItWasToStayInTheTray) {
  for (const bool staysInTray : {false, true}) {
    Desk desk;
    Application app(desk.platform, {.staysInTray = staysInTray});
    int shown = 0;
    app.onShow = [&] { ++shown; };
    desk.onMain([&] { app.start(); });
    EXPECT_TRUE(desk.simulation->runUntil([&] { return app.delegate().isAppReady; }, 30s));
    EXPECT_EQ(shown, staysInTray ? 0 : 1);
    desk.onMain([&] { app.stop(); });
    desk.simulation->runFor(120s);
  }
}

TEST(Start, RetriesAfterGrowingPausesAndOpensAllTheSame) {
  for (const char* missing :
       {"127.0.0.1:8001/", "127.0.0.1:8765/health", "127.0.0.1:8082/health"}) {
    Desk desk;
    desk.settings.set("pref_useLocalLLM", true);
    desk.http.on("GET", missing, ScriptedReply::refused());
    auto& app = desk.start();
    desk.simulation->runFor(41s);
    EXPECT_FALSE(app.delegate().isAppReady);
    desk.dictate();
    EXPECT_EQ(desk.statuses.back(), "⏳ Still loading, please wait...");
    EXPECT_FALSE(app.delegate().isRecording());
    desk.simulation->runFor(10s);
    EXPECT_TRUE(app.delegate().isAppReady);
    EXPECT_TRUE(desk.showed("Waiting for services... (10/10)"));
    EXPECT_EQ(desk.statuses.back(), "⚠️ Some services may be slow");
    EXPECT_EQ(app.startSequence().loadingOverlay().phase(), LoadingOverlayView::Phase::dismissed);

    const auto times = timesOf(desk, missing);
    std::vector<int> pauses;
    for (size_t i = 1; i < times.size(); ++i) {
      const auto pause = (times[i] - times[i - 1]) / 1ms;
      if (pause > 100) pauses.push_back(static_cast<int>(pause) / 100);
    }
    EXPECT_EQ(pauses, (std::vector<int>{25, 30, 35, 40, 45, 50, 50, 50, 50, 50})) << missing;
    desk.simulation->runFor(60s);
    EXPECT_EQ(timesOf(desk, missing).size(), times.size()) << "it never stops trying";
  }
}

TEST(Start, AServiceThatComesLateOpensTheApplicationThen) {
  Desk desk;
  desk.settings.set("pref_useLocalLLM", true);
  desk.http.on("GET", "127.0.0.1:8082/health", ScriptedReply::refused());
  auto& app = desk.start();
  desk.simulation->runFor(4s);
  EXPECT_EQ(app.startSequence().loadingOverlay().services(),
            (LoadingOverlayView::Services{ServiceState::ready, ServiceState::pending,
                                          ServiceState::ready, ServiceState::ready}));
  EXPECT_EQ(Json::parse(app.statusJson())->objectAt("services")->boolAt("llm"), false);
  desk.http.on("GET", "127.0.0.1:8082/health", ScriptedReply::body("{}"));
  desk.simulation->runFor(4s);
  EXPECT_TRUE(app.delegate().isAppReady);
  EXPECT_EQ(app.startSequence().warmupRetryCount(), 2);
  EXPECT_TRUE(desk.printedLine("🔥 LLM pre-warm failed") ||
              desk.printedLine("⚠️ LLM pre-warm failed: "));
}

TEST(Start, AHostThatFailsIsStartedAgainEveryTwoSeconds) {
  CompanionDesk desk;
  desk.http.on("GET", "127.0.0.1:8001/", ScriptedReply::refused());
  auto& app = desk.start();
  desk.simulation->runFor(62s);  // a companion that never answers has failed by then
  EXPECT_FALSE(app.delegate().isAppReady);
  EXPECT_EQ(app.startSequence().loadingOverlay().services().agent, ServiceState::failed);
  EXPECT_FALSE(desk.showed("Restarting services..."));
  desk.simulation->runFor(2s);
  EXPECT_TRUE(desk.showed("Restarting services...")) << desk.shown();
  EXPECT_FALSE(desk.showed("Connecting to services...")) << desk.shown();
  desk.http.on("GET", "127.0.0.1:8001/", ScriptedReply::body("{}"));
  desk.simulation->runFor(5s);
  EXPECT_TRUE(app.delegate().isAppReady) << desk.shown();
}

TEST(Start, AContainerTellsItsStepsAndIsTriedAgainAfterAFailure) {
  Desk desk;
  desk.settings.set("pref_serviceHost", "container");
  desk.settings.set("pref_useLocalLLM", true);
  desk.http.on("GET", "127.0.0.1:8001/", ScriptedReply::refused());
  bool pulls = false;
  desk.processes.on("docker", [&](const ProcessSpec& spec) {
    if (spec.arguments.at(0) == "pull" && !pulls) return ScriptedProgram{.exitCode = 1};
    if (spec.arguments.at(0) == "run")
      desk.http.on("GET", "127.0.0.1:8001/", ScriptedReply::body("{}"));
    return ScriptedProgram{};
  });
  auto& app = desk.start();
  desk.simulation->runFor(1s);
  EXPECT_EQ(desk.statuses.back(), "Failed to download ASR model") << desk.shown();
  EXPECT_EQ(app.startSequence().loadingOverlay().services(),
            (LoadingOverlayView::Services{ServiceState::failed, ServiceState::failed,
                                          ServiceState::failed, ServiceState::pending}));
  desk.simulation->runFor(900ms);
  EXPECT_FALSE(desk.showed("Restarting services..."));
  pulls = true;
  desk.simulation->runFor(5s);
  EXPECT_TRUE(desk.showed("Restarting services..."));
  EXPECT_TRUE(desk.showed("Initializing AI models..."));
  EXPECT_TRUE(app.delegate().isAppReady) << desk.shown();
  bool stopped = false;
  desk.onMain([&] { app.stop([&] { stopped = true; }); });
  desk.simulation->runFor(1s);
  EXPECT_TRUE(stopped);
  EXPECT_EQ(desk.processes.seen().back().spec.arguments.at(0), "stop");
}

TEST(Start, WhatOnlyTheUserCanDecideIsAskedByANotification) {
  Desk desk;
  auto& app = desk.startReady();
  int accepted = 0;
  desk.onMain([&] {
    app.startSequence().hooks.onPrompt({.title = "Start Docker Desktop",
                                        .text = "It is not running.",
                                        .acceptLabel = "Open Docker",
                                        .declineLabel = "Later",
                                        .command = {},
                                        .accept = [&] { ++accepted; }});
  });
  desk.simulation->runFor(1s);
  ASSERT_EQ(desk.userNotifications.shown.size(), 1u);
  const auto& [shown, answer] = desk.userNotifications.shown[0];
  ASSERT_EQ(shown.actions.size(), 2u);
  EXPECT_EQ(shown.actions[0].second, "Open Docker");
  answer(shown.actions[1].first);
  answer("default");
  desk.simulation->runFor(1s);
  EXPECT_EQ(accepted, 0);
  answer(shown.actions[0].first);
  answer(shown.actions[0].first);
  desk.simulation->runFor(1s);
  EXPECT_EQ(accepted, 1) << "accepting is done once";
}

TEST(Start, TheLanguageModelIsKeptWarm) {
  Desk desk;
  desk.startReady();
  EXPECT_EQ(timesOf(desk, "127.0.0.1:8082/health").size(), 1u);
  desk.simulation->runFor(119s);
  EXPECT_EQ(timesOf(desk, "127.0.0.1:8082/health").size(), 1u);
  desk.simulation->runFor(2s);
  EXPECT_EQ(timesOf(desk, "127.0.0.1:8082/health").size(), 2u);
  EXPECT_TRUE(desk.printedLine("🔥 LLM pre-warmed and ready"));
  desk.onMain([&] { desk.application->stop(); });
  desk.simulation->runFor(10min);
  EXPECT_EQ(timesOf(desk, "127.0.0.1:8082/health").size(), 2u);
}

TEST(Start, QuittingAtAnyMomentEndsEverything) {
  uint64_t seed = 0;
  for (const auto moment :
       {0ms, 1ms, 5ms, 40ms, 200ms, 3000ms, 61'000ms, 63'000ms, 0ms, 1ms, 5ms, 0ms, 1ms, 5ms}) {
    CompanionDesk desk(++seed);
    desk.http.on("GET", "127.0.0.1:8001/", ScriptedReply::refused());
    auto& app = desk.start();
    std::vector<std::string> order;
    app.startSequence().hooks.stopPresence = [&] {
      order.push_back(desk.processes.seen().empty() || desk.processes.seen()[0].exitCode
                          ? "no child"
                          : "child");
    };
    desk.simulation->runFor(moment);
    const auto children = desk.processes.seen().size();
    desk.onMain([&] { app.stop(); });
    desk.simulation->runFor(60s);
    ASSERT_EQ(order.size(), 1u);
    if (moment == 3000ms) {
      EXPECT_EQ(order[0], "child") << "presence goes offline first";
    }
    EXPECT_LE(desk.processes.seen().size(), children);
    for (const auto& child : desk.processes.seen()) EXPECT_TRUE(child.exitCode) << "an orphan";
    EXPECT_FALSE(app.delegate().isAppReady);
  }
}

TEST(Start, NotificationButtonsReachThoseWhoActOnThem) {
  Desk desk;
  auto& app = desk.startReady();
  auto& notices = app.notices();
  std::string acted;
  notices.answerCall = [&](const Json& info, std::function<void(const Status&)> done) {
    acted += "answer " + info.stringAt("callerName", "") + ";";
    done(fail("CallService", 1, "no room"));
  };
  notices.declineCall = [&](const Json&) { acted += "decline;"; };
  const auto observer = desk.notifications.observe("CallBackRequested", [&](const Json& info) {
    acted += "back " + info.stringAt("callerName", "") + ";";
  });
  const auto info = Json::object({{"callerName", "Ada"}});
  desk.onMain([&] {
    notices.show({.title = "📞 Incoming Call", .category = NotificationCategories::incomingCall},
                 info);
    notices.show({.title = "Call", .category = NotificationCategories::postCallSummary}, info);
  });
  desk.simulation->runFor(1s);
  auto& shown = desk.userNotifications.shown;
  ASSERT_EQ(shown.size(), 2u);
  const size_t call = shown[0].first.title == "Call" ? 1 : 0;
  EXPECT_EQ(shown[call].first.actions[0],
            (std::pair<std::string, std::string>{"ANSWER_CALL", "Answer"}));
  shown[call].second("ANSWER_CALL");
  shown[call].second("DECLINE_CALL");
  shown[1 - call].second("CALL_BACK");
  desk.simulation->runFor(1s);
  EXPECT_EQ(acted, "answer Ada;decline;back Ada;");
  bool failureLogged = false;
  for (const auto& entry :
       app.core().logger.getEntries("Answer from notification failed: no room")) {
    failureLogged = failureLogged || entry.level == LogLevel::error;
  }
  EXPECT_TRUE(failureLogged);
}

}  // namespace
}  // namespace kestrin::test
