#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <vector>

#include "platform/key_monitor.h"
#include "platform/pasteboard.h"
#include "platform/synthetic_input.h"
#include "platform/text/text.h"
#include "platform/workspace.h"

namespace kestrin {

/// A desktop with an editor and another program in front of it, be it scripted or real, and a
/// user's hands.
class DesktopWorld {
 public:
  virtual ~DesktopWorld() = default;
  virtual KeyMonitor& keys() = 0;
  virtual SyntheticInput& input() = 0;
  virtual Pasteboard& pasteboard() = 0;
  virtual Workspace& workspace() = 0;

  virtual void openPrograms() = 0;
  virtual int editorPid() = 0;
  virtual int otherPid() = 0;
  virtual std::string editorText() = 0;
  virtual void endEditor() = 0;

  virtual void userPressesHoldKey() = 0;
  virtual void userReleasesHoldKey() = 0;
  virtual void userTapsAnotherKey() = 0;
  virtual void userHolds(const std::string& modifier) = 0;
  virtual void userLetsGo(const std::string& modifier) = 0;
  virtual bool isHeld(const std::string& modifier) = 0;
  virtual void userCopies(const std::string& text) = 0;
  /// Another program reads the clipboard.
  virtual std::string otherProgramFetches() = 0;
  virtual void pause() = 0;

  /// Waits for what must come; the limit only ends a broken run.
  bool eventually(const std::function<bool()>& holds) {
    for (int i = 0; i < 4000; ++i) {
      if (holds()) return true;
      pause();
    }
    return holds();
  }
  uint64_t windowOf(int pid) {
    for (const auto& window : workspace().windows()) {
      if (window.pid == pid) return window.id;
    }
    return 0;
  }
  bool becomesActive(uint64_t window) {
    return eventually(
        [&] { return workspace().activeWindow().value_or(WindowInfo{}).id == window; });
  }
  uint64_t frontWindow() {
    const auto windows = workspace().windows();
    return windows.empty() ? 0 : windows[0].id;
  }
};

/// Collects what a key monitor says, from whatever thread.
class SeenEdges {
 public:
  std::function<void(KeyEdge)> collector() {
    return [this](KeyEdge edge) {
      const std::lock_guard lock(mutex_);
      edges_.push_back(edge);
    };
  }
  std::vector<KeyEdge> all() {
    const std::lock_guard lock(mutex_);
    return edges_;
  }

