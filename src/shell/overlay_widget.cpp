#include "shell/overlay_widget.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <cmath>

#include "shell/design/floating_window.h"

namespace kestrin {
namespace {

constexpr int pulseFrameMs = 40;
constexpr double padding = 12;
constexpr double buttonHeight = 24;

QColor colorOf(const OverlayColor& color) {
  return QColor::fromRgbF(static_cast<float>(color.red), static_cast<float>(color.green),
                          static_cast<float>(color.blue), static_cast<float>(color.alpha));
}

QRectF rectOf(const OverlayRect& rect) { return {rect.x, rect.y, rect.width, rect.height}; }

QFont fontOf(int pixels, bool bold) {
  QFont font;
  font.setPixelSize(pixels);
  font.setBold(bold);
  return font;
}

}  // namespace

OverlayWidget::OverlayWidget(OverlayWindow& overlay, Logger& logger)
    : QWidget(nullptr, floatingFlags),
      overlay_(overlay),
      layer_(
          logger, [this](QPainter& painter) { draw(painter); },
          [this](const QPointF& place) { press(place); }) {
  setAttribute(Qt::WA_ShowWithoutActivating);
  setAttribute(Qt::WA_TranslucentBackground);
  setFocusPolicy(Qt::NoFocus);
  setWindowTitle("Kestrin");
  pulseTimer_.setInterval(pulseFrameMs);
  connect(&pulseTimer_, &QTimer::timeout, this, [this] { redraw(); });
  overlay_.onChange = [this] { refresh(); };
}

OverlayWidget::~OverlayWidget() { overlay_.onChange = nullptr; }

void OverlayWidget::refresh() {
  if (!overlay_.isVisible()) {
    pulseTimer_.stop();
    layer_.hide();
    return hide();
  }
  if (overlay_.isPulsing() && !pulseTimer_.isActive()) {
    pulseClock_.start();
    pulseTimer_.start();
  } else if (!overlay_.isPulsing()) {
    pulseTimer_.stop();
  }
  const QSize size(static_cast<int>(overlay_.width()), static_cast<int>(overlay_.height()));
  if (layer_.show(size, static_cast<int>(OverlayWindow::screenMargin))) return hide();
  showWindow();
}

void OverlayWidget::showWindow() {
  // Such a window would take the focus each time.
  if (QGuiApplication::platformName().startsWith("wayland")) return;
  const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
  const auto place =
      overlay_.placeOn({static_cast<double>(area.x()), static_cast<double>(area.y()),
                        static_cast<double>(area.width()), static_cast<double>(area.height())});
  setGeometry(rectOf(place).toAlignedRect());
  if (!isVisible()) show();
  update();
}

void OverlayWidget::redraw() {
  layer_.update();
  update();
}

/// There and back again without end, slowing down at both ends.
double OverlayWidget::dotOpacity() const {
  if (!overlay_.isPulsing()) return 1.0;
  const double halves = static_cast<double>(pulseClock_.elapsed()) /
                        static_cast<double>(OverlayWindow::pulseDuration.count());
  const double along = 0.5 - 0.5 * std::cos(halves * M_PI);
  return OverlayWindow::pulseFrom + (OverlayWindow::pulseTo - OverlayWindow::pulseFrom) * along;
}

void OverlayWidget::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  draw(painter);
}

void OverlayWidget::draw(QPainter& painter) const {
  painter.setRenderHint(QPainter::Antialiasing);
  if (overlay_.isRecordingActive()) drawPill(painter);
  const auto& rows = overlay_.rows();
  for (size_t i = 0; i < rows.size(); ++i) drawRow(painter, rows[i], rectOf(overlay_.rowRect(i)));
}

