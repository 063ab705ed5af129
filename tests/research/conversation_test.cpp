#include <gtest/gtest.h>

#include "research/research_panel_view.h"
#include "research/research_sections.h"
#include "research_world.h"

namespace kestrin::test {
namespace {

using MessageType = ConversationMessage::MessageType;

struct Page : ResearchWorld {
  explicit Page(uint64_t seed = 1) : ResearchWorld(seed) {
    http.on("POST", streamUrl, stream({step("searching", "s"), answer("sum")}));
    onMain([this] { view = std::make_unique<ResearchView>(services); }, 0s);
  }
  ~Page() {
    onMain([this] { view.reset(); });
  }

  void ask(const std::string& query, Duration after = 10s) {
    onMain(
        [&] {
          view->setInput(query);
          view->submitQuery();
        },
        after);
  }
  /// "u:question p:2/2 r:answer e:text", with the steps that are complete.
  std::string shown() const {
    std::vector<std::string> out;
    for (const auto& each : view->conversationMessages()) {
      if (each.type == MessageType::progress) {
        const auto& steps = *each.progressSteps;
        const auto complete = std::count_if(steps.begin(), steps.end(),
                                            [](const auto& step) { return step.isComplete; });
        out.push_back("p:" + std::to_string(complete) + "/" + std::to_string(steps.size()));
      } else {
        const char* kinds = "u?re";
        out.push_back(std::string(1, kinds[int(each.type)]) + ":" + each.content);
      }
    }
    return text::join(out, " ");
  }
  size_t saves() const { return http.requests(saveUrl).size(); }

  std::unique_ptr<ResearchView> view;
};

TEST(ResearchPage, AQuestionGrowsItsStepsAndItsAnswerIsSaved) {
  Page page;
  page.http.on("POST", Page::streamUrl,
               Page::stream({Page::step("starting", "1"), Page::step("dancing", "?"),
                             "data: {\"summary\":\"early\"}\n", Page::step("reading", "2"),
                             Page::answer("sum")}));
  page.ask("  \n ");
  EXPECT_TRUE(page.view->isWelcomeShown());
  page.ask("  why? ", 450ms);
  EXPECT_EQ(page.shown(), "u:why? p:0/2");
  EXPECT_TRUE(page.view->isStopButtonShown());
  EXPECT_EQ(page.view->input(), "");
  page.historyHas({Page::session("stored")});
  page.simulation->runFor(5s);
  EXPECT_EQ(page.shown(), "u:why? p:2/2 r:sum");
  EXPECT_FALSE(page.view->isResearching());
  EXPECT_EQ(page.view->placeholder(), "Ask a follow-up question...");
  const Json body = page.sent(Page::streamUrl);
  EXPECT_EQ(body.dump(), R"({"query":"why?","context":"","user_id":")" + page.deviceId.deviceId() +
                             R"(","max_sources":8})");
  const auto saved = ResearchSession::fromJson(page.sent(Page::saveUrl));
  ASSERT_TRUE(saved);
  EXPECT_EQ(saved->id, page.view->currentSessionId());
  EXPECT_EQ(saved->query + saved->summary, "why?sum");
  EXPECT_TRUE(dates::parseIso8601(saved->createdAt));
  EXPECT_NE(page.view->session("stored"), nullptr) << "the list follows a save";
  EXPECT_TRUE(page.printedLine("✅ Research saved successfully"));
}

TEST(ResearchPage, AFollowUpCarriesTheAnswersAndBelongsToTheSameSession) {
  Page page;
  page.ask("one");
  const auto session = page.view->currentSessionId();
  page.http.on("POST", Page::streamUrl, Page::stream({Page::answer("second")}));
  page.ask("two");
  page.ask("three");
  EXPECT_EQ(page.sent(Page::streamUrl).stringAt("context"), "sum\n\nsecond");
  const Json saved = page.sent(Page::saveUrl);
  EXPECT_EQ(saved.stringAt("query"), "one → two → three");
  EXPECT_EQ(saved.stringAt("id"), session);
  page.onMain([&] { page.view->regenerateClicked(); });
  EXPECT_EQ(page.shown(), "u:one p:1/1 r:sum u:two p:0/0 r:second u:three p:0/0 r:second");
  EXPECT_EQ(page.sent(Page::streamUrl).stringAt("context"), "sum\n\nsecond");
  page.onMain([&] { page.view->newChatClicked(); });
  EXPECT_TRUE(page.view->isWelcomeShown());
  page.onMain([&] { page.view->regenerateClicked(); });
  page.ask("fresh");
  EXPECT_EQ(page.sent(Page::streamUrl).stringAt("context"), "");
  EXPECT_NE(page.view->currentSessionId(), session);
  const auto answer = page.view->conversationMessages().back().id;
  page.onMain([&] { page.view->copyResult(answer); });
  EXPECT_EQ(page.pasteboard.string(), "second");
}

