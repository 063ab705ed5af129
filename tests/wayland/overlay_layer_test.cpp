#include <QApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTimer>
#include <gtest/gtest.h>

#include "dictation/overlay_panel.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/layer_surface.h"
#include "shell/overlay_widget.h"
#include "wayland/virtual_pointer.h"

namespace kestrin {
namespace {

constexpr int screenWidth = 1280, screenHeight = 800;

QByteArray outputOf(const QString& program, const QStringList& arguments) {
  QProcess process;
  process.start(program, arguments);
  if (!process.waitForFinished() || process.exitCode() != 0) {
    ADD_FAILURE() << program.toStdString() << ": " << process.errorString().toStdString()
                  << process.readAllStandardError().toStdString();
  }
  return process.readAllStandardOutput();
}

void steer(const QStringList& words) { outputOf("swaymsg", words); }

bool until(const std::function<bool()>& holds) {
  const QDeadlineTimer deadline(std::chrono::seconds(20));
  while (!holds()) {
    if (deadline.hasExpired()) return false;
    QEventLoop loop;
    QTimer::singleShot(20, &loop, &QEventLoop::quit);
    loop.exec();
  }
  return true;
}

QImage picture() { return QImage::fromData(outputOf("grim", {"-t", "ppm", "-"})); }

bool isDark(const QImage& image, int x, int y) {
  const QColor color = image.pixelColor(x, y);
  return color.red() < 60 && color.green() < 60 && color.blue() < 60;
}
bool isGreen(const QImage& image, int x, int y) { return image.pixelColor(x, y) == Qt::green; }

QString focusedIn(const QJsonObject& node) {
  if (node["focused"].toBool()) {
    return node["name"].toString() + (node["fullscreen_mode"].toInt() == 1 ? ", full screen" : "");
  }
  for (const auto* kind : {"nodes", "floating_nodes"}) {
    for (const auto& child : node[kind].toArray()) {
      if (const auto found = focusedIn(child.toObject()); !found.isEmpty()) return found;
    }
  }
  return {};
}

/// The focused window's title, and whether it fills the screen.
std::string focus() {
  const auto tree = QJsonDocument::fromJson(outputOf("swaymsg", {"-r", "-t", "get_tree"}));
  return focusedIn(tree.object()).toStdString();
}

/// A full-screen window of an ordinary program with the focus, all green.
struct OverlayLayerTest : testing::Test {
  static void SetUpTestSuite() {
    setenv("QT_QPA_PLATFORM", "wayland", 1);
    static int count = 1;
    static char name[] = "wayland_tests";
    static char* arguments[] = {name, nullptr};
    toolkit = std::make_unique<QApplication>(count, arguments);
  }
  static void TearDownTestSuite() { toolkit.reset(); }
  void SetUp() override {
    window.setWindowTitle("Ordinary");
    window.setStyleSheet("background: #00ff00");
    window.showFullScreen();
    ASSERT_TRUE(until([] { return focus() == "Ordinary, full screen"; })) << focus();
    ASSERT_TRUE(until([] { return isGreen(picture(), 1140, 700); }));
  }
  void showPillAndRow() {
    panel.onMain([&] { panel.overlay.showRecording(); });
    panel.request();
  }

