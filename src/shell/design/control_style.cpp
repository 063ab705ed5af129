#include "shell/design/control_style.h"

#include <QPainter>
#include <QStyleOption>

namespace kestrin {
namespace {

constexpr double edge = 1.5, corner = 4;

/// The ground of a box or a ring, and the colour of the mark on it.
QColor drawGround(QPainter& painter, const QStyleOption& option, const QRectF& box, double radius) {
  const bool marked = option.state & (QStyle::State_On | QStyle::State_NoChange);
  const QPalette& palette = option.palette;
  const bool near = option.state & (QStyle::State_HasFocus | QStyle::State_MouseOver);
  painter.setOpacity(option.state & QStyle::State_Enabled ? 1 : 0.5);
  painter.setPen(
      QPen(palette.color(marked || near ? QPalette::Highlight : QPalette::Midlight), edge));
  painter.setBrush(palette.color(marked ? QPalette::Highlight : QPalette::Base));
  painter.drawRoundedRect(box, radius, radius);
  return palette.color(QPalette::HighlightedText);
}

void drawBox(QPainter& painter, const QStyleOption& option) {
  const QRectF box = QRectF(option.rect).adjusted(1, 1, -1, -1);
  painter.setPen(QPen(drawGround(painter, option, box, corner), 2, Qt::SolidLine, Qt::RoundCap,
                      Qt::RoundJoin));
  const auto at = [&box](double x, double y) {
    return box.topLeft() + QPointF(box.width() * x, box.height() * y);
  };
  if (option.state & QStyle::State_NoChange) {
    painter.drawLine(at(0.28, 0.5), at(0.72, 0.5));
  } else if (option.state & QStyle::State_On) {
    const QPointF tick[] = {at(0.25, 0.52), at(0.43, 0.7), at(0.76, 0.32)};
    painter.drawPolyline(tick, 3);
  }
}

void drawRing(QPainter& painter, const QStyleOption& option) {
  const QRectF box = QRectF(option.rect).adjusted(1, 1, -1, -1);
  const QColor mark = drawGround(painter, option, box, box.width() / 2);
  if (!(option.state & QStyle::State_On)) return;
  painter.setPen(Qt::NoPen);
  painter.setBrush(mark);
  painter.drawEllipse(box.center(), box.width() / 5, box.height() / 5);
}

}  // namespace

void ControlStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option,
                                 QPainter* painter, const QWidget* widget) const {
  const bool box = element == PE_IndicatorCheckBox || element == PE_IndicatorItemViewItemCheck;
  if (!box && element != PE_IndicatorRadioButton) {
    return QProxyStyle::drawPrimitive(element, option, painter, widget);
  }
  painter->save();
  painter->setRenderHint(QPainter::Antialiasing);
  box ? drawBox(*painter, *option) : drawRing(*painter, *option);
  painter->restore();
}

}  // namespace kestrin
