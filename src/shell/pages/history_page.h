#pragma once

#include <QLineEdit>
#include <array>
#include <set>
#include <string>
#include <vector>

#include "app/main_window_controller.h"
#include "shell/design/bar_chart.h"
#include "shell/design/controls.h"
#include "shell/pages/page.h"

namespace kestrin {

/// What was dictated, by day, with the search and the figures.
class HistoryPage final : public Page {
 public:
  /// `fetchUsage` asks for the counts of modes and applications anew.
  HistoryPage(MainWindowController& window, std::function<void()> fetchUsage);
  void refresh() override;
  void reload() override;

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  void showFigures();
  void showEntries();
  QWidget* entryCard(const HistoryEntry& entry, bool expanded);

  MainWindowController& window_;
  const std::function<void()> fetchUsage_;
  std::array<QLabel*, 4> figures_{};
  BarChart* modes_;
  BarChart* applications_;
  QLabel* noUsage_;
  QLineEdit* search_;
  QVBoxLayout* list_;
  std::vector<std::string> shown_;  ///< what `list_` was made of
};

}  // namespace kestrin
