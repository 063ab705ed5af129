#include "desk.h"

namespace kestrin::test {
namespace {

TEST(ResearchOfADictation, IsWatchedAndToldWhenItIsReadyAndOpensItsPage) {
  Desk desk;
  auto& window = desk.startReady().mainWindow();
  bool shown = false;
  desk.application->onShow = [&] { shown = true; };
  desk.http.on("GET", "127.0.0.1:8765/research/r1/status",
               ScriptedReply::json(Json::object({{"status", "complete"}, {"query", "why"}})));
  const ResearchSession session{"r1", "why", "because", {}, "2026-03-01T10:00:00Z", "u"};
  desk.http.on("GET", "127.0.0.1:8780/research/history/*",
               ScriptedReply::json(Json::object({{"sessions", Json::Array{session.toJson()}}})));
  desk.agentSends({Desk::event(Json::object({{"research_started", true}, {"research_id", "r1"}})),
                   Desk::chunk("On it.")});
  desk.dictateWhole();
  EXPECT_TRUE(desk.showed("🔬 Researching in the background..."));
  EXPECT_TRUE(desk.showed("✅ Research ready — check Research tab"));
  EXPECT_TRUE(desk.http.requests("127.0.0.1:8765/research/start").empty())
      << "the agent has begun it already";
  ASSERT_EQ(desk.userNotifications.shown.size(), 1u);
  const auto& [notification, click] = desk.userNotifications.shown[0];
  EXPECT_EQ(notification.title + ": " + notification.body, "Research Complete: why");
  ASSERT_TRUE(!notification.actions.empty() && notification.actions.back().first == "default")
      << "a click on the body is told only where it is offered";
  click("default");
  desk.simulation->runFor(1s);
  EXPECT_TRUE(shown);
  EXPECT_EQ(window.currentTab(), "Research");
  EXPECT_EQ(window.research().currentSessionId(), "r1");
  desk.onMain([&] { window.research().showDetails(0); });
  EXPECT_TRUE(window.researchDetail().isShown());
  EXPECT_EQ(window.researchDetail().summary(), "because");
}

}  // namespace
}  // namespace kestrin::test
