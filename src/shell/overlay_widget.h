#pragma once

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

#include "dictation/overlay_window.h"

namespace kestrin {

/// Draws the overlay's state. Never takes the focus, and sits above other windows at the bottom
/// right of the primary screen.
class OverlayWidget final : public QWidget {
  Q_DISABLE_COPY_MOVE(OverlayWidget)

 public:
  explicit OverlayWidget(OverlayWindow& overlay);
  ~OverlayWidget() override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;

 private:
  void refresh();
  double dotOpacity() const;
  void drawPill(QPainter& painter) const;
  void drawRow(QPainter& painter, const OverlayRow& row, const QRectF& rect) const;
  static QRectF buttonRect(const OverlayRow& row, const QRectF& rowRect);

  OverlayWindow& overlay_;
  QTimer pulseTimer_;
  QElapsedTimer pulseClock_;
};

}  // namespace kestrin
