#pragma once

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

#include "dictation/overlay_window.h"
#include "shell/overlay_layer.h"

namespace kestrin {

/// Draws the overlay's state. Never takes the focus, and sits above other windows at the bottom
/// right of the primary screen: in the compositor's own layer where it has one, else as a window.
class OverlayWidget final : public QWidget {
  Q_DISABLE_COPY_MOVE(OverlayWidget)

 public:
  OverlayWidget(OverlayWindow& overlay, Logger& logger);
  ~OverlayWidget() override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;

 private:
  void refresh();
  void redraw();
  void showWindow();
  void draw(QPainter& painter) const;
  void press(const QPointF& place);
  double dotOpacity() const;
  void drawPill(QPainter& painter) const;
  void drawRow(QPainter& painter, const OverlayRow& row, const QRectF& rect) const;
  static QRectF buttonRect(const OverlayRow& row, const QRectF& rowRect);

  OverlayWindow& overlay_;
  OverlayLayer layer_;
  QTimer pulseTimer_;
  QElapsedTimer pulseClock_;
};

}  // namespace kestrin
