#pragma once

#include <QDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QProgressBar>

#include "home/mail/compose_email_panel.h"
#include "shell/design/controls.h"

namespace kestrin {

/// The form of a mail, shown while the panel is open.
class ComposeDialog final : public QDialog {
 public:
  ComposeDialog(ComposeEmailPanel& panel, QWidget* parent);

  /// Shows what the panel holds now.
  void refresh();

 private:
  void showSuggestions();

  ComposeEmailPanel& panel_;
  QLineEdit* to_;
  QListWidget* suggestions_;
  QLineEdit* subject_;
  QPlainTextEdit* body_;
  QLabel* message_;
  QProgressBar* sending_;
  QPushButton* send_;
};

}  // namespace kestrin
