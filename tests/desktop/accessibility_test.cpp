#include <gtest/gtest.h>

#include "desktop/text_worlds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

struct Subject {
  const char* name;
  std::unique_ptr<RealWorld> (*make)();
};

const Subject subjects[] = {
    {"QTextEdit", [] { return std::unique_ptr<RealWorld>(new QtWorld("QTextEdit")); }},
    {"QPlainTextEdit", [] { return std::unique_ptr<RealWorld>(new QtWorld("QPlainTextEdit")); }},
    {"QLineEdit", [] { return std::unique_ptr<RealWorld>(new QtWorld("QLineEdit")); }},
    {"mousepad",
     [] {
       return std::unique_ptr<RealWorld>(new EditorWorld({"mousepad", "--disable-server"}));
     }},
    {"gnome_text_editor",
     [] {
       return std::unique_ptr<RealWorld>(new EditorWorld({"gnome-text-editor", "--standalone"}));
     }},
    {"featherpad",
     [] {
       return std::unique_ptr<RealWorld>(new EditorWorld({"featherpad", "--standalone"}));
     }},
};

struct Rule {
  const char* name;
  void (*body)(TextWorld&);
};

const Rule rules[] = {
    {"ReadsInUtf16", readsInUtf16},
    {"InsertsInOrderAndLeavesTheUserAlone", insertsInOrderAndLeavesTheUserAlone},
    {"InsertsLines", insertsLines},
    {"MovesTheUsersCaretWithTheText", movesTheUsersCaretWithTheText},
    {"TellsForeignChangesFromItsOwn", tellsForeignChangesFromItsOwn},
    {"SaysThatAProgramIsGone", saysThatAProgramIsGone},
};

class DesktopAccessibilityTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!std::getenv("DISPLAY")) GTEST_SKIP() << "needs a display: scripts/desktop-session";
  }
};

class DesktopAccessibility : public DesktopAccessibilityTest,
                             public testing::WithParamInterface<std::tuple<Subject, Rule>> {};

TEST_P(DesktopAccessibility, Holds) {
  auto world = std::get<0>(GetParam()).make();
  std::get<1>(GetParam()).body(*world);
}

INSTANTIATE_TEST_SUITE_P(Contract, DesktopAccessibility,
                         testing::Combine(testing::ValuesIn(subjects), testing::ValuesIn(rules)),
                         [](const auto& info) {
                           return std::string(std::get<0>(info.param).name) + "_" +
                                  std::get<1>(info.param).name;
                         });

class DesktopFields : public DesktopAccessibilityTest {};

TEST_F(DesktopFields, TakeTextWhileAnotherWindowHasTheFocus) {
  QtWorld behind("QTextEdit");
  behind.open(contractText, {0, 0});
  auto& ax = behind.accessibility();
  const auto target = behind.field();
  QtWorld front("QLineEdit");
  front.open("front", {2, 0});
  const auto focused = front.field();
  const auto window = shell("xdotool getactivewindow");
  for (int i = 0; i < 50; ++i) ASSERT_EQ(ax.insertText(target, i, "x"), InsertOutcome::delivered);
  EXPECT_EQ(shell("xdotool getactivewindow"), window);
  EXPECT_EQ(ax.focusedElement(front.pid()), focused);
  userTypesKeys("y");
  EXPECT_TRUE(front.eventually([&] { return front.text() == "fryont"; }));
  EXPECT_EQ(behind.text(), std::string(50, 'x') + contractText);
}

TEST_F(DesktopFields, PasswordsAreLeftAlone) {
  QtWorld world("password");
  world.open("secret", {6, 0});
  auto& ax = world.accessibility();
  const auto field = world.field();
  EXPECT_EQ(ax.role(field).value_or(""), "AXSecureTextField");
  EXPECT_EQ(ax.isEditable(field), false);
  EXPECT_EQ(ax.insertText(field, 0, "x"), InsertOutcome::refused);
  EXPECT_FALSE(ax.watchText(field, [](TextChange) {}));
  EXPECT_EQ(world.text(), "secret");
}

TEST_F(DesktopFields, ALieIsFoundOut) {
  // A full field says yes to the insert and keeps what it has.
  QtWorld world("full");
  world.open("abc", {1, 0});
  auto& ax = world.accessibility();
  const auto field = world.field();
  EXPECT_EQ(ax.insertText(field, 3, "d"), InsertOutcome::refused);
  EXPECT_EQ(world.text(), "abc");
}

