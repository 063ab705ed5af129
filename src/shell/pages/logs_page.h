#pragma once

#include <QAbstractTableModel>
#include <QTableView>

#include "diagnostics/logs_view.h"
#include "shell/pages/page.h"

namespace kestrin {

/// The application's log: filter, level, table, export.
class LogsPage final : public Page {
 public:
  explicit LogsPage(LogsView& view);
  ~LogsPage() override;
  void refresh() override;

 private:
  class Rows;
  void exportShown();

  LogsView& view_;
  Rows* rows_;
  QTableView* table_;
};

}  // namespace kestrin
