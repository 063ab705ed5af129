#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "platform/accessibility.h"
#include "platform/dispatch/dispatch.h"
#include "platform/text/text.h"

namespace kestrin {

inline void PrintTo(const TextRange& range, std::ostream* out) {
  *out << range.location << "+" << range.length;
}
inline void PrintTo(const TextChange& change, std::ostream* out) {
  *out << "at " << change.offset << ": -" << change.removed << " +" << change.inserted;
}

/// What a program with one focused text field must let a test do, be it scripted or real.
class TextWorld {
 public:
  virtual ~TextWorld() = default;
  virtual Dispatch& dispatch() = 0;
  virtual Accessibility& accessibility() = 0;
  virtual int pid() = 0;
  virtual std::string role() { return "AXTextArea"; }
  /// Shows the text with the focus in the field and the user's selection (or caret) there.
  virtual void open(const std::string& text, TextRange selection) = 0;
  /// The user types at their own caret.
  virtual void userTypes(const std::string& text) = 0;
  /// The field's text, learned another way than through accessibility.
  virtual std::string text() = 0;
  virtual void endProgram() = 0;

  /// Waits for what must come; the limit only ends a broken run.
  bool eventually(const std::function<bool()>& holds, Duration limit = std::chrono::seconds(30)) {
    const auto end = dispatch().clock().steadyNow() + limit;
    while (!holds()) {
      if (dispatch().clock().steadyNow() >= end) return false;
      dispatch().clock().sleep(std::chrono::milliseconds(10), "the world to follow");
    }
    return true;
  }
  /// The field, once it has the focus: a window that has just opened may hold it for a moment.
  AxElement field() {
    AxElement found;
    EXPECT_TRUE(eventually([&] {
      found = accessibility().focusedElement(pid()).value_or(AxElement{});
      return found.valid() && accessibility().role(found).value_or("") == role();
    }));
    return found;
  }
};

/// Collects the changes that were not ours.
class ForeignChanges {
 public:
  ForeignChanges(Accessibility& accessibility, const AxElement& element) {
    auto watching = accessibility.watchText(element, [this](TextChange change) {
      const std::lock_guard lock(mutex_);
      changes_.push_back(change);
    });
    EXPECT_TRUE(watching) << watching.error().description;
    if (watching) subscription_ = std::move(*watching);
  }
  std::vector<TextChange> all() {
    const std::lock_guard lock(mutex_);
    return changes_;
  }
  int inserted() {
    int sum = 0;
    for (const auto& change : all()) sum += change.inserted - change.removed;
    return sum;
  }

