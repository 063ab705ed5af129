#include "platform/linux/atspi_text_model.h"

#include <gtest/gtest.h>

namespace kestrin::atspi {
namespace {

const TextConvention gtk3 = *editingConvention("gtk");
const TextConvention gtk4 = *editingConvention("GTK");
const TextConvention qt = *editingConvention("Qt");

TextEvent insertion(int offset, int length, std::string text) {
  return {true, offset, length, std::move(text)};
}
TextEvent deletion(int offset, int length) { return {false, offset, length, ""}; }

TEST(TextModel, CountsInTheToolkitsUnits) {
  TextModel points(gtk3, "a🎉b");
  EXPECT_EQ(points.toUnits(3), 2);
  EXPECT_EQ(points.toUtf16(2), 3);
  EXPECT_EQ(points.unitLength(), 3);
  TextModel units(qt, "a🎉b");
  EXPECT_EQ(units.toUnits(3), 3);
  EXPECT_EQ(units.unitLength(), 4);
  EXPECT_EQ(units.clamp(2), 1) << "inside a pair";
  EXPECT_EQ(units.clamp(99), 4);
}

TEST(TextModel, TellsTheUsersEditFromOurEcho) {
  TextModel model(gtk3, "🎉 end");
  const auto ours = model.expect(3, "X");
  auto user = model.apply(insertion(1, 1, "u"));
  EXPECT_EQ(user.foreign, (TextChange{2, 0, 1}));
  auto echo = model.apply(insertion(2, 1, "X"));
  EXPECT_EQ(echo.own, ours);
  EXPECT_FALSE(echo.foreign);
  EXPECT_EQ(model.apply(deletion(0, 1)).foreign, (TextChange{0, 2, 0}));
  EXPECT_EQ(model.utf16Length(), 6);
}

TEST(TextModel, LearnsFromItsFirstEchoThatOffsetsAreShifted) {
  TextModel model(gtk4, "abcdef");
  EXPECT_TRUE(model.apply(insertion(1, 2, "uu")).unsure)
      << "nobody knows yet what the offset means";
  EXPECT_EQ(model.resync("abcuudef").foreign, (TextChange{3, 0, 2}));
  const auto ours = model.expect(8, "XYZ");
  EXPECT_EQ(model.apply(insertion(5, 3, "XYZ")).own, ours);
  EXPECT_EQ(model.apply(insertion(-2, 2, "vv")).foreign, (TextChange{0, 0, 2}));
}

TEST(TextModel, TakesARewriteOfTheWholeFieldForTheInsert) {
  TextModel model(qt, "one two");
  const auto ours = model.expect(3, " and");
  EXPECT_FALSE(model.apply(deletion(0, 7)).foreign);
  auto echo = model.apply(insertion(0, 11, "one and two"));
  EXPECT_EQ(echo.own, ours);
  EXPECT_FALSE(echo.foreign);

  model.expect(0, "never");
  model.apply(deletion(0, 11));
  auto user = model.apply(insertion(0, 10, "one, a two"));
  EXPECT_EQ(user.foreign, (TextChange{3, 4, 3})) << "somebody else set the text";
}

TEST(TextModel, TakesQtsParagraphSeparatorForALineFeed) {
  TextModel model(qt, "ab");
  const auto ours = model.expect(1, "x\ny");
  EXPECT_EQ(model.apply(insertion(1, 3, "x\u2029y")).own, ours);
  EXPECT_FALSE(model.resync("ax\nyb").foreign);
}

TEST(TextModel, EventsThatCannotBeAskForAReading) {
  TextModel model(gtk3, "abc");
  EXPECT_TRUE(model.apply(insertion(9, 1, "x")).unsure);
  EXPECT_TRUE(model.apply(deletion(2, 5)).unsure);
  EXPECT_TRUE(model.apply(insertion(0, 3, "")).unsure) << "the text is missing";
  const auto ours = model.expect(1, "Z");
  EXPECT_EQ(model.resync("aZbc").own, ours);
  EXPECT_FALSE(model.resync("aZbc").foreign);
  // Surrogate halves are never torn apart: the two symbols share their first half.
  TextModel symbols(gtk3, "🎉");
  EXPECT_EQ(symbols.resync("🎈").foreign, (TextChange{0, 2, 2}));
}

}  // namespace
}  // namespace kestrin::atspi
