#include "shell/overlay_layer.h"

#include <QImage>

#include "platform/linux/linux_platform.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

/// A compositor answers within a frame; one that hangs must not hold the main loop for long.
constexpr auto answerLimit = 500ms;

}  // namespace

OverlayLayer::OverlayLayer(Logger& logger, Draw draw, Press press)
    : logger_(logger), draw_(std::move(draw)), press_(std::move(press)) {
  if (displaySession() == DisplaySession::wayland) connectToCompositor();
}

void OverlayLayer::connectToCompositor() {
  auto opened =
      LayerSurface::open({.draw =
                              [this](const LayerSurface::Picture& picture) {
                                QImage image(picture.pixels, picture.width, picture.height,
                                             picture.stride, QImage::Format_ARGB32_Premultiplied);
                                image.setDevicePixelRatio(picture.scale);
                                image.fill(Qt::transparent);
                                QPainter painter(&image);
                                draw_(painter);
                              },
                          .press =
                              [this](double x, double y) {
                                press_({x, y});
                              }},
                         answerLimit);
  if (!opened) {
    if (!lost_) logger_.print("⚠️ Overlay: " + LayerSurface::loss(opened.error()));
    return;
  }
  surface_ = std::move(*opened);
  lost_ = false;
  wake_ = std::make_unique<QSocketNotifier>(surface_->descriptor(), QSocketNotifier::Read);
  QObject::connect(wake_.get(), &QSocketNotifier::activated, [this] {
    if (!surface_->dispatch()) dropCompositor();
  });
}

void OverlayLayer::dropCompositor() {
  logger_.print("⚠️ Overlay: the Wayland compositor has gone");
  // The notifier is the caller.
  wake_->setEnabled(false);
  wake_.release()->deleteLater();
  surface_.reset();
  lost_ = true;
  mayRetry_ = false;
}

bool OverlayLayer::show(QSize size, int margin) {
  if (lost_ && mayRetry_) {
    mayRetry_ = false;
    connectToCompositor();
  }
  if (!surface_) return false;
  surface_->show(size.width(), size.height(), margin);
  return true;
}

void OverlayLayer::update() {
  if (surface_) surface_->update();
}

void OverlayLayer::hide() {
  mayRetry_ = true;
  if (surface_) surface_->hide();
}

}  // namespace kestrin
