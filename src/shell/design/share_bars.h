#pragma once

#include <QColor>
#include <QString>
#include <QWidget>
#include <optional>
#include <vector>

namespace kestrin {

/// Shares of one whole as bars, each with the share of another whole as a thin mark, and its value
/// in per cent.
class ShareBars final : public QWidget {
 public:
  struct Row {
    QString label;
    double share = 0;  ///< 0 to 1
    std::optional<double> compared;
    QColor color;  ///< none: the accent
  };

  explicit ShareBars(const QString& name);
  void setRows(std::vector<Row> rows);
  QSize sizeHint() const override;
  QSize minimumSizeHint() const override { return sizeHint(); }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  std::vector<Row> rows_;
};

/// Values from -1 to 1 on a line each between two words, with those of another one as thin marks.
class Gauges final : public QWidget {
 public:
  struct Row {
    QString name, low, high;
    double value = 0;
    QString valueText;
    std::optional<double> compared;
    QString comparedText;
  };

  explicit Gauges(const QString& name);
  void setRows(std::vector<Row> rows);
  QSize sizeHint() const override;
  QSize minimumSizeHint() const override { return sizeHint(); }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  std::vector<Row> rows_;
};

}  // namespace kestrin
