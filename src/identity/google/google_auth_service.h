#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "identity/device_id_manager.h"
#include "identity/google/google_account.h"
#include "identity/google/google_consent.h"
#include "platform/dispatch/dispatch.h"
#include "platform/files.h"
#include "platform/http.h"
#include "platform/lifetime.h"
#include "platform/web_page.h"

namespace kestrin {

/// Links a Google account: the user consents in a window of our own, the code is taken out of the
/// redirect and handed to the backend, which keeps the tokens under the device id. Main queue only;
/// must be destroyed there.
///
/// Completions run once on the main queue, never within the call. Errors: domain "GoogleAuth"
/// (GoogleAuthErrorCode), and the transport's and the page's as they come. Codes, states and tokens
/// reach no log.
class GoogleAuthService {
 public:
  enum ErrorCode {
    notSetUp = 1,    ///< this build has no client id, or the backend no address
    cancelled = 2,   ///< the user closed the window, or began anew
    denied = 3,      ///< by the user or by Google, or an answer to another sign-in
    noAccount = 4,   ///< nothing is linked
    refused = 5,     ///< by the backend, which says why
    unreadable = 6,  ///< the backend's answer
  };
  using Completion = std::function<void(const Result<GoogleAccount>&)>;
  static constexpr const char* domain = "GoogleAuth";
  static constexpr const char* windowTitle = "Sign in with Google";

  struct Services {
    Dispatch& dispatch;
    Http& http;
    SettingsStore& settings;
    Random& random;
    WebPages& webPages;
    Logger& logger;
    DeviceIdManager& deviceId;
    std::string backend;  ///< base address
  };
  GoogleAuthService(Services services, GoogleConsent consent);

  std::optional<GoogleAccount> linkedAccount() const;

  /// One flow at a time: the one before it ends as cancelled.
  void signIn(const std::vector<std::string>& scopes, Completion completion);
  /// The link stays when the backend cannot be told.
  void signOut(std::function<void(const Status&)> completion);
  void updateScopes(const std::vector<std::string>& scopes, Completion completion);

  /// A window is open, or a code is on its way.
  bool isSigningIn() const { return authCompletion_ != nullptr; }

 private:
  void showAuthWindow(const std::string& address);
  bool decidePolicy(const std::string& url);
  void didFail(const WebLoadFailure& failure);
  void windowWillClose();
  void handleCallback(const std::string& url);
  void handleAuthCode(const std::string& code);
  void exchangeCodeForTokens(const std::string& code);
  void finish(const Result<GoogleAccount>& result);

  /// `body` gets the device's id. `completion` on the main queue, if this lives.
  void post(const std::string& path, Json body,
            std::function<void(const Result<HttpResponse>&)> completion);
  Result<Json> exchangeAnswer(const Result<HttpResponse>& response);
  /// `f` on the main queue, unless the flow is another by then.
  void later(std::function<void()> f);

  const Services services_;
  const GoogleConsent consent_;
  const std::shared_ptr<HttpSession> session_;
  std::unique_ptr<WebPage> webView_;
  Completion authCompletion_;
  std::vector<std::string> requestedScopes_;
  std::string state_;
  bool isProcessingCallback_ = false;
  int flow_ = 0;
  Lifetime lifetime_;
};

}  // namespace kestrin
