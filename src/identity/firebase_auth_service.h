#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "diagnostics/logger.h"
#include "identity/user.h"
#include "platform/files.h"
#include "platform/http.h"

namespace kestrin {

/// Where accounts are asked for: the base address without a trailing slash, and the Web API key.
/// Constants of the build; the environment overrides them (KESTRIN_AUTH_URL, KESTRIN_AUTH_KEY).
struct AuthEndpoint {
  std::string url;
  std::string key;

  static AuthEndpoint fromEnvironment();
};

/// The optional e-mail account: sign-in, sign-up, and the account kept between runs in a file of
/// the user's alone. Stays signed in until `signOut`; tokens are never refreshed. Thread-safe.
///
/// Completions run once, on the main queue, unless this is destroyed first. Errors: domain "Auth"
/// (AuthErrorCode), with a text for the user. Passwords, tokens and the key reach no log.
class FirebaseAuthService {
 public:
  using Completion = std::function<void(Result<User>)>;
  static constexpr const char* authFilename = "firebase_user.json";

  /// Reads the stored account; a file that does not decode counts as signed out.
  FirebaseAuthService(Dispatch& dispatch, Http& http, Files& files, Logger& logger,
                      AuthEndpoint endpoint);
  ~FirebaseAuthService();

  std::optional<User> currentUser() const;

  void signIn(const std::string& email, const std::string& password, Completion completion);
  void signUp(const std::string& email, const std::string& password, Completion completion);
  /// Forgets the account and deletes its file. A sign-in still under way fails.
  void signOut();

 private:
  struct Account;
  void ask(const char* operation, const std::string& email, const std::string& password,
           Completion completion);

  QueueRef main_;
  const AuthEndpoint endpoint_;
  std::shared_ptr<HttpSession> session_;
  std::shared_ptr<Account> account_;
};

}  // namespace kestrin
