#pragma once

#include <QDialog>
#include <QProgressBar>
#include <map>

#include "identity/google/google_account_view.h"
#include "shell/design/controls.h"

namespace kestrin {

/// The Google account: what is linked, what it may be used for, and the buttons that change it.
/// Deletes itself when it is closed.
class GoogleAccountDialog final : public QDialog {
 public:
  GoogleAccountDialog(GoogleAccountView& account, QWidget* parent);
  ~GoogleAccountDialog() override;

 private:
  QLayout* makeBoxes();
  void refresh();
  void askToUnlink();

  GoogleAccountView& account_;
  QLabel* status_;
  std::map<std::string, QCheckBox*> choices_;
  QProgressBar* busy_;
  QLabel* problem_;
  QPushButton* retry_;
  QPushButton* link_;
  QPushButton* apply_;
  QPushButton* unlink_;
};

}  // namespace kestrin
