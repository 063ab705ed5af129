#include "shell/design/bar_chart.h"

#include <QPainter>
#include <algorithm>

#include "shell/design/controls.h"

namespace kestrin {
namespace {

constexpr int rowHeight = 26;
constexpr size_t mostRows = 8;
constexpr int numberWidth = 44;

}  // namespace

BarChart::BarChart(const QString& name, QWidget* parent) : QWidget(parent), name_(name) {
  setAccessibleName(name);
}

void BarChart::setValues(std::vector<std::pair<std::string, int64_t>> values) {
  if (values.size() > mostRows) values.resize(mostRows);
  if (values == values_) return;
  values_ = std::move(values);
  QStringList words;
  for (const auto& [label, count] : values_) words << qt(label) + " " + QString::number(count);
  setAccessibleDescription(words.join(", "));
  updateGeometry();
  update();
}

QSize BarChart::sizeHint() const { return {200, int(values_.size()) * rowHeight}; }

void BarChart::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  int64_t most = 1;
  for (const auto& [label, count] : values_) most = std::max(most, count);
  const int labels = std::min(width() / 3, 130);
  const int room = std::max(width() - labels - numberWidth, 10);
  for (size_t i = 0; i < values_.size(); ++i) {
    const auto& [label, count] = values_[i];
    const QRect row(0, int(i) * rowHeight, width(), rowHeight);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(row.adjusted(0, 0, labels - width() - 8, 0), Qt::AlignVCenter | Qt::AlignLeft,
                     painter.fontMetrics().elidedText(qt(label), Qt::ElideRight, labels - 8));
    const QRectF track(labels, row.top() + 8, room, rowHeight - 16);
    painter.setPen(Qt::NoPen);
    painter.setBrush(palette().color(QPalette::Mid));
    painter.drawRoundedRect(track, 5, 5);
    QRectF bar = track;
    bar.setWidth(std::max(track.width() * double(count) / double(most), 10.0));
    painter.setBrush(palette().color(QPalette::Highlight));
    painter.drawRoundedRect(bar, 5, 5);
    painter.setPen(palette().color(QPalette::Dark));
    painter.drawText(row.adjusted(width() - numberWidth, 0, 0, 0),
                     Qt::AlignVCenter | Qt::AlignRight, QString::number(count));
  }
}

}  // namespace kestrin
