#pragma once

#include <functional>
#include <string>

#include "identity/firebase_auth_service.h"
#include "platform/lifetime.h"

namespace kestrin {

/// The small window that signs a user in or makes an account: its fields, words and rules. Main
/// queue only.
class LoginWindowController {
 public:
  struct Window {
    std::string title = "Sign in to Kestrin";
    bool isVisible = false;
  };
  struct Button {
    std::string title;
    bool isEnabled = true;
  };

  explicit LoginWindowController(FirebaseAuthService& auth);

  /// Empty and ready for input; fields of a window that is already there stay.
  void show();
  /// A request under way still signs in.
  void close();

  /// Ask the service with what the fields hold. Nothing while an answer is awaited.
  void loginClicked();
  void signupClicked();

  const Window& window() const { return window_; }
  /// What went wrong last; empty when nothing did.
  const std::string& errorLabel() const { return errorLabel_; }
  bool isBusy() const { return request_ != Request::none; }
  Button loginButton() const;
  Button signupButton() const;

  /// What the user has typed so far; the password is dropped as soon as it is of no more use.
  std::string emailField;
  std::string passwordField;

  /// After the window has closed itself.
  std::function<void(const User&)> onLoginSuccess;
  std::function<void()> onChange;

 private:
  enum class Request { none, signIn, signUp };
  void send(Request request);
  void finish(const Result<User>& result);
  void changed() const;

  FirebaseAuthService& auth_;
  Window window_;
  std::string errorLabel_;
  Request request_ = Request::none;
  Lifetime lifetime_;
};

}  // namespace kestrin
