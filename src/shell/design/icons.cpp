#include "shell/design/icons.h"

#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>
#include <cmath>

namespace kestrin {
namespace {

QPainterPath polyline(std::initializer_list<QPointF> points) {
  QPainterPath path;
  bool first = true;
  for (const QPointF& point : points) {
    first ? path.moveTo(point) : path.lineTo(point);
    first = false;
  }
  return path;
}

QPainterPath gear() {
  QPainterPath path;
  path.addEllipse(QPointF(12, 12), 3, 3);
  path.addEllipse(QPointF(12, 12), 6.5, 6.5);
  for (int tooth = 0; tooth < 8; ++tooth) {
    const double angle = tooth * M_PI / 4;
    path.moveTo(12 + 6.5 * std::cos(angle), 12 + 6.5 * std::sin(angle));
    path.lineTo(12 + 9.5 * std::cos(angle), 12 + 9.5 * std::sin(angle));
  }
  return path;
}

/// In a square of 24 by 24.
QPainterPath outline(Glyph glyph) {
  QPainterPath path;
  switch (glyph) {
    case Glyph::home:
      path = polyline({{3, 11.5}, {12, 3.5}, {21, 11.5}});
      path.addPath(polyline({{5.5, 9.5}, {5.5, 20}, {18.5, 20}, {18.5, 9.5}}));
      path.addPath(polyline({{10, 20}, {10, 14}, {14, 14}, {14, 20}}));
      break;
    case Glyph::calendar:
      path.addRoundedRect(QRectF(4, 5, 16, 15.5), 2, 2);
      for (const double x : {8.5, 15.5}) path.addPath(polyline({{x, 3}, {x, 6.5}}));
      path.addPath(polyline({{4, 10}, {20, 10}}));
      path.addEllipse(QPointF(9, 14.5), 1, 1);
      break;
    case Glyph::liveAssist:
      for (const auto& [x, half] :
           {std::pair{4.0, 2.0}, {8.0, 6.0}, {12.0, 9.0}, {16.0, 5.0}, {20.0, 2.5}}) {
        path.moveTo(x, 12 - half);
        path.lineTo(x, 12 + half);
      }
      break;
    case Glyph::calls:
      path.moveTo(5, 4);
      path.lineTo(9, 4);
      path.lineTo(11, 9);
      path.lineTo(8.5, 11);
      path.quadTo(10.5, 14, 13, 15.5);
      path.lineTo(15, 13);
      path.lineTo(20, 15);
      path.lineTo(20, 19);
      path.quadTo(20, 20, 19, 20);
      path.quadTo(4.5, 19, 4, 5);
      path.quadTo(4, 4, 5, 4);
      break;
    case Glyph::research:
      path.addEllipse(QPointF(10.5, 10.5), 6.5, 6.5);
      path.moveTo(15.5, 15.5);
      path.lineTo(21, 21);
      break;
    case Glyph::notes:
      path.addRoundedRect(QRectF(5, 3, 14, 18), 2, 2);
      for (const double y : {8.0, 12.0, 16.0}) {
        path.moveTo(8.5, y);
        path.lineTo(y == 16.0 ? 13 : 15.5, y);
      }
      break;
    case Glyph::history:
      path.addEllipse(QPointF(12, 12), 8.5, 8.5);
      path.addPath(polyline({{12, 7}, {12, 12}, {15.5, 14}}));
      break;
    case Glyph::modes:
      for (const auto& [y, x] : {std::pair{6.5, 15.0}, {12.0, 8.0}, {17.5, 13.0}}) {
        path.moveTo(4, y);
        path.lineTo(x - 2, y);
        path.addEllipse(QPointF(x, y), 2, 2);
        path.moveTo(x + 2, y);
        path.lineTo(20, y);
      }
      break;
    case Glyph::personality:
      path = polyline({{12, 3}, {20, 9}, {17, 19}, {7, 19}, {4, 9}, {12, 3}});
      path.addPath(polyline({{12, 7}, {16.5, 10.5}, {14, 16}, {9, 15}, {8, 10}, {12, 7}}));
      break;
    case Glyph::settings:
      path = gear();
      break;
    case Glyph::terminal:
      path.addRoundedRect(QRectF(3, 4, 18, 16), 2, 2);
      path.addPath(polyline({{7, 9}, {10, 12}, {7, 15}}));
      path.moveTo(12.5, 15);
      path.lineTo(17, 15);
      break;
    case Glyph::logs:
      for (const double y : {6.0, 10.0, 14.0, 18.0}) {
        path.moveTo(4, y);
        path.lineTo(5, y);
        path.moveTo(8, y);
        path.lineTo(20, y);
      }
      break;
    case Glyph::account:
      path.addEllipse(QPointF(12, 8.5), 4, 4);
      path.moveTo(4.5, 20.5);
      path.quadTo(5, 14.5, 12, 14.5);
      path.quadTo(19, 14.5, 19.5, 20.5);
      break;
  }
  return path;
}

class GlyphEngine final : public QIconEngine {
 public:
  GlyphEngine(Glyph glyph, QColor color) : glyph_(glyph), color_(color) {}

  void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->translate(rect.topLeft());
    painter->scale(rect.width() / 24.0, rect.height() / 24.0);
    painter->setOpacity(mode == QIcon::Disabled ? 0.4 : 1);
    painter->setPen(QPen(color_, 1.7, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter->drawPath(outline(glyph_));
    painter->restore();
  }
  QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
    QPixmap pixmap(size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    paint(&painter, QRect({0, 0}, size), mode, state);
    return pixmap;
  }
  QIconEngine* clone() const override { return new GlyphEngine(*this); }

 private:
  const Glyph glyph_;
  const QColor color_;
};

}  // namespace

QIcon glyphIcon(Glyph glyph, const QColor& color) { return QIcon(new GlyphEngine(glyph, color)); }

}  // namespace kestrin
