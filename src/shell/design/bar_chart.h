#pragma once

#include <QWidget>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace kestrin {

/// Named counts as horizontal bars, the longest as wide as there is room.
class BarChart final : public QWidget {
 public:
  explicit BarChart(const QString& name, QWidget* parent = nullptr);
  void setValues(std::vector<std::pair<std::string, int64_t>> values);
  QSize sizeHint() const override;
  QSize minimumSizeHint() const override { return sizeHint(); }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  const QString name_;
  std::vector<std::pair<std::string, int64_t>> values_;
};

}  // namespace kestrin
