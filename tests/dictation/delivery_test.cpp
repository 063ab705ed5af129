#include <gtest/gtest.h>

#include "dictation/streaming_request_manager.h"
#include "platform/simulated/simulated_world.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

SimulatedApplication editor(int pid, const std::string& name, const std::string& text) {
  SimulatedElement field;
  field.path = "/text";
  field.text = text;
  return {
      pid, "org.example." + name, name, "gtk", {{uint64_t(pid), name, {field}, "/text", {}, 0}}};
}

/// An editor in front, and the pipeline's last part above it.
struct Desk : SimulatedWorld {
  explicit Desk(uint64_t seed = 1) : SimulatedWorld(seed) {
    desktop.addApplication(editor(42, "Other", ""));
    desktop.addApplication(editor(41, "Notes", "abc"));
    logger.setSink([this](std::string_view line) { printed += std::string(line) + "\n"; });
    manager->onDelivery = [this](const DeliveryReport& report) { reports.push_back(report); };
  }
  ~Desk() { simulation->runFor(120s); }

  SimulatedElement& field(int pid = 41) { return *desktop.element(pid, "/text"); }

  /// Runs `job` off the main queue to its end.
  void run(std::function<void()> job) {
    bool done = false;
    dispatch.globalQueue()->post([&] {
      job();
      done = true;
    });
    ASSERT_TRUE(simulation->runUntil([&] { return done; }, 60s)) << simulation->dump();
  }
  std::string capture() {
    run([this] { request = manager->createRequest(manager->captureCursorContext()); });
    return request->id();
  }
  void chunk(const std::string& text) {
    run([&] { manager->addChunk(text, request->id()); });
  }
  DeliveryReport complete() {
    reports.clear();
    run([this] { manager->completeRequest(request->id()); });
    simulation->runUntil([this] { return !reports.empty(); }, 20s);
    return reports.empty() ? DeliveryReport{} : reports.front();
  }
  std::vector<std::string> inserts() { return desktop.recorded("insert"); }

  Logger logger{dispatch, notifications};
  std::string printed;
  UndeliveredStore undelivered;
  std::shared_ptr<StreamingRequestManager> manager = std::make_shared<StreamingRequestManager>(
      InsertionPorts::from(platform), logger, undelivered);
  std::shared_ptr<StreamingRequest> request;
  std::vector<DeliveryReport> reports;
};

TEST(Scheduler, ANativeTargetTakesTextAboutEverySixtyMilliseconds) {
  Desk desk;
  desk.field().selection = {1, 0};
  desk.capture();
  for (int i = 0; i < 30; ++i) {
    desk.chunk("12345");
    desk.simulation->runFor(10ms);
  }
  // 300 ms hold at most one insert at once and one each 60 to 75 ms (the tick's grain), or each 25
  // characters.
  EXPECT_GE(desk.inserts().size(), 4u);
  EXPECT_LE(desk.inserts().size(), 7u);
  desk.chunk(std::string(30, 'x'));
  desk.simulation->runFor(2ms);
  EXPECT_EQ(desk.inserts().back().substr(desk.inserts().back().size() - 30), std::string(30, 'x'));

  EXPECT_EQ(desk.complete().outcome, DeliveryOutcome::inserted);
  std::string expected = "a";
  for (int i = 0; i < 30; ++i) expected += "12345";
  EXPECT_EQ(desk.field().text, expected + std::string(30, 'x') + "bc");
  EXPECT_TRUE(desk.desktop.recorded("chord").empty());
}

TEST(Scheduler, TheThrottlesEdgesAreExact) {
  for (const bool web : {false, true}) {
    Desk desk;
    if (web) desk.field().role = "AXWebArea";
    desk.capture();
    const size_t burst = web ? 50 : 25;
    desk.chunk("x");
    desk.chunk(std::string(burst - 1, 'y'));
    EXPECT_TRUE(desk.request->hasPendingChunks());
    desk.chunk("z");
    EXPECT_FALSE(desk.request->hasPendingChunks());
  }
}