 private:
  std::mutex mutex_;
  std::vector<KeyEdge> edges_;
};

inline void holdKeyGivesOneEdgeEachWay(DesktopWorld& world) {
  using E = KeyEdge;
  SeenEdges seen;
  const auto names = world.keys().availableKeys();
  ASSERT_FALSE(names.empty());
  EXPECT_EQ(names[0], "Right Ctrl");
  EXPECT_EQ(world.keys().start("No Such Key", seen.collector()).error().domain, "KeyMonitor");
  ASSERT_TRUE(world.keys().start("Right Ctrl", seen.collector()));
  world.userTapsAnotherKey();  // not while held: nobody's business
  world.userPressesHoldKey();
  world.userTapsAnotherKey();
  world.userReleasesHoldKey();
  world.userPressesHoldKey();
  world.userReleasesHoldKey();
  const std::vector<E> expected = {E::holdDown, E::otherKey, E::holdUp, E::holdDown, E::holdUp};
  EXPECT_TRUE(world.eventually([&] { return seen.all().size() >= expected.size(); }));
  world.keys().stop();
  world.userPressesHoldKey();
  world.userReleasesHoldKey();
  EXPECT_EQ(seen.all(), expected);
}

inline void ownChordIsInvisibleToTheMonitor(DesktopWorld& world) {
  using E = KeyEdge;
  SeenEdges seen;
  ASSERT_TRUE(world.keys().start("Right Ctrl", seen.collector()));
  world.userPressesHoldKey();
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(world.input().chord({"control", "shift"}, "v"));
  world.userReleasesHoldKey();
  world.userPressesHoldKey();  // ours did not use up what is the user's
  world.userReleasesHoldKey();
  const std::vector<E> expected = {E::holdDown, E::holdUp, E::holdDown, E::holdUp};
  EXPECT_TRUE(world.eventually([&] { return seen.all().size() >= expected.size(); }));
  world.keys().stop();
  EXPECT_EQ(seen.all(), expected);
  EXPECT_EQ(world.input().chord({"hyper9"}, "v").error().domain, "SyntheticInput");
  EXPECT_EQ(world.input().chord({"control"}, "nosuchkey").error().domain, "SyntheticInput");
}

inline void clipboardIsServedAndCounted(DesktopWorld& world) {
  Pasteboard& board = world.pasteboard();
  world.userCopies("theirs äöü");
  EXPECT_TRUE(world.eventually([&] { return board.string() == "theirs äöü"; }));
  EXPECT_FALSE(board.isOwner());
  ASSERT_TRUE(board.setString("ours 🎉"));
  EXPECT_EQ(board.string(), "ours 🎉");
  EXPECT_TRUE(board.isOwner());
  EXPECT_EQ(board.fetches(), 0) << "what we read ourselves does not count";
  EXPECT_FALSE(board.waitForFetch(0, std::chrono::milliseconds(20)));
  EXPECT_EQ(world.otherProgramFetches(), "ours 🎉");
  EXPECT_TRUE(board.waitForFetch(0, std::chrono::seconds(20)));
  EXPECT_EQ(world.otherProgramFetches(), "ours 🎉");
  EXPECT_TRUE(board.waitForFetch(1, std::chrono::seconds(20)));
  EXPECT_EQ(board.fetches(), 2);
  ASSERT_TRUE(board.setString("again"));
  EXPECT_EQ(board.fetches(), 0);
  world.userCopies("theirs now");
  EXPECT_TRUE(world.eventually([&] { return !board.isOwner(); }));
  EXPECT_EQ(board.string(), "theirs now");
  ASSERT_TRUE(board.setString("once more"));
  ASSERT_TRUE(board.clear());
  EXPECT_FALSE(board.isOwner());
  EXPECT_EQ(board.string(), std::nullopt);
}

inline void bigTextsPassWhole(DesktopWorld& world) {
  std::string big;
  for (int i = 0; big.size() < 1200000; ++i) big += "line " + std::to_string(i) + " 🎉\n";
  big += "end";
  ASSERT_TRUE(world.pasteboard().setString(big));
  EXPECT_TRUE(world.otherProgramFetches() == big);
  EXPECT_TRUE(world.pasteboard().waitForFetch(0, std::chrono::seconds(20)));
  EXPECT_EQ(world.pasteboard().fetches(), 1);
  world.userCopies(big + "!");
  EXPECT_TRUE(world.eventually([&] { return world.pasteboard().string() == big + "!"; }));
}

inline void windowsComeToTheFront(DesktopWorld& world) {
  world.openPrograms();
  Workspace& workspace = world.workspace();
  const uint64_t editor = world.windowOf(world.editorPid());
  const uint64_t other = world.windowOf(world.otherPid());
  ASSERT_TRUE(editor && other);
  ASSERT_TRUE(workspace.activateWindow(editor));
  EXPECT_TRUE(world.becomesActive(editor));
  EXPECT_EQ(workspace.frontmostApplication().value_or(RunningApplication{}).pid, world.editorPid());
  EXPECT_TRUE(world.eventually([&] { return world.frontWindow() == editor; }));
  EXPECT_EQ(workspace.application(world.editorPid())->desktopId, "org.xfce.mousepad");
  ASSERT_TRUE(workspace.activateApplication(world.otherPid()));
  EXPECT_TRUE(world.becomesActive(other));
  EXPECT_TRUE(world.eventually([&] { return world.frontWindow() == other; }));
  EXPECT_GT(workspace.screenSize()->x, 100);

  world.endEditor();
  EXPECT_TRUE(world.eventually([&] { return world.windowOf(world.editorPid()) == 0; }));
  EXPECT_EQ(workspace.activateWindow(editor).error().domain, "Workspace");
  EXPECT_FALSE(workspace.activateApplication(world.editorPid()));
  EXPECT_TRUE(world.becomesActive(other));
}

inline void pasteChordPastesAndGivesHeldKeysBack(DesktopWorld& world) {
  world.openPrograms();
  ASSERT_TRUE(world.workspace().activateApplication(world.editorPid()));
  // The window manager takes its time; until then the other program would get the keys.
  ASSERT_TRUE(world.becomesActive(world.windowOf(world.editorPid())));
  const auto paste = [&](const std::string& text) {
    ASSERT_TRUE(world.pasteboard().setString(text));
    ASSERT_TRUE(world.input().chord({"control"}, "v"));
    EXPECT_TRUE(world.pasteboard().waitForFetch(0, std::chrono::seconds(20)));
  };
  paste("Grüße 🎉");
  world.userHolds("shift");
  paste(" again");
  EXPECT_TRUE(world.isHeld("shift"));
  EXPECT_FALSE(world.isHeld("control"));
  world.userLetsGo("shift");
  EXPECT_TRUE(world.eventually([&] { return world.editorText() == "Grüße 🎉 again"; }))
      << world.editorText();
}

inline void pointerGoesWhereItIsTold(DesktopWorld& world) {
  for (const Point target : {Point{100, 200}, Point{7, 9}}) {
    ASSERT_TRUE(world.input().movePointer(target));
    EXPECT_EQ(world.input().pointer().value(), target);
  }
  EXPECT_TRUE(world.input().buttonDown(1));
  EXPECT_TRUE(world.input().buttonUp(1));
}

inline void onlyKnownThingsAreOpened(DesktopWorld& world) {
  Workspace& workspace = world.workspace();
  for (const char* wrong : {"javascript:alert(1)", "file:///etc/passwd", "no such file", ""})
    EXPECT_EQ(workspace.open(wrong).error().domain, "Workspace") << wrong;
  EXPECT_EQ(workspace.launch("no such program").error().domain, "Workspace");
  EXPECT_EQ(workspace.quitApplication("no such program").error().domain, "Workspace");
}

using DesktopRule = void (*)(DesktopWorld&);
inline const std::vector<std::pair<const char*, DesktopRule>> desktopRules = {
    {"HoldKeyGivesOneEdgeEachWay", holdKeyGivesOneEdgeEachWay},
    {"OwnChordIsInvisibleToTheMonitor", ownChordIsInvisibleToTheMonitor},
    {"ClipboardIsServedAndCounted", clipboardIsServedAndCounted},
    {"BigTextsPassWhole", bigTextsPassWhole},
    {"WindowsComeToTheFront", windowsComeToTheFront},
    {"PasteChordPastesAndGivesHeldKeysBack", pasteChordPastesAndGivesHeldKeysBack},
    {"PointerGoesWhereItIsTold", pointerGoesWhereItIsTold},
    {"OnlyKnownThingsAreOpened", onlyKnownThingsAreOpened},
};

class DesktopContract : public testing::TestWithParam<std::pair<const char*, DesktopRule>> {};

}  // namespace kestrin
