#include "shell/design/share_bars.h"

#include <QPainter>
#include <algorithm>

namespace kestrin {
namespace {

constexpr int leastWidth = 260, barRow = 26, gaugeRow = 52, numberWidth = 48, barHeight = 10;

QString percent(double share) { return QString::number(share * 100, 'f', 0) + " %"; }

/// The thin mark of what is compared.
void drawMark(QPainter& painter, const QPalette& palette, double x, const QRectF& track) {
  painter.setPen(Qt::NoPen);
  painter.setBrush(palette.color(QPalette::WindowText));
  painter.drawRect(QRectF(x - 1, track.top() - 3, 2, track.height() + 6));
}

void drawTrack(QPainter& painter, const QPalette& palette, const QRectF& track) {
  painter.setPen(Qt::NoPen);
  painter.setBrush(palette.color(QPalette::Mid));
  painter.drawRoundedRect(track, track.height() / 2, track.height() / 2);
}

}  // namespace

ShareBars::ShareBars(const QString& name) {
  setAccessibleName(name);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void ShareBars::setRows(std::vector<Row> rows) {
  rows_ = std::move(rows);
  QStringList words;
  for (const Row& row : rows_) {
    words << row.label + " " + percent(row.share) +
                 (row.compared ? ", compared " + percent(*row.compared) : QString());
  }
  setAccessibleDescription(words.join("; "));
  updateGeometry();
  update();
}

QSize ShareBars::sizeHint() const { return {leastWidth, int(rows_.size()) * barRow}; }

void ShareBars::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const int labels = std::min(width() / 3, 130);
  for (size_t i = 0; i < rows_.size(); ++i) {
    const Row& row = rows_[i];
    const QRect line(0, int(i) * barRow, width(), barRow);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(line.adjusted(0, 0, labels - width() - 8, 0), Qt::AlignVCenter | Qt::AlignLeft,
                     painter.fontMetrics().elidedText(row.label, Qt::ElideRight, labels - 8));
    const QRectF track(labels, line.center().y() - barHeight / 2.0, width() - labels - numberWidth,
                       barHeight);
    drawTrack(painter, palette(), track);
    QRectF bar = track;
    bar.setWidth(std::clamp(row.share, 0.0, 1.0) * track.width());
    painter.setBrush(row.color.isValid() ? row.color : palette().color(QPalette::Highlight));
    painter.drawRoundedRect(bar, barHeight / 2.0, barHeight / 2.0);
    if (row.compared)
      drawMark(painter, palette(),
               track.left() + std::clamp(*row.compared, 0.0, 1.0) * track.width(), track);
    painter.setPen(palette().color(QPalette::Dark));
    painter.drawText(line.adjusted(width() - numberWidth, 0, 0, 0),
                     Qt::AlignVCenter | Qt::AlignRight, percent(row.share));
  }
}

Gauges::Gauges(const QString& name) {
  setAccessibleName(name);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void Gauges::setRows(std::vector<Row> rows) {
  rows_ = std::move(rows);
  QStringList words;
  for (const Row& row : rows_) {
    words << row.name + " " + row.valueText +
                 (row.compared ? ", compared " + row.comparedText : QString());
  }
  setAccessibleDescription(words.join("; "));
  updateGeometry();
  update();
}

QSize Gauges::sizeHint() const { return {leastWidth, int(rows_.size()) * gaugeRow}; }

void Gauges::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  for (size_t i = 0; i < rows_.size(); ++i) {
    const Row& row = rows_[i];
    const QRect head(0, int(i) * gaugeRow, width(), 20);
    const QRectF track(0, head.bottom() + 4, width(), 6);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(head, Qt::AlignVCenter | Qt::AlignLeft, row.name);
    painter.drawText(head, Qt::AlignVCenter | Qt::AlignRight,
                     row.compared ? row.valueText + "  (" + row.comparedText + ")" : row.valueText);
    drawTrack(painter, palette(), track);
    const auto at = [&track](double value) {
      return track.left() + (std::clamp(value, -1.0, 1.0) + 1) / 2 * (track.width() - 12) + 6;
    };
    painter.setBrush(palette().color(QPalette::Midlight));
    painter.drawRect(QRectF(track.center().x() - 0.5, track.top() - 2, 1, 10));
    if (row.compared) drawMark(painter, palette(), at(*row.compared), track);
    painter.setPen(Qt::NoPen);
    painter.setBrush(palette().color(QPalette::Highlight));
    painter.drawEllipse(QPointF(at(row.value), track.center().y()), 6, 6);
    const QRectF words(0, track.bottom() + 2, width(), 18);
    painter.setPen(palette().color(QPalette::Dark));
    painter.drawText(words, Qt::AlignVCenter | Qt::AlignLeft, row.low);
    painter.drawText(words, Qt::AlignVCenter | Qt::AlignRight, row.high);
  }
}

}  // namespace kestrin