TEST(ResearchPage, FailuresAreMessagesAndSaveNothing) {
  Page page;
  page.http.on("POST", Page::streamUrl, Page::stream({Page::step("reading", "1")}));
  page.ask("a");
  EXPECT_EQ(page.shown(), "u:a p:1/1 e:No results received from research");
  EXPECT_FALSE(page.view->isResearching());
  ResearchService unconfigured{page.dispatch, page.http, page.logger, page.deviceId, page.auth, {}};
  ResearchServices services{page.dispatch, page.random,     page.logger,
                            unconfigured,  page.pasteboard, page.workspace};
  ResearchView other(services);
  page.onMain([&] { other.startResearch("b"); });
  EXPECT_EQ(other.conversationMessages().back().content, "Configuration error");
  EXPECT_EQ(page.saves(), 0u);
}

/// The user acts in the moment in which the agent's piece arrives; the seed decides who is first on
/// each queue. Whatever was under way must not show, be saved, or end what came after it.
TEST(ResearchPage, WhatWasLeftIsHeardNoMore) {
  const std::string stopped = " e:Research stopped. Edit your query and try again.";
  const std::function<void(ResearchView&)> actions[] = {
      [](ResearchView& view) { view.stopResearchClicked(); },
      [](ResearchView& view) {
        view.setInput("new");
        view.submitQuery();
      },
      [](ResearchView& view) { view.newChatClicked(); },
      [](ResearchView& view) {
        view.loadSession(*ResearchSession::fromJson(Page::session("kept", "a → b")));
      },
      [](ResearchView& view) { view.regenerateClicked(); },
  };
  int raced = 0;
  for (uint64_t seed = 1; seed <= 300 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Page page(seed);
    page.http.once("POST", Page::streamUrl,
                   Page::stream({Page::step("reading", "old"), Page::step("reading", "old"),
                                 "data: {\"summary\":\"old\"}\n\n"},
                                7ms)
                       .ending(seed % 2 ? ScriptedReply::End::lost : ScriptedReply::End::complete));
    page.ask("old", 0ms);
    size_t steps = 0;
    bool running = false;
    page.dispatch.mainQueue()->postAfter(7ms * (1 + seed / 5 % 3), [&] {
      running = page.view->isResearching();
      steps = page.view->progressSteps().size();
      if (running) actions[seed % 5](*page.view);
    });
    page.simulation->runFor(10s);
    if (!running) continue;
    if (steps < 1 + seed / 5 % 3) ++raced;
    const auto count = std::to_string(steps);
    const std::string expected[] = {"u:old p:" + count + "/" + count + stopped,
                                    "u:old p:" + count + "/" + count + " u:new p:1/1 r:sum", "",
                                    "u:a r:sum kept u:b", "u:old p:1/1 r:sum"};
    EXPECT_EQ(page.shown(), expected[seed % 5]);
    const bool asksAgain = seed % 5 == 1 || seed % 5 == 4;
    EXPECT_EQ(page.saves(), asksAgain ? 1u : 0u);
    EXPECT_FALSE(page.view->isResearching());
    EXPECT_EQ(page.view->inputFocusRequests(), seed % 5 == 0 ? 1 : 0);
    for (const auto& seen : page.http.requests(Page::streamUrl)) {
      EXPECT_NE(seen.state, SeenRequest::State::running);
    }
  }
  EXPECT_GT(raced, 20) << "the user was never first";
}

TEST(ResearchHistory, SessionsAreListedLoadedAndDeleted) {
  Page page;
  page.historyHas({Page::session("a"), Page::session("b", "one → two → three")});
  page.onMain([&] { page.view->loadResearchHistory(); });
  page.onMain([&] { page.view->historyCardClicked(1); });
  EXPECT_EQ(page.shown(), "u:one r:sum b u:two u:three");
  EXPECT_EQ(page.view->currentSessionId(), "b");
  page.http.on("DELETE", "127.0.0.1:8780/research/*", ScriptedReply::body("", 500).after(5ms));
  // A list that is on its way holds the deleted session still; the next one does not.
  page.http.once("GET", Page::historyUrl,
                 ScriptedReply::json(Json::object({{"sessions", Json::Array{Page::session("a")}}}))
                     .after(20ms));
  page.historyHas({Page::session("b")});
  page.onMain([&] {
    page.view->loadResearchHistory();
    page.view->deleteHistoryItem(0);
  });
  EXPECT_EQ(page.view->researchSessions().size(), 1u);
  EXPECT_EQ(page.http.requests("127.0.0.1:8780/research/a").size(), 1u);
  EXPECT_FALSE(page.view->isWelcomeShown()) << "another session was deleted";
  page.onMain([&] { page.view->deleteHistoryItem(0); });
  EXPECT_TRUE(page.view->isWelcomeShown());
  EXPECT_EQ(page.shown(), "");
  EXPECT_EQ(page.view->currentSessionId(), std::nullopt);
}