TEST(Scheduler, AFinishedRequestLingersForASecond) {
  Desk desk;
  desk.capture();
  desk.chunk("Hi");
  EXPECT_EQ(desk.manager->activeRequestCount(), 1);
  EXPECT_EQ(desk.request->displayName(), "⚡ Notes - 2 chars");
  desk.complete();
  EXPECT_EQ(desk.manager->activeRequestCount(), 0);
  EXPECT_EQ(desk.manager->getActiveRequests().size(), 1u);
  EXPECT_EQ(desk.request->displayName(), "✅ Notes - Done (2)");
  desk.simulation->runFor(1100ms);
  EXPECT_TRUE(desk.manager->getActiveRequests().empty());
  desk.chunk("late");
  EXPECT_FALSE(desk.logger.getEntries("not found!").empty());
}

TEST(Insertion, FollowsTheTrackedCaretInUtf16AndTheUsersOwnEdits) {
  Desk desk;
  desk.field().selection = {1, 0};
  desk.capture();
  desk.chunk("🎉");
  desk.simulation->runFor(100ms);
  EXPECT_EQ(desk.request->cursorContext->cursorIndexUTF16(), 3);
  desk.desktop.replaceText(41, "/text", {0, 1}, ">> a", SimulatedDesktop::Author::user);
  desk.simulation->runFor(10ms);
  EXPECT_EQ(desk.request->cursorContext->cursorIndexUTF16(), 6);
  // The next piece waits until the user has left the field alone.
  desk.chunk("!");
  desk.simulation->runFor(100ms);
  EXPECT_EQ(desk.field().text, ">> a🎉bc");
  desk.simulation->runFor(100ms);
  EXPECT_EQ(desk.field().text, ">> a🎉!bc");
  EXPECT_EQ(desk.complete().outcome, DeliveryOutcome::inserted);
}

TEST(Insertion, AFieldThatIsEditedWithoutPauseGetsTheTextInOnePiece) {
  Desk desk;
  desk.capture();
  for (int i = 0; i < 30; ++i) {
    desk.desktop.userTypes(41, "/text", ".");
    if (i % 5 == 0) desk.chunk("<" + std::to_string(i / 5) + ">");
    desk.simulation->runFor(100ms);
  }
  EXPECT_TRUE(desk.inserts().empty());
  EXPECT_EQ(desk.complete().outcome, DeliveryOutcome::pasted);
  EXPECT_NE(desk.field().text.find("<0><1><2><3><4><5>"), std::string::npos) << desk.field().text;
}

TEST(Insertion, ALateInsertIsNeitherRepeatedNorLost) {
  for (const auto hang : {1s, 5s, 30s}) {
    Desk desk;
    desk.field().insertBehaviour = InsertBehaviour::hangs;
    desk.accessibility.hangTime = hang;
    desk.capture();
    desk.chunk("first ");
    desk.simulation->runFor(100ms);
    desk.field().insertBehaviour = InsertBehaviour::works;
    desk.chunk("second");
    const DeliveryReport report = desk.complete();
    desk.simulation->runFor(60s);
    const std::string text = desk.field().text;
    EXPECT_EQ(text.find("first "), text.rfind("first ")) << text;
    if (report.outcome == DeliveryOutcome::clipboard) {
      EXPECT_EQ(report.text, "first second");
      EXPECT_EQ(desk.desktop.clipboard().text, "first second");
      EXPECT_EQ(desk.undelivered.texts().front().text, "first second");
    } else {
      EXPECT_NE(text.find("first "), std::string::npos) << text;
      EXPECT_NE(text.find("second"), std::string::npos) << text;
    }
  }
}

TEST(Paste, AWebEditorGetsEverythingAtTheEndInItsTab) {
  Desk desk;
  auto browser = editor(50, "Chromium", "");
  auto& window = browser.windows.front();
  window.tabs = {{"https://docs.example.com/document/d/ABC/edit#h=1", "Doc", ""},
                 {"https://example.com", "Else", ""}};
  window.elements.front().role = "AXWebArea";
  window.elements.front().acceptsInsert = false;
  browser.toolkit = "Chromium";
  desk.desktop.addApplication(browser);
  desk.capture();
  desk.chunk("Hello ");
  desk.chunk("web");
  desk.desktop.window(50)->activeTab = 1;
  desk.desktop.window(50)->tabs[0].url = "https://docs.example.com/document/d/ABC/view";
  desk.desktop.activate(41);
  desk.simulation->runFor(500ms);
  EXPECT_EQ(desk.field(50).text, "");
  const DeliveryReport report = desk.complete();
  EXPECT_NE(report.outcome, DeliveryOutcome::clipboard) << report.message;
  EXPECT_EQ(desk.field(50).text, "Hello web");
  EXPECT_EQ(desk.desktop.window(50)->activeTab, 0u);
  EXPECT_EQ(desk.desktop.recorded("chord").size(), 1u);
}