void OverlayWidget::drawPill(QPainter& painter) const {
  const QRectF pill = rectOf(overlay_.pillRect());
  painter.setPen(Qt::NoPen);
  painter.setBrush(colorOf(OverlayWindow::pillColor));
  painter.drawRoundedRect(pill, OverlayWindow::pillRadius, OverlayWindow::pillRadius);

  const double middle = pill.center().y();
  painter.setOpacity(dotOpacity());
  painter.setBrush(QColor(255, 59, 48));
  painter.drawEllipse(QRectF(pill.x() + 14, middle - OverlayWindow::dotSize / 2,
                             OverlayWindow::dotSize, OverlayWindow::dotSize));
  painter.setOpacity(1);

  painter.setBrush(Qt::white);
  const auto& heights = overlay_.barHeights();
  for (size_t i = 0; i < heights.size(); ++i) {
    painter.drawRoundedRect(QRectF(pill.x() + OverlayWindow::barX(i), middle - heights[i] / 2,
                                   OverlayWindow::barWidth, heights[i]),
                            2, 2);
  }
  painter.setPen(Qt::white);
  painter.setFont(fontOf(14, false));
  const double left = OverlayWindow::barX(heights.size()) + 8;
  painter.drawText(pill.adjusted(left, 0, -padding, 0), Qt::AlignVCenter | Qt::AlignLeft,
                   QString::fromStdString(overlay_.statusLabel()));
}

void OverlayWidget::drawRow(QPainter& painter, const OverlayRow& row, const QRectF& rect) const {
  painter.setPen(Qt::NoPen);
  painter.setBrush(colorOf(OverlayWindow::pillColor));
  painter.drawRoundedRect(rect, 12, 12);
  // The tint marks the row's left edge.
  painter.save();
  QPainterPath shape;
  shape.addRoundedRect(rect, 12, 12);
  painter.setClipPath(shape);
  painter.fillRect(QRectF(rect.x(), rect.y(), 5, rect.height()), colorOf(row.tint));
  painter.restore();

  const QRectF button = buttonRect(row, rect);
  QRectF words = rect.adjusted(padding + 4, 6, -padding, -6);
  if (!button.isNull()) words.setRight(button.left() - 8);
  const auto line = [&](const std::string& text, const QFont& font, const QColor& color,
                        double top) {
    painter.setFont(font);
    painter.setPen(color);
    const auto shown = painter.fontMetrics().elidedText(QString::fromStdString(text), Qt::ElideLeft,
                                                        static_cast<int>(words.width()));
    painter.drawText(QRectF(words.x(), top, words.width(), 18), Qt::AlignVCenter | Qt::AlignLeft,
                     shown);
  };
  line(row.displayName, fontOf(12, true), Qt::white, words.top());
  line(row.text, fontOf(11, false), QColor(210, 210, 210), words.top() + 18);

  if (button.isNull()) return;
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor(255, 255, 255, 40));
  painter.drawRoundedRect(button, 6, 6);
  if (row.button == OverlayRow::Button::stop) {
    painter.setBrush(Qt::white);
    painter.drawRect(QRectF(button.center().x() - 4, button.center().y() - 4, 8, 8));
  } else {
    painter.setPen(Qt::white);
    painter.setFont(fontOf(11, false));
    painter.drawText(button, Qt::AlignCenter, "Send again");
  }
}

QRectF OverlayWidget::buttonRect(const OverlayRow& row, const QRectF& rowRect) {
  if (row.button == OverlayRow::Button::none) return {};
  const double width = row.button == OverlayRow::Button::stop ? buttonHeight : 76;
  return {rowRect.right() - padding - width, rowRect.center().y() - buttonHeight / 2, width,
          buttonHeight};
}

void OverlayWidget::mousePressEvent(QMouseEvent* event) { press(event->position()); }

void OverlayWidget::press(const QPointF& place) {
  const auto& rows = overlay_.rows();
  for (size_t i = 0; i < rows.size(); ++i) {
    const auto row = rows[i];
    if (!buttonRect(row, rectOf(overlay_.rowRect(i))).contains(place)) continue;
    if (row.button == OverlayRow::Button::stop) return overlay_.stopStreamingRequest(row.id);
    return overlay_.sendAgain();
  }
}

}  // namespace kestrin
