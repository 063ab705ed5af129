#pragma once

#include <QPainter>
#include <QSocketNotifier>
#include <functional>
#include <memory>

#include "diagnostics/logger.h"
#include "platform/linux/layer_surface.h"

namespace kestrin {

/// Shows the overlay in the compositor's layer above all windows, where the session is a Wayland
/// one and its compositor has such layers. Elsewhere `show` declines, and the overlay is an
/// ordinary window; what is lost by that is said once in the log.
class OverlayLayer {
 public:
  using Draw = std::function<void(QPainter&)>;
  using Press = std::function<void(QPointF)>;
  OverlayLayer(Logger& logger, Draw draw, Press press);

  /// False where a window must do.
  bool show(QSize size, int margin);
  void update();
  void hide();

 private:
  void connectToCompositor();
  /// Not within an event of the surface that it destroys.
  void dropCompositor();

  Logger& logger_;
  Draw draw_;
  Press press_;
  bool lost_ = false;      ///< it was there once
  bool mayRetry_ = false;  ///< a compositor that has gone is asked for once each time it is needed
  std::unique_ptr<LayerSurface> surface_;
  std::unique_ptr<QSocketNotifier> wake_;
};

}  // namespace kestrin
