#pragma once

#include <QLayout>
#include <memory>
#include <vector>

namespace kestrin {

/// A row that breaks into lines where it is too narrow for all that stands in it. While there is
/// room it is laid out like a plain row: what has a stretch takes the line's spare width, and a
/// text with one breaks its own lines first.
class FlowLayout final : public QLayout {
 public:
  explicit FlowLayout(QWidget* parent = nullptr);
  ~FlowLayout() override;

  void addWidget(QWidget* widget, int stretch = 0, Qt::Alignment alignment = {});
  void addLayout(QLayout* layout, int stretch = 0);
  void addStretch(int stretch = 1);

  void addItem(QLayoutItem* item) override;
  int count() const override { return int(entries_.size()); }
  QLayoutItem* itemAt(int index) const override;
  QLayoutItem* takeAt(int index) override;
  bool hasHeightForWidth() const override { return true; }
  int heightForWidth(int width) const override;
  QSize sizeHint() const override;
  QSize minimumSize() const override;
  Qt::Orientations expandingDirections() const override { return Qt::Horizontal; }
  void setGeometry(const QRect& rect) override;

 private:
  struct Entry {
    std::unique_ptr<QLayoutItem> item;
    int stretch;
  };
  enum class Move { yes, no };

  void add(QLayoutItem* item, int stretch);
  /// One after the other; the height of all lines.
  int arrange(const QRect& rect, Move move) const;

  std::vector<Entry> entries_;
};

}  // namespace kestrin
