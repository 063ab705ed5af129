#include "shell/design/flow_layout.h"

#include <QWidget>
#include <algorithm>

namespace kestrin {
namespace {

constexpr int usualSpacing = 8;
/// A text with a stretch rather breaks its own lines than the row, down to this width.
constexpr int narrowText = 150;

bool isStretch(QLayoutItem& item) { return item.spacerItem() != nullptr; }
/// What is hidden takes no place; a stretch counts as shown though it is empty.
bool isShown(QLayoutItem& item) { return isStretch(item) || !item.isEmpty(); }

int leastOf(QLayoutItem& item, int stretch) {
  const int hint = item.sizeHint().width();
  return stretch > 0 && item.hasHeightForWidth() ? std::min(hint, narrowText) : hint;
}

int heightAt(QLayoutItem& item, int width) {
  if (isStretch(item)) return 0;
  return item.hasHeightForWidth() ? item.heightForWidth(width) : item.sizeHint().height();
}

}  // namespace

FlowLayout::FlowLayout(QWidget* parent) : QLayout(parent) {
  setContentsMargins(0, 0, 0, 0);
  setSpacing(usualSpacing);
}

FlowLayout::~FlowLayout() {
  // A layout that stands in here asks for its own place while it goes.
  while (QLayoutItem* item = takeAt(0)) delete item;
}

void FlowLayout::add(QLayoutItem* item, int stretch) {
  entries_.push_back({std::unique_ptr<QLayoutItem>(item), stretch});
  invalidate();
}

void FlowLayout::addWidget(QWidget* widget, int stretch, Qt::Alignment alignment) {
  addChildWidget(widget);
  auto* item = new QWidgetItem(widget);
  item->setAlignment(alignment);
  add(item, stretch);
}

void FlowLayout::addLayout(QLayout* layout, int stretch) {
  addChildLayout(layout);
  add(layout, stretch);
}

void FlowLayout::addStretch(int stretch) { add(new QSpacerItem(0, 0), stretch); }

void FlowLayout::addItem(QLayoutItem* item) { add(item, 0); }

QLayoutItem* FlowLayout::itemAt(int index) const {
  return index >= 0 && index < count() ? entries_[size_t(index)].item.get() : nullptr;
}

QLayoutItem* FlowLayout::takeAt(int index) {
  if (index < 0 || index >= count()) return nullptr;
  QLayoutItem* item = entries_[size_t(index)].item.release();
  entries_.erase(entries_.begin() + index);
  return item;
}

int FlowLayout::heightForWidth(int width) const { return arrange(QRect(0, 0, width, 0), Move::no); }

QSize FlowLayout::sizeHint() const {
  QSize whole(-spacing(), 0);
  for (const Entry& entry : entries_) {
    if (!isShown(*entry.item) || isStretch(*entry.item)) continue;
    const QSize size = entry.item->sizeHint();
    whole =
        QSize(whole.width() + size.width() + spacing(), std::max(whole.height(), size.height()));
  }
  return whole.expandedTo({0, 0}).grownBy(contentsMargins());
}

QSize FlowLayout::minimumSize() const {
  QSize least;
  for (const Entry& entry : entries_) {
    if (isShown(*entry.item)) least = least.expandedTo(entry.item->minimumSize());
  }
  return least.grownBy(contentsMargins());
}

void FlowLayout::setGeometry(const QRect& rect) {
  QLayout::setGeometry(rect);
  arrange(rect, Move::yes);
}

int FlowLayout::arrange(const QRect& rect, Move move) const {
  const QRect area = rect.marginsRemoved(contentsMargins());
  int y = area.y();
  for (size_t first = 0; first < entries_.size();) {
    // As many as fit; the first one always does.
    int used = 0, stretches = 0;
    size_t end = first;
    bool holds = false;
    for (; end < entries_.size(); ++end) {
      QLayoutItem& item = *entries_[end].item;
      if (!isShown(item)) continue;
      if (!isStretch(item)) {
        const int wanted = (holds ? spacing() : 0) + leastOf(item, entries_[end].stretch);
        if (holds && used + wanted > area.width()) break;
        used += wanted;
        holds = true;
      }
      stretches += entries_[end].stretch;
    }
    int spare = std::max(0, area.width() - used), x = area.x(), height = 0, left = stretches;
    std::vector<std::pair<QLayoutItem*, QRect>> line;
    for (size_t i = first; i < end; ++i) {
      QLayoutItem& item = *entries_[i].item;
      if (!isShown(item)) continue;
      const int more = left > 0 ? spare * entries_[i].stretch / left : 0;
      left -= entries_[i].stretch;
      spare -= more;
      if (isStretch(item)) {
        x += more;
        continue;
      }
      const int width = std::min(leastOf(item, entries_[i].stretch) + more, area.width());
      height = std::max(height, heightAt(item, width));
      line.emplace_back(&item, QRect(x, y, width, 0));
      x += width + spacing();
    }
    for (auto& [item, place] : line) {
      place.setHeight(height);
      if (move == Move::yes) item->setGeometry(place);
    }
    if (!line.empty()) y += height + spacing();
    first = end;
  }
  const int bottom = y > area.y() ? y - spacing() : y;
  return bottom - rect.y() + contentsMargins().bottom();
}

}  // namespace kestrin