  static inline std::unique_ptr<QApplication> toolkit;
  QWidget window;
  Panel panel;
  OverlayWidget widget{panel.overlay, panel.logger};
};

TEST_F(OverlayLayerTest, IsSeenAboveAFullScreenWindowWithoutItsFocusAndHearsAClick) {
  VirtualPointer mouse;
  showPillAndRow();
  EXPECT_TRUE(until([] {
    const auto seen = picture();
    return isDark(seen, 1008 + 225, 688 + 22) && isDark(seen, 988 + 200, 740 + 8);
  }));
  const auto seen = picture();
  EXPECT_GT(seen.pixelColor(1008 + 20, 688 + 22).red(), 80) << "the red dot";
  EXPECT_TRUE(isGreen(seen, 1274, 764)) << "the margin on the right";
  EXPECT_TRUE(isGreen(seen, 1140, 794)) << "and below";
  EXPECT_TRUE(isGreen(seen, 1140, 736)) << "between the pill and the row it is transparent";
  EXPECT_TRUE(isGreen(seen, 980, 764)) << "and it is no wider than its row";
  EXPECT_EQ(focus(), "Ordinary, full screen");

  // The stop button at the row's right ends the request; its row leaves.
  mouse.click(1244, 764, screenWidth, screenHeight);
  EXPECT_TRUE(until([&] {
    panel.simulation->runReady();
    return panel.overlay.rows().empty();
  }));
  EXPECT_TRUE(panel.overlay.isVisible());
  EXPECT_EQ(focus(), "Ordinary, full screen");
  EXPECT_TRUE(until([] {
    const auto pill = picture();
    return isDark(pill, 1028 + 225, 744 + 22) && isGreen(pill, 1140, 738);
  })) << "only the pill is left, at the bottom";

  panel.onMain([&] { panel.overlay.hideOverlay(); });
  EXPECT_TRUE(until([] { return isGreen(picture(), 1028 + 225, 744 + 22); }));
  EXPECT_EQ(focus(), "Ordinary, full screen");
}

TEST_F(OverlayLayerTest, ADenseScreenShowsItInItsOwnPixels) {
  steer({"output", "*", "scale", "2"});
  showPillAndRow();
  // Twice the size: 560 by 200 pixels, 24 from the edges.
  EXPECT_TRUE(until([] {
    const auto seen = picture();
    return isDark(seen, 696 + 40 + 450, 576 + 44) && isDark(seen, 696 + 400, 680 + 16) &&
           isGreen(seen, 1268, 728) && isGreen(seen, 690, 728);
  }));
  // A picture of the plain size would have been doubled: blocks of four equal pixels everywhere.
  const auto seen = picture();
  int fine = 0;
  for (int y = 576; y < 664; y += 2) {
    for (int x = 736; x < 1216; x += 2) {
      if (seen.pixel(x, y) != seen.pixel(x + 1, y) || seen.pixel(x, y) != seen.pixel(x, y + 1))
        ++fine;
    }
  }
  EXPECT_GT(fine, 50);
  steer({"output", "*", "scale", "1"});
  EXPECT_TRUE(until([] { return isDark(picture(), 1008 + 225, 688 + 22); }));
}

TEST_F(OverlayLayerTest, ComesBackWithTheScreenThatWasTakenAway) {
  showPillAndRow();
  ASSERT_TRUE(until([] { return isDark(picture(), 1008 + 225, 688 + 22); }));
  // Another screen takes it over.
  steer({"create_output"});
  steer({"output", "HEADLESS-2", "resolution", "1280x800"});
  steer({"output", "HEADLESS-1", "disable"});
  EXPECT_TRUE(until([] { return isDark(picture(), 1008 + 225, 688 + 22); }));
  // None is left for a while.
  steer({"output", "HEADLESS-2", "disable"});
  panel.onMain([&] { panel.overlay.updateAudioLevel(1); });
  int turns = 0;
  EXPECT_TRUE(until([&] { return ++turns > 5; }));
  steer({"output", "HEADLESS-1", "enable"});
  EXPECT_TRUE(until([] { return isDark(picture(), 1008 + 225, 688 + 22); }));
  EXPECT_EQ(focus(), "Ordinary, full screen");
}

TEST(CompositorGone, EndsTheSurfaceAndNotTheProgram) {
  int drawn = 0;
  auto opened = LayerSurface::open(
      {.draw = [&](const LayerSurface::Picture&) { ++drawn; }, .press = [](double, double) {}}, 5s);
  ASSERT_TRUE(opened) << opened.error().description;
  auto& surface = **opened;
  surface.show(100, 50, 12);
  const Deadline deadline(20s);
  while (drawn == 0 && !deadline.passed()) {
    waitReadable({surface.descriptor()}, 100ms);
    ASSERT_TRUE(surface.dispatch());
  }
  EXPECT_GT(drawn, 0);
  // It may go before it has answered.
  (void)!std::system("swaymsg exit >/dev/null 2>&1");
  while (surface.dispatch() && !deadline.passed()) {
    waitReadable({surface.descriptor()}, 100ms);
    surface.update();
  }
  EXPECT_FALSE(surface.dispatch());
  surface.show(100, 60, 12);
  surface.hide();
  opened->reset();
  EXPECT_EQ(LayerSurface::offered(1s).error().code, LayerSurface::notReachable);
}

}  // namespace
}  // namespace kestrin
