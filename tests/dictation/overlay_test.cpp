#include <gtest/gtest.h>

#include "dictation/overlay_panel.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

TEST(Overlay, GrowsWithPillAndRowsAndHidesWithoutEither) {
  Panel panel;
  EXPECT_FALSE(panel.overlay.isVisible());
  panel.onMain([&] { panel.overlay.showRecording(); });
  EXPECT_TRUE(panel.overlay.isVisible());
  EXPECT_TRUE(panel.overlay.isPulsing());
  EXPECT_EQ(panel.overlay.statusLabel(), "Listening...");
  EXPECT_EQ(panel.overlay.width(), 240);
  EXPECT_EQ(panel.overlay.height(), 44);

  panel.request();
  EXPECT_EQ(panel.overlay.width(), 280);
  EXPECT_EQ(panel.overlay.height(), 44 + 8 + 48);
  EXPECT_EQ(panel.overlay.pillRect(), (OverlayRect{20, 0, 240, 44}));
  EXPECT_EQ(panel.overlay.rowRect(0), (OverlayRect{0, 52, 280, 48}));

  const auto second = panel.request();
  panel.onMain([&] { panel.overlay.hideOverlay(); });
  EXPECT_EQ(panel.overlay.height(), 104);
  EXPECT_EQ(panel.overlay.rowRect(1), (OverlayRect{0, 56, 280, 48}));
  EXPECT_EQ(panel.overlay.placeOn({0, 0, 1280, 800}), (OverlayRect{988, 684, 280, 104}));
  EXPECT_FALSE(panel.overlay.isPulsing());
  EXPECT_EQ(panel.logger.getEntries("📐 Widget resize: 2 streams, recording=false, totalHeight=104")
                .size(),
            1u);

  // The stop button ends only its own request.
  panel.onMain([&] { panel.overlay.stopStreamingRequest(second); });
  ASSERT_EQ(panel.overlay.rows().size(), 1u);
  EXPECT_NE(panel.overlay.rows()[0].id, second);
  panel.onMain([&] { panel.overlay.stopStreamingRequest(panel.overlay.rows()[0].id); });
  EXPECT_FALSE(panel.overlay.isVisible());
}

TEST(Overlay, ARowShowsTheTailAndHasAStopButtonWhileTheStreamRuns) {
  Panel panel;
  const auto id = panel.request();
  ASSERT_EQ(panel.overlay.rows()[0].button, OverlayRow::Button::stop);
  const auto waiting = panel.overlay.rows()[0].tint;
  panel.manager->addChunk(std::string(200, 'x') + "\nthe end", id);
  panel.simulation->runFor(200ms);
  const auto row = panel.overlay.rows()[0];
  EXPECT_TRUE(row.text.ends_with("x the end")) << row.text;
  EXPECT_LE(row.text.size(), OverlayWindow::tailCharacters);
  EXPECT_FALSE(row.tint == waiting);
  panel.dispatch.globalQueue()->post([&] { panel.manager->completeRequest(id); });
  panel.simulation->runFor(500ms);
  ASSERT_EQ(panel.overlay.rows().size(), 1u);
  EXPECT_EQ(panel.overlay.rows()[0].button, OverlayRow::Button::none);
}

TEST(Overlay, TheBarsFollowTheLevel) {
  Panel panel;
  panel.onMain([&] {
    panel.overlay.showRecording();
    panel.overlay.updateAudioLevel(0);
  });
  for (const double height : panel.overlay.barHeights()) EXPECT_DOUBLE_EQ(height, 4);
  panel.onMain([&] { panel.overlay.updateAudioLevel(1); });
  for (const double height : panel.overlay.barHeights()) {
    EXPECT_GE(height, 0.4 * 20 + 4);
    EXPECT_LE(height, 1.0 * 20 + 4);
  }
  EXPECT_EQ(OverlayWindow::barX(3), 56);
}

TEST(Overlay, OffersToSendAgainForAWhile) {
  Panel panel;
  panel.onMain([&] { panel.overlay.offerSendAgain(); });
  EXPECT_FALSE(panel.overlay.isVisible()) << "there is nothing to send";
  panel.undelivered.keepText({"1", {}, "lost words", "Notes", "gone"});
  panel.onMain([&] { panel.overlay.offerSendAgain(); });
  ASSERT_EQ(panel.overlay.rows().size(), 1u);
  EXPECT_EQ(panel.overlay.rows()[0].text, "lost words");
  bool asked = false;
  panel.overlay.onSendAgain = [&] { asked = true; };
  panel.onMain([&] { panel.overlay.sendAgain(); });
  EXPECT_TRUE(asked);
  EXPECT_FALSE(panel.overlay.isVisible());
  panel.onMain([&] { panel.overlay.offerSendAgain(); });
  panel.simulation->runFor(31s);
  EXPECT_FALSE(panel.overlay.isVisible());
}

}  // namespace
}  // namespace kestrin