TEST_F(DesktopFields, AHungProgramTakesTheTextWhenItWakes) {
  QtWorld world("QTextEdit");
  world.open("text", {4, 0});
  auto& ax = world.accessibility();
  const auto field = world.field();
  ForeignChanges foreign(ax, field);
  world.program->stop();
  EXPECT_EQ(ax.insertText(field, 4, " late"), InsertOutcome::unknown);
  EXPECT_EQ(ax.lateOutcome(field, 50ms), InsertOutcome::unknown);
  world.program->resume();
  EXPECT_EQ(ax.lateOutcome(field, 30s), InsertOutcome::delivered);
  EXPECT_EQ(world.text(), "text late");
  EXPECT_EQ(ax.insertText(field, 9, "r"), InsertOutcome::delivered);
  EXPECT_EQ(foreign.all(), std::vector<TextChange>());
}

TEST_F(DesktopFields, AProgramThatDiesHungIsNotWaitedFor) {
  QtWorld world("QTextEdit");
  world.open("text", {4, 0});
  auto& ax = world.accessibility();
  const auto field = world.field();
  ForeignChanges foreign(ax, field);
  world.program->stop();
  EXPECT_EQ(ax.insertText(field, 4, " lost"), InsertOutcome::unknown);
  world.endProgram();
  EXPECT_EQ(ax.lateOutcome(field, 30s), InsertOutcome::refused);
}

TEST_F(DesktopFields, FollowTheUserWhoTypesMeanwhile) {
  QtWorld world("QPlainTextEdit");
  world.open("user: ", {6, 0});
  auto& ax = world.accessibility();
  const auto field = world.field();
  ForeignChanges foreign(ax, field);
  std::string typed;
  std::string inserted;
  // Ours go in front, the user's behind; each insert stands where the one before it ended.
  for (int i = 0; i < 26; ++i) {
    const std::string letter(1, static_cast<char>('a' + i));
    world.userTypes(letter);
    typed += letter;
    ASSERT_EQ(ax.insertText(field, i, letter), InsertOutcome::delivered);
    inserted += letter;
  }
  EXPECT_EQ(world.text(), inserted + "user: " + typed);
  EXPECT_TRUE(world.eventually([&] { return foreign.inserted() == 26; }));
}

struct PageField {
  const char* family;
  const char* id;
  const char* role;
  PageMode mode;
};

class DesktopPageField : public DesktopAccessibilityTest,
                         public testing::WithParamInterface<PageField> {};

TEST_P(DesktopPageField, IsKnownAndNeverChangedInTheBackground) {
  BrowserWorld world(GetParam().family);
  world.openField(GetParam().id, GetParam().mode);
  auto& ax = world.accessibility();
  AxElement field;
  EXPECT_TRUE(world.eventually([&] {
    field = ax.focusedElement(world.pid()).value_or(AxElement{});
    return ax.role(field).value_or("") == GetParam().role;
  })) << ax.role(field).value_or("none");
  world.userTypes("typed");
  EXPECT_TRUE(world.eventually([&] { return world.text() == "typed"; })) << world.text();
  if (std::string(GetParam().id) != "password") {
    EXPECT_TRUE(
        world.eventually([&] { return text::trim(ax.value(field).value_or("")) == "typed"; }));
  }
  EXPECT_EQ(ax.insertText(field, 0, "x"), InsertOutcome::refused);
  EXPECT_EQ(world.text(), "typed");
}

INSTANTIATE_TEST_SUITE_P(
    Pages, DesktopPageField,
    testing::Values(PageField{"firefox", "input", "AXTextField", PageMode::tab},
                    PageField{"firefox", "editable", "AXTextArea", PageMode::tab},
                    PageField{"firefox", "password", "AXSecureTextField", PageMode::tab},
                    PageField{"chromium", "textarea", "AXTextArea", PageMode::tab},
                    PageField{"chromium", "password", "AXSecureTextField", PageMode::tab},
                    PageField{"chromium", "editable", "AXTextArea", PageMode::application}),
    [](const auto& info) {
      return std::string(info.param.family) +
             (info.param.mode == PageMode::application ? "_app_" : "_") + info.param.id;
    });

}  // namespace
}  // namespace kestrin
