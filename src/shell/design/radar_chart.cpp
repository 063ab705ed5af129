#include "shell/design/radar_chart.h"

#include <QPainter>
#include <cmath>

namespace kestrin {
namespace {

constexpr double labelRoom = 26;
constexpr int rings = 3;

}  // namespace

RadarChartWidget::RadarChartWidget(const QString& name, QWidget* parent)
    : QWidget(parent), name_(name) {
  setAccessibleName(name);
}

void RadarChartWidget::setValues(std::vector<std::string> labels, std::vector<double> values,
                                 const QString& description) {
  labels_ = std::move(labels);
  values_ = std::move(values);
  setAccessibleDescription(description);
  update();
}

void RadarChartWidget::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(palette().color(QPalette::Text));
  QFont bold = font();
  bold.setBold(true);
  painter.setFont(bold);
  painter.drawText(QRectF(0, 0, width(), 18), Qt::AlignHCenter, name_);
  painter.setFont(font());
  labels_.size() < 3 ? paintBars(painter) : paintShape(painter);
}

void RadarChartWidget::paintBars(QPainter& painter) {
  const QColor accent = palette().color(QPalette::Highlight);
  double top = 40;
  for (size_t i = 0; i < labels_.size(); ++i, top += 44) {
    painter.setPen(palette().color(QPalette::Text));
    painter.drawText(QRectF(12, top, width() - 24, 18), QString::fromStdString(labels_[i]));
    painter.setPen(Qt::NoPen);
    painter.setBrush(palette().color(QPalette::Mid));
    painter.drawRoundedRect(QRectF(12, top + 20, width() - 24, 6), 3, 3);
    painter.setBrush(accent);
    painter.drawRoundedRect(QRectF(12, top + 20, (width() - 24) * values_[i], 6), 3, 3);
  }
}

void RadarChartWidget::paintShape(QPainter& painter) {
  const QPointF middle(width() / 2.0, (height() + 18) / 2.0);
  const double radius = std::min(width(), height() - 18) / 2.0 - labelRoom;
  const auto point = [&](size_t axis, double share) {
    const double angle = 2 * M_PI * double(axis) / double(labels_.size()) - M_PI / 2;
    return middle + QPointF(std::cos(angle), std::sin(angle)) * radius * share;
  };
  const auto ring = [&](auto share) {
    QPolygonF shape;
    for (size_t i = 0; i < labels_.size(); ++i) shape << point(i, share(i));
    return shape;
  };
  painter.setBrush(Qt::NoBrush);
  painter.setPen(palette().color(QPalette::Mid));
  for (int i = 1; i <= rings; ++i)
    painter.drawPolygon(ring([&](size_t) { return double(i) / rings; }));
  for (size_t i = 0; i < labels_.size(); ++i) painter.drawLine(middle, point(i, 1));
  QColor accent = palette().color(QPalette::Highlight);
  painter.setPen(QPen(accent, 2));
  accent.setAlpha(70);
  painter.setBrush(accent);
  painter.drawPolygon(ring([&](size_t i) { return values_[i]; }));
  painter.setPen(palette().color(QPalette::Text));
  for (size_t i = 0; i < labels_.size(); ++i) {
    const QPointF at = point(i, 1 + labelRoom * 0.7 / radius);
    painter.drawText(QRectF(at.x() - 50, at.y() - 9, 100, 18), Qt::AlignCenter,
                     QString::fromStdString(labels_[i]));
  }
}

}  // namespace kestrin