 private:
  std::mutex mutex_;
  std::vector<TextChange> changes_;
  SubscriptionHandle subscription_;
};

inline const std::string contractText = "one 🎉 two";  // 10 UTF-16 units, 9 code points

inline void readsInUtf16(TextWorld& world) {
  world.open(contractText, {6, 0});
  auto& ax = world.accessibility();
  const auto field = world.field();
  EXPECT_TRUE(world.eventually([&] { return ax.value(field).value_or("") == contractText; }));
  EXPECT_EQ(ax.textLength(field).value_or(-1), 10);
  EXPECT_EQ(ax.textRange(field, 4, 6).value_or(""), "🎉");
  EXPECT_EQ(ax.textRange(field, 6, 99).value_or(""), " two");
  EXPECT_EQ(ax.isEditable(field), true);
  EXPECT_TRUE(ax.role(field) == world.role()) << ax.role(field).value_or("");
  EXPECT_TRUE(world.eventually([&] { return ax.selectedRange(field) == TextRange{6, 0}; }));
  EXPECT_EQ(ax.selectedText(field).value_or("?"), "");
  const auto window = ax.focusedWindow(world.pid());
  ASSERT_TRUE(window) << window.error().description;
  EXPECT_EQ(ax.role(*window).value_or(""), "AXWindow");
  EXPECT_EQ(ax.focusedDescendant(*window), field);
}

inline void insertsInOrderAndLeavesTheUserAlone(TextWorld& world) {
  world.open(contractText, {0, 3});
  auto& ax = world.accessibility();
  const auto field = world.field();
  ASSERT_TRUE(world.eventually([&] { return ax.selectedRange(field) == TextRange{0, 3}; }));
  ForeignChanges foreign(ax, field);
  int offset = 6;
  for (const std::string piece : {"X", "🙂", "é and ", "more"}) {
    ASSERT_EQ(ax.insertText(field, offset, piece), InsertOutcome::delivered) << piece;
    offset += static_cast<int>(text::utf16Length(piece));
  }
  EXPECT_EQ(foreign.all(), std::vector<TextChange>());
  EXPECT_EQ(world.text(), "one 🎉X🙂é and more two");
  EXPECT_EQ(ax.selectedRange(field).value_or(TextRange{-1, 0}), (TextRange{0, 3}));
  EXPECT_EQ(ax.selectedText(field).value_or("?"), "one");
  EXPECT_EQ(world.field(), field);
}

inline void insertsLines(TextWorld& world) {
  world.open(contractText, {0, 0});
  auto& ax = world.accessibility();
  const auto field = world.field();
  ForeignChanges foreign(ax, field);
  ASSERT_EQ(ax.insertText(field, 6, ".\n\nDear"), InsertOutcome::delivered);
  ASSERT_EQ(ax.insertText(field, 13, "\n"), InsertOutcome::delivered);
  EXPECT_EQ(foreign.all(), std::vector<TextChange>());
  EXPECT_EQ(ax.value(field).value_or(""), "one 🎉.\n\nDear\n two");
}

inline void movesTheUsersCaretWithTheText(TextWorld& world) {
  world.open(contractText, {6, 0});
  auto& ax = world.accessibility();
  const auto field = world.field();
  ASSERT_TRUE(world.eventually([&] { return ax.selectedRange(field) == TextRange{6, 0}; }));
  ASSERT_EQ(ax.insertText(field, 10, "!"), InsertOutcome::delivered);
  EXPECT_EQ(ax.selectedRange(field).value_or(TextRange{-1, 0}), (TextRange{6, 0}));
  ASSERT_EQ(ax.insertText(field, 0, "🙂"), InsertOutcome::delivered);
  EXPECT_EQ(ax.selectedRange(field).value_or(TextRange{-1, 0}), (TextRange{8, 0}));
  EXPECT_EQ(world.text(), "🙂one 🎉 two!");
}

inline void tellsForeignChangesFromItsOwn(TextWorld& world) {
  world.open(contractText, {6, 0});
  auto& ax = world.accessibility();
  const auto field = world.field();
  ASSERT_TRUE(world.eventually([&] { return ax.selectedRange(field) == TextRange{6, 0}; }));
  ForeignChanges foreign(ax, field);
  world.userTypes("uv");
  EXPECT_TRUE(world.eventually([&] { return foreign.inserted() == 2; }));
  ASSERT_FALSE(foreign.all().empty());
  EXPECT_EQ(foreign.all().front().offset, 6);
  ASSERT_EQ(ax.insertText(field, 0, "ours "), InsertOutcome::delivered);
  world.userTypes("w");
  EXPECT_TRUE(world.eventually([&] { return foreign.inserted() == 3; }));
  EXPECT_EQ(foreign.all().back(), (TextChange{13, 0, 1}));
  EXPECT_EQ(world.text(), "ours one 🎉uvw two");
}

inline void saysThatAProgramIsGone(TextWorld& world) {
  world.open(contractText, {6, 0});
  auto& ax = world.accessibility();
  const auto field = world.field();
  ForeignChanges foreign(ax, field);
  world.endProgram();
  EXPECT_TRUE(world.eventually([&] { return !ax.value(field); }));
  EXPECT_EQ(ax.value(field).error().domain, "Accessibility");
  EXPECT_EQ(ax.insertText(field, 0, "x"), InsertOutcome::refused);
  EXPECT_EQ(ax.lateOutcome(field, std::chrono::milliseconds(1)), InsertOutcome::refused);
  EXPECT_FALSE(ax.focusedElement(world.pid()));
}

}  // namespace kestrin
