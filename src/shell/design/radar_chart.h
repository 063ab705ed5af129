#pragma once

#include <QWidget>
#include <string>
#include <vector>

namespace kestrin {

/// Values on axes around a middle, as one shape. With fewer than three axes there is no shape: bars
/// stand for it.
class RadarChartWidget final : public QWidget {
 public:
  explicit RadarChartWidget(const QString& name, QWidget* parent = nullptr);
  /// `values`: one for each label, 0 to 1. `description` says them to those who do not see them.
  void setValues(std::vector<std::string> labels, std::vector<double> values,
                 const QString& description);
  QSize sizeHint() const override { return {230, 210}; }
  QSize minimumSizeHint() const override { return sizeHint(); }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  void paintBars(class QPainter& painter);
  void paintShape(class QPainter& painter);

  const QString name_;
  std::vector<std::string> labels_;
  std::vector<double> values_;
};

}  // namespace kestrin
