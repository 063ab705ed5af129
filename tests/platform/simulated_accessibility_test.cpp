#include "platform/simulated/simulated_accessibility.h"

#include "platform/accessibility_contract.h"
#include "platform/dispatch/simulation.h"
#include "platform/simulated/simulated_browser.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

class SimulatedWorld : public TextWorld {
 public:
  explicit SimulatedWorld(uint64_t seed = 1) : sim(Simulation::make(seed)) {}

  /// The body may wait, so it runs as a job.
  void run(std::function<void()> body) {
    bool done = false;
    sim->globalQueue()->post([&] {
      body();
      done = true;
    });
    EXPECT_TRUE(sim->runUntil([&] { return done; }, 120s)) << sim->dump();
  }
  void openWith(SimulatedElement element) {
    element.path = "/field";
    role_ = element.role;
    SimulatedWindow window{7, "Letter", {element}, "/field", {}, 0};
    desktop.addApplication({pid(), "editor", "Editor", "gtk", {window}});
  }

  Dispatch& dispatch() override { return *sim; }
  Accessibility& accessibility() override { return ax; }
  int pid() override { return 42; }
  std::string role() override { return role_; }
  void open(const std::string& text, TextRange selection) override {
    SimulatedElement element;
    element.text = text;
    element.selection = selection;
    openWith(element);
  }
  void userTypes(const std::string& text) override { desktop.userTypes(pid(), "/field", text); }
  std::string text() override {
    const dispatch::order::Unobserved unobserved;
    return desktop.element(pid(), "/field")->text;
  }
  void endProgram() override { desktop.removeApplication(pid()); }

  std::unique_ptr<Simulation> sim;
  SimulatedDesktop desktop{*sim};
  SimulatedAccessibility ax{*sim, desktop};

 private:
  std::string role_;
};

class SimulatedContract : public testing::TestWithParam<void (*)(TextWorld&)> {};

TEST_P(SimulatedContract, Holds) {
  for (uint64_t seed = 1; seed <= 20; ++seed) {
    SimulatedWorld world(seed);
    world.run([&] { GetParam()(world); });
    if (HasFailure()) FAIL() << "seed " << seed;
  }
}

INSTANTIATE_TEST_SUITE_P(Accessibility, SimulatedContract,
                         testing::Values(readsInUtf16, insertsInOrderAndLeavesTheUserAlone,
                                         movesTheUsersCaretWithTheText,
                                         tellsForeignChangesFromItsOwn, saysThatAProgramIsGone));

/// The outcome of one insert at the start, and the text then.
std::pair<InsertOutcome, std::string> insertInto(SimulatedElement element) {
  SimulatedWorld world;
  element.text = "old";
  std::pair<InsertOutcome, std::string> result;
  world.run([&] {
    world.openWith(element);
    result.first = world.ax.insertText(world.field(), 0, "new ");
    if (world.desktop.application(world.pid())) result.second = world.text();
  });
  return result;
}

TEST(SimulatedAccessibility, EachWayToFailHasItsOutcome) {
  SimulatedElement element;
  element.insertBehaviour = InsertBehaviour::liesTrue;
  EXPECT_EQ(insertInto(element), std::pair(InsertOutcome::refused, std::string("old")));
  element.insertBehaviour = InsertBehaviour::refuses;
  EXPECT_EQ(insertInto(element), std::pair(InsertOutcome::refused, std::string("old")));
  element.insertBehaviour = InsertBehaviour::dies;
  EXPECT_EQ(insertInto(element), std::pair(InsertOutcome::unknown, std::string()));
  element.insertBehaviour = InsertBehaviour::works;
  element.role = "AXSecureTextField";
  EXPECT_EQ(insertInto(element), std::pair(InsertOutcome::refused, std::string("old")));
}

TEST(SimulatedAccessibility, AHangingProgramTakesTheTextLate) {
  SimulatedWorld world;
  world.run([&] {
    SimulatedElement element;
    element.insertBehaviour = InsertBehaviour::hangs;
    world.openWith(element);
    const auto field = world.field();
    ForeignChanges foreign(world.ax, field);
    const auto start = world.sim->elapsed();
    EXPECT_EQ(world.ax.insertText(field, 0, "late"), InsertOutcome::unknown);
    EXPECT_EQ(world.sim->elapsed() - start, 2s);
    EXPECT_EQ(world.ax.lateOutcome(field, 1s), InsertOutcome::unknown);
    EXPECT_EQ(world.text(), "");
    EXPECT_EQ(world.ax.lateOutcome(field, 10s), InsertOutcome::delivered);
    EXPECT_EQ(world.text(), "late");
    EXPECT_TRUE(foreign.all().empty());
  });
}

TEST(SimulatedAccessibility, FailsWhereTheFaultPlanSaysSo) {
  SimulatedWorld world;
  FaultPlan faults;
  SimulatedAccessibility ax(*world.sim, world.desktop, &faults);
  world.run([&] {
    world.open("old", {});
    faults.arm(2);
    const auto field = ax.focusedElement(world.pid());
    ASSERT_TRUE(field);
    EXPECT_EQ(ax.insertText(*field, 0, "x"), InsertOutcome::refused);
    EXPECT_EQ(ax.insertText(*field, 0, "x"), InsertOutcome::delivered);
  });
  EXPECT_EQ(faults.sites()[1], "accessibility.insertText");
}

TEST(SimulatedBrowser, FindsItsTabs) {
  SimulatedWorld world;
  SimulatedWindow window{
      8, "Two - Browser", {}, "", {{"http://a/1", "One", "first"}, {"http://b/2", "Two", "second"}},
      1};
  world.desktop.addApplication({43, "browser", "Browser", "Chromium", {window}});
  SimulatedBrowser browser(world.desktop);
  EXPECT_EQ(browser.activeTab(43)->url, "http://b/2");
  EXPECT_EQ(browser.selectTab(43, "http://a", ""), true);
  EXPECT_EQ(browser.pageText(43, 3).value_or(""), "fir");
  EXPECT_EQ(browser.selectTab(43, "", "Two"), true);
  EXPECT_EQ(browser.selectTab(43, "http://c", ""), false);
  EXPECT_FALSE(browser.activeTab(1));
}

}  // namespace
}  // namespace kestrin
