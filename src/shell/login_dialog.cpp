#include "shell/login_dialog.h"

namespace kestrin {

LoginDialog::LoginDialog(LoginWindowController& login, QWidget* parent)
    : QDialog(parent),
      login_(login),
      email_(new QLineEdit),
      password_(new QLineEdit),
      error_(makeParagraph("", "error")) {
  setMinimumWidth(360);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(24, 24, 24, 24);
  column->setSpacing(10);
  column->addWidget(makeLabel(qt(login_.window().title), "heading"));
  email_->setPlaceholderText("Email");
  email_->setAccessibleName("Email");
  password_->setPlaceholderText("Password");
  password_->setAccessibleName("Password");
  password_->setEchoMode(QLineEdit::Password);
  connect(email_, &QLineEdit::textEdited, this,
          [this](const QString& text) { login_.emailField = text.toStdString(); });
  connect(password_, &QLineEdit::textEdited, this,
          [this](const QString& text) { login_.passwordField = text.toStdString(); });
  column->addWidget(email_);
  column->addWidget(password_);
  column->addWidget(error_);
  signIn_ = makeButton(
      "", [this] { login_.loginClicked(); }, "primary");
  signIn_->setDefault(true);
  signUp_ = makeButton("", [this] { login_.signupClicked(); });
  signUp_->setAutoDefault(false);
  auto* buttons = new FlowLayout;
  buttons->addWidget(signUp_);
  buttons->addStretch(1);
  buttons->addWidget(signIn_);
  column->addLayout(buttons);
  login_.onChange = [this] { refresh(); };
  connect(this, &QDialog::rejected, this, [this] { login_.close(); });
}

LoginDialog::~LoginDialog() { login_.onChange = nullptr; }

void LoginDialog::refresh() {
  setWindowTitle(qt(login_.window().title));
  if (email_->text() != qt(login_.emailField)) email_->setText(qt(login_.emailField));
  if (password_->text() != qt(login_.passwordField)) password_->setText(qt(login_.passwordField));
  error_->setText(qt(login_.errorLabel()));
  error_->setVisible(!login_.errorLabel().empty());
  const auto show = [](QPushButton* button, const LoginWindowController::Button& state) {
    button->setText(qt(state.title));
    button->setAccessibleName(qt(state.title));
    button->setEnabled(state.isEnabled);
  };
  show(signIn_, login_.loginButton());
  show(signUp_, login_.signupButton());
  setVisible(login_.window().isVisible);
}

}  // namespace kestrin
