#include "platform/desktop_contract.h"
#include "platform/dispatch/simulation.h"
#include "platform/simulated/simulated_input.h"
#include "platform/simulated/simulated_pasteboard.h"
#include "platform/simulated/simulated_workspace.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

class SimulatedWorld final : public DesktopWorld {
 public:
  /// The body may wait, so it runs as a job.
  void run(std::function<void()> body) {
    bool done = false;
    sim->globalQueue()->post([&] {
      body();
      done = true;
    });
    EXPECT_TRUE(sim->runUntil([&] { return done; }, 120s)) << sim->dump();
  }

  KeyMonitor& keys() override { return keyMonitor; }
  SyntheticInput& input() override { return simulatedInput; }
  Pasteboard& pasteboard() override { return board; }
  Workspace& workspace() override { return spaces; }

  void openPrograms() override {
    SimulatedElement field;
    field.path = "/field";
    desktop.addApplication(
        {editorPid(), "org.xfce.mousepad", "Mousepad", "gtk", {{71, "a", {field}, "/field"}}});
    desktop.addApplication({otherPid(), "other", "Other", "gtk", {{72, "b"}}});
  }
  int editorPid() override { return 11; }
  int otherPid() override { return 12; }
  std::string editorText() override {
    const dispatch::order::Unobserved unobserved;
    return desktop.element(editorPid(), "/field")->text;
  }
  void endEditor() override { desktop.removeApplication(editorPid()); }

  void userPressesHoldKey() override { desktop.pressHoldKey(); }
  void userReleasesHoldKey() override { desktop.releaseHoldKey(); }
  void userTapsAnotherKey() override { desktop.pressOtherKey(); }
  void userHolds(const std::string& modifier) override { desktop.heldModifiers.insert(modifier); }
  void userLetsGo(const std::string& modifier) override { desktop.heldModifiers.erase(modifier); }
  bool isHeld(const std::string& modifier) override {
    return desktop.heldModifiers.count(modifier) > 0;
  }
  void userCopies(const std::string& text) override { desktop.userCopies(text); }
  std::string otherProgramFetches() override { return desktop.fetchClipboard().value_or(""); }
  void pause() override { sim->clock().sleep(5ms, "the world to follow"); }

  std::unique_ptr<Simulation> sim = Simulation::make(1);
  SimulatedDesktop desktop{*sim};
  FaultPlan faults;
  SimulatedKeyMonitor keyMonitor{desktop, &faults};
  SimulatedInput simulatedInput{*sim, desktop, &faults};
  SimulatedPasteboard board{*sim, desktop, &faults};
  SimulatedWorkspace spaces{*sim, desktop, &faults};
};

TEST_P(DesktopContract, HoldsInSimulation) {
  SimulatedWorld world;
  world.run([&] { GetParam().second(world); });
}
INSTANTIATE_TEST_SUITE_P(Desktop, DesktopContract, testing::ValuesIn(desktopRules),
                         [](const auto& rule) { return rule.param.first; });

TEST(SimulatedDesktop, APasteTakesWhatIsOnTheClipboardWhenTheProgramReadsIt) {
  SimulatedWorld world;
  world.run([&] {
    world.openPrograms();
    ASSERT_TRUE(world.spaces.activateWindow(71));
    ASSERT_TRUE(world.board.setString("ours"));
    world.desktop.pasteDelay = 50ms;
    ASSERT_TRUE(world.simulatedInput.chord({"control"}, "v"));
    world.desktop.userCopies("theirs");
    world.sim->clock().sleep(100ms, "the paste");
  });
  EXPECT_EQ(world.editorText(), "theirs");
  EXPECT_EQ(world.board.fetches(), 0);
}

TEST(SimulatedDesktop, EditsMoveTheCaretAndAreTold) {
  SimulatedWorld world;
  world.openPrograms();
  auto* field = world.desktop.element(11, "/field");
  std::vector<TextChange> changes;
  auto watching = world.desktop.observeText(
      [&](int, const std::string&, TextChange change, auto) { changes.push_back(change); });
  ASSERT_TRUE(world.desktop.userTypes(11, "/field", "a🎉b"));
  EXPECT_EQ(field->selection, (TextRange{4, 0}));
  field->selection = {1, 2};
  const auto accessibility = SimulatedDesktop::Author::accessibility;
  ASSERT_TRUE(world.desktop.replaceText(11, "/field", {0, 0}, "xy", accessibility));
  EXPECT_EQ(field->selection, (TextRange{3, 2})) << "the user's selection moves along";
  ASSERT_TRUE(world.desktop.userTypes(11, "/field", "-"));
  EXPECT_EQ(field->text, "xya-b");
  EXPECT_EQ(field->selection, (TextRange{4, 0}));
  watching.reset();
  ASSERT_TRUE(world.desktop.replaceText(11, "/field", {99, 5}, "!", accessibility));
  EXPECT_EQ(field->text, "xya-b!");
  ASSERT_EQ(changes.size(), 3u);
  EXPECT_EQ(changes[2].offset, 3);
  EXPECT_EQ(changes[2].removed, 2);
  EXPECT_FALSE(world.desktop.replaceText(99, "/field", {}, "", accessibility));
}

TEST(SimulatedDesktop, FaultsFailOneCall) {
  SimulatedWorld world;
  world.run([&] {
    world.openPrograms();
    world.faults.arm(2);
    EXPECT_TRUE(world.board.setString("a"));
    EXPECT_FALSE(world.spaces.activateWindow(71));
    EXPECT_TRUE(world.spaces.activateWindow(71));
  });
  EXPECT_EQ(world.faults.sites()[1], "workspace.activate");
}

}  // namespace
}  // namespace kestrin