TEST(ResearchHistory, AListThatCannotBeReadIsToldAndNotShown) {
  Page page;
  page.historyHas({Page::session("a")});
  page.onMain([&] { page.view->loadResearchHistory(); });
  Json torn = Page::session("b");
  torn.erase("createdAt");
  const struct {
    ScriptedReply reply;
    const char* line;
    size_t left;
  } cases[] = {
      {ScriptedReply::body(""), "❌ No data received for history", 1},
      {ScriptedReply::body("<html>", 502), "❌ Failed to decode research history: ", 1},
      {ScriptedReply::json(Json::object({{"sessions", Json::Array{Page::session("a"), torn}}})),
       "❌ Failed to decode research history: A session's \"createdAt\"", 1},
      {ScriptedReply::refused(), "❌ History load error: ", 0},
  };
  for (const auto& each : cases) {
    page.printed.clear();
    page.http.on("GET", Page::historyUrl, each.reply);
    page.onMain([&] { page.view->loadResearchHistory(); });
    EXPECT_TRUE(page.printedLine(each.line)) << each.line;
    EXPECT_EQ(page.view->researchSessions().size(), each.left) << each.line;
  }
  page.http.on("POST", Page::saveUrl, ScriptedReply::body("full", 507));
  page.ask("q");
  EXPECT_TRUE(page.printedLine("❌ Save failed: full"));
  EXPECT_TRUE(text::contains(page.shown(), "r:sum")) << "the answer stays";
}

TEST(ResearchHistory, SessionsAreGroupedByTheCalendar) {
  const Date now = *dates::parseIso8601("2026-03-10T00:30:00Z");
  std::vector<ResearchSession> sessions;
  for (const char* created :
       {"2026-03-09T23:10:00Z", "2026-03-08T22:50:00Z", "soon", "2026-03-03T00:30:01Z",
        "2026-03-03T00:30:00Z", "2026-03-09T00:00:00.5+01:00", "2026-03-11T12:00:00Z"}) {
    sessions.push_back({.createdAt = created});
  }
  std::string groups;
  // An hour ahead: what was late on the day before is today already.
  for (const auto& section : groupSessionsByDate(sessions, now, "Europe/Paris")) {
    groups += section.title + ":";
    for (const size_t index : section.indexes) groups += std::to_string(index);
    groups += " ";
  }
  EXPECT_EQ(groups, "Today:0 Yesterday:5 This Week:136 Older:24 ");
}

TEST(ResearchLinks, OnlyWebAddressesAreOpened) {
  Page page;
  page.onMain([&] {
    for (const char* url : {"javascript:alert(1)", "file:///etc/passwd", "/bin/sh", "",
                            "https://good.example/a?b=c", "mailto:a@b.example"}) {
      page.view->openURL(url);
    }
  });
  EXPECT_EQ(page.desktop.opened, std::vector<std::string>{"https://good.example/a?b=c"});
}

TEST(ResearchPanel, AsksByItselfAndStopsWhenItIsClosed) {
  Page page;
  ResearchPanelView panel(page.services);
  int saved = 0;
  panel.onSaved = [&] { ++saved; };
  page.http.on("POST", Page::streamUrl,
               Page::stream({Page::step("starting", "1"), Page::step("reading", "2"),
                             Page::answer("**sum**")}));
  page.onMain([&] { panel.startResearch("q"); }, 250ms);
  ASSERT_EQ(panel.steps().size(), 2u);
  EXPECT_EQ(panel.steps()[0].status, ResearchStep::StepStatus::completed);
  EXPECT_EQ(panel.steps()[1].status, ResearchStep::StepStatus::inProgress);
  page.simulation->runFor(5s);
  EXPECT_EQ(panel.steps().back().type, ResearchStep::StepType::complete);
  ASSERT_EQ(panel.summaryBlocks().size(), 1u);
  EXPECT_TRUE(panel.summaryBlocks()[0].spans.at(0).strong);
  EXPECT_EQ(saved, 1);
  EXPECT_EQ(page.sent(Page::saveUrl).stringAt("query"), "q");
  page.onMain([&] { panel.startResearch("again"); }, 150ms);
  page.onMain([&] { panel.close(); });
  EXPECT_FALSE(panel.isShown());
  EXPECT_EQ(page.saves(), 1u);
  page.http.on("POST", Page::streamUrl, ScriptedReply::refused());
  page.onMain([&] { panel.startResearch("third"); });
  EXPECT_TRUE(panel.errorText().starts_with("Could not connect")) << panel.errorText();
  page.onMain([&] { panel.showSession(*ResearchSession::fromJson(Page::session("x"))); });
  EXPECT_EQ(panel.errorText() + panel.summary(), "sum x");
  EXPECT_TRUE(panel.steps().empty());
}

}  // namespace
}  // namespace kestrin::test
