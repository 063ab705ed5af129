#pragma once

#include <QDialog>
#include <QLineEdit>

#include "identity/login_window_controller.h"
#include "shell/design/controls.h"

namespace kestrin {

/// The small window that signs a user in.
class LoginDialog final : public QDialog {
 public:
  LoginDialog(LoginWindowController& login, QWidget* parent);
  ~LoginDialog() override;

 private:
  void refresh();

  LoginWindowController& login_;
  QLineEdit* email_;
  QLineEdit* password_;
  QLabel* error_;
  QPushButton* signIn_;
  QPushButton* signUp_;
};

}  // namespace kestrin