TEST(Paste, WhatCannotBeDeliveredIsOnTheClipboardAndKept) {
  const std::vector<std::pair<std::string, std::function<void(Desk&)>>> obstacles{
      {"refuses both",
       [](Desk& desk) {
         desk.field().insertBehaviour = InsertBehaviour::liesTrue;
         desk.field().acceptsPaste = false;
       }},
      {"a password field", [](Desk& desk) { desk.field().role = "AXSecureTextField"; }},
      {"closed", [](Desk& desk) { desk.field().acceptsInsert = false; }}};
  for (const auto& [name, arrange] : obstacles) {
    Desk desk;
    arrange(desk);
    desk.capture();
    desk.desktop.activate(42);
    if (name == "closed") desk.desktop.closeWindow(41);
    desk.chunk("Hello");
    const DeliveryReport report = desk.complete();
    EXPECT_EQ(report.outcome, DeliveryOutcome::clipboard) << name;
    EXPECT_NE(report.message.find("Not delivered to Notes"), std::string::npos) << report.message;
    EXPECT_EQ(desk.desktop.clipboard().text, "Hello") << name;
    ASSERT_EQ(desk.undelivered.texts().size(), 1u) << name;
    EXPECT_EQ(desk.field(42).text, "") << name;
    if (name != "closed") {
      EXPECT_EQ(desk.field().text, "abc") << name;
    }
  }
}

TEST(Paste, OldClipboardContentIsNeverPasted) {
  // Outlives the desk, whose end runs what is still queued.
  std::function<void()> thief;
  Desk desk;
  desk.field().acceptsInsert = false;
  desk.capture();
  desk.chunk("Hello");
  // Another program takes the clipboard again each time that something is put there.
  thief = [&] {
    if (desk.desktop.clipboard().ours) desk.desktop.userCopies("secret");
    desk.dispatch.globalQueue()->postAfter(1ms, thief);
  };
  thief();
  EXPECT_NE(desk.complete().outcome, DeliveryOutcome::pasted);
  EXPECT_EQ(desk.field().text, "abc");
  EXPECT_EQ(desk.undelivered.texts().front().text, "Hello");
  thief = [] {};
}

TEST(Paste, WaitsLongerForALongerText) {
  for (const auto& [length, wait] :
       std::vector<std::pair<size_t, std::string>>{{10, "102ms"}, {2000, "300ms"}}) {
    Desk desk;
    desk.field().role = "AXTerminal";
    desk.field().acceptsInsert = false;
    desk.capture();
    desk.chunk(std::string(length, 'x'));
    desk.complete();
    EXPECT_FALSE(desk.logger.getEntries("Paste wait: " + wait).empty()) << length;
    EXPECT_EQ(desk.desktop.recorded("chord"), std::vector<std::string>{"control+shift+v"});
  }
}

TEST(Paste, NothingInADictationStartsACommandInATerminal) {
  Desk desk;
  desk.field().role = "AXTerminal";
  desk.field().acceptsInsert = false;
  desk.capture();
  desk.chunk("rm -r x\n\x1b[201~ls\n");
  desk.complete();
  EXPECT_EQ(desk.desktop.recorded("paste"), std::vector<std::string>{"rm -r x  [201~ls"});
}

TEST(Request, TwoTakersKeepTheTextsOrder) {
  for (uint64_t seed = 1; seed <= 200; ++seed) {
    Desk desk(seed);
    desk.capture();
    std::string sent;
    for (int i = 0; i < 40; ++i) {
      const std::string piece = std::to_string(i) + " ";
      sent += piece;
      desk.chunk(piece);
      desk.simulation->runFor(std::chrono::milliseconds(desk.simulation->random(40)));
    }
    ASSERT_EQ(desk.complete().outcome, DeliveryOutcome::inserted) << "seed " << seed;
    ASSERT_EQ(desk.field().text, sent + "abc") << "seed " << seed;
  }
}

}  // namespace
}  // namespace kestrin
