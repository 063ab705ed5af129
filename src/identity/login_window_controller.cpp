#include "identity/login_window_controller.h"

#include "platform/text/text.h"

namespace kestrin {

LoginWindowController::LoginWindowController(FirebaseAuthService& auth) : auth_(auth) {}

void LoginWindowController::show() {
  if (window_.isVisible) return;
  window_.isVisible = true;
  errorLabel_.clear();
  changed();
}

void LoginWindowController::close() {
  if (!window_.isVisible) return;
  window_.isVisible = false;
  passwordField.clear();
  changed();
}

void LoginWindowController::loginClicked() { send(Request::signIn); }
void LoginWindowController::signupClicked() { send(Request::signUp); }

void LoginWindowController::send(Request request) {
  if (isBusy()) return;
  const std::string email = text::trim(emailField);
  if (email.empty() || passwordField.empty()) {
    errorLabel_ = "Enter your email and password";
    return changed();
  }
  errorLabel_.clear();
  request_ = request;
  changed();
  auto done = lifetime_.guard([this](const Result<User>& result) { finish(result); });
  if (request == Request::signIn) {
    auth_.signIn(email, passwordField, std::move(done));
  } else {
    auth_.signUp(email, passwordField, std::move(done));
  }
}

void LoginWindowController::finish(const Result<User>& result) {
  request_ = Request::none;
  if (!result) {
    errorLabel_ = result.error().description;
    return changed();
  }
  window_.isVisible = false;
  passwordField.clear();
  changed();
  if (onLoginSuccess) onLoginSuccess(*result);
}

LoginWindowController::Button LoginWindowController::loginButton() const {
  return {request_ == Request::signIn ? "Signing in..." : "Sign In", !isBusy()};
}

LoginWindowController::Button LoginWindowController::signupButton() const {
  return {request_ == Request::signUp ? "Creating account..." : "Create Account", !isBusy()};
}

void LoginWindowController::changed() const {
  if (onChange) onChange();
}

}  // namespace kestrin
