#pragma once

#include <QLineEdit>
#include <QPushButton>
#include <QTextEdit>

#include "diagnostics/terminal/terminal_view.h"
#include "shell/pages/page.h"

namespace kestrin {

/// Draws TerminalView: its text in one type face of equal widths, and the line below it.
class TerminalPage final : public Page {
 public:
  explicit TerminalPage(TerminalView& view);
  ~TerminalPage() override;
  void refresh() override;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  TerminalView& view_;
  QTextEdit* output_;
  QLineEdit* input_;
  QPushButton* stop_;
  size_t drawn_ = 0;
  int clearings_ = 0;
};

}  // namespace kestrin
