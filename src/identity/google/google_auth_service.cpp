#include "identity/google/google_auth_service.h"

#include <utility>

#include "platform/dispatch/background.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr std::chrono::milliseconds requestTimeout{60'000};
/// For a peer that never falls silent and never ends either.
constexpr std::chrono::milliseconds resourceTimeout{120'000};
constexpr size_t maximumBodyBytes = 1u << 20;
constexpr size_t shownCharacters = 300;

auto failed(GoogleAuthService::ErrorCode code, std::string description) {
  return fail(GoogleAuthService::domain, code, std::move(description));
}

/// Queries hold codes and sessions.
std::string withoutQuery(const std::string& url) { return url.substr(0, url.find_first_of("?#")); }

/// The answer of the backend once it says that it did what it was asked.
Result<Json> successIn(Result<Json> answer) {
  if (!answer || answer->boolAt("success").value_or(false)) return answer;
  const auto error = answer->stringAt("error");
  if (error) return failed(GoogleAuthService::refused, text::prefix(*error, shownCharacters));
  return failed(GoogleAuthService::unreadable, "Unexpected response format");
}

Result<Json> answerIn(const Result<HttpResponse>& response) {
  if (!response) return fail(response.error());
  auto json = Json::parse(response->body);
  if (json && json->isObject()) return successIn(std::move(*json));
  if (response->status / 100 != 2) {
    return failed(GoogleAuthService::refused,
                  "The backend answered with status " + std::to_string(response->status));
  }
  return failed(GoogleAuthService::unreadable,
                response->body.empty() ? "No data received" : "Invalid JSON response");
}

std::vector<std::string> scopesIn(const Json& answer, const std::vector<std::string>& requested) {
  const Json* scopes = answer.find("scopes");
  return scopes && scopes->isArray() ? answer.stringsAt("scopes") : requested;
}

}  // namespace

GoogleAuthService::GoogleAuthService(Services services, GoogleConsent consent)
    : services_(std::move(services)),
      consent_(std::move(consent)),
      session_(services_.http.makeSession({.requestTimeout = requestTimeout,
                                           .resourceTimeout = resourceTimeout,
                                           .maximumBodyBytes = maximumBodyBytes})) {}

std::optional<GoogleAccount> GoogleAuthService::linkedAccount() const {
  return linkedGoogleAccount(services_.settings);
}

void GoogleAuthService::later(std::function<void()> f) {
  services_.dispatch.mainQueue()->post(lifetime_.guard([this, flow = flow_, f = std::move(f)] {
    if (flow == flow_) f();
  }));
}

void GoogleAuthService::signIn(const std::vector<std::string>& scopes, Completion completion) {
  if (authCompletion_) finish(failed(cancelled, "Sign-in cancelled"));
  ++flow_;
  requestedScopes_ = scopes;
  authCompletion_ = std::move(completion);
  state_ = services_.random.uuid();
  const auto address = consent_.address(scopes, state_);
  if (!address) return finish(failed(notSetUp, "Failed to build OAuth URL"));
  services_.logger.print(std::string("🔵 Starting Google OAuth with redirect: ") +
                         googleRedirectAddress);
  showAuthWindow(*address);
}

void GoogleAuthService::showAuthWindow(const std::string& address) {
  WebPageHandlers handlers;
  handlers.decidePolicy = [this](const WebNavigation& to) { return decidePolicy(to.url); };
  handlers.onFailed = [this](const WebLoadFailure& failure) { didFail(failure); };
  handlers.onClosed = [this] { later([this] { windowWillClose(); }); };
  handlers.onEnded = [this](const Error& error) {
    later([this, error] {
      services_.logger.print("❌ WebView navigation failed: " + error.description);
      if (!isProcessingCallback_) finish(fail(error));
    });
  };
  webView_ = services_.webPages.open({.title = windowTitle, .width = 520, .height = 720},
                                     services_.dispatch.mainQueue(), std::move(handlers));
  webView_->load(address);
}

bool GoogleAuthService::decidePolicy(const std::string& url) {
  services_.logger.print("🌐 WebView navigating to: " + withoutQuery(url));
  if (!isOAuthCallback(url)) return true;
  services_.logger.print("🎯 Detected OAuth callback!");
  if (isProcessingCallback_) {
    services_.logger.print("⚠️ Already processing callback, ignoring duplicate");
    return false;
  }
  isProcessingCallback_ = true;
  // An ending destroys the page, which waits for this answer.
  later([this, url] { handleCallback(url); });
  return false;
}

void GoogleAuthService::didFail(const WebLoadFailure& failure) {
  services_.logger.print(
      isOAuthCallback(failure.url)
          ? "⚠️ Localhost connection failed (expected for callback interception)"
          : "❌ WebView navigation failed: " + failure.description);
}

void GoogleAuthService::windowWillClose() {
  // The code is on its way already: its answer ends the flow.
  if (!authCompletion_ || isProcessingCallback_) return;
  services_.logger.print("⚠️ User closed auth window before completion");
  finish(failed(cancelled, "Sign-in cancelled"));
}

void GoogleAuthService::handleCallback(const std::string& url) {
  const GoogleCallback callback = parseGoogleCallback(url);
  if (callback.error) {
    services_.logger.print("❌ OAuth error in callback: " + *callback.error);
    return finish(
        failed(denied, "Authorization denied: " + text::prefix(*callback.error, shownCharacters)));
  }
  if (!callback.code || callback.code->empty()) {
    services_.logger.print("⚠️ Callback URL without code, cancelling");
    return finish(failed(cancelled, "Sign-in cancelled"));
  }
  // Without this, anybody's page could link an account of its own to this computer.
  if (callback.state != state_) {
    services_.logger.print("❌ OAuth callback belongs to another sign-in");
    return finish(failed(denied, "Authorization denied: the answer belongs to another sign-in"));
  }
  services_.logger.print("✅ Found auth code in callback");
  handleAuthCode(*callback.code);
}

void GoogleAuthService::handleAuthCode(const std::string& code) { exchangeCodeForTokens(code); }

void GoogleAuthService::exchangeCodeForTokens(const std::string& code) {
  services_.logger.print("🔄 Exchanging auth code for tokens...");
  post("/google/exchange-token",
       Json::object({{"code", code},
                     {"redirect_uri", googleRedirectAddress},
                     {"scopes", Json::arrayOf(requestedScopes_)}}),
       [this, flow = flow_](const Result<HttpResponse>& response) {
         if (flow != flow_) return;
         const auto answer = exchangeAnswer(response);
         if (!answer) return finish(fail(answer.error()));
         const GoogleAccount account{
             answer->stringAt("email", ""), answer->stringAt("name"), answer->stringAt("picture"),
             services_.dispatch.clock().wallNow(), scopesIn(*answer, requestedScopes_)};
         setLinkedGoogleAccount(services_.settings, account);
         services_.logger.print("✅ Google account linked: " + account.email);
         finish(account);
       });
}

Result<Json> GoogleAuthService::exchangeAnswer(const Result<HttpResponse>& response) {
  Logger& logger = services_.logger;
  if (!response) {
    logger.print("❌ Token exchange network error: " + response.error().description);
    return fail(response.error());
  }
  if (response->body.empty()) {
    logger.print("❌ No data received from token exchange");
  } else if (const auto json = Json::parse(response->body); !json) {
    logger.print("❌ JSON parsing error: " + json.error().description);
  } else if (!json->isObject()) {
    logger.print("❌ Failed to parse JSON response");
  } else if (auto answer = successIn(*json); !answer) {
    logger.print(answer.error().code == refused ? "❌ Backend error: " + answer.error().description
                                                : "❌ Unexpected response format");
  }
  return answerIn(response);
}

void GoogleAuthService::finish(const Result<GoogleAccount>& result) {
  ++flow_;
  webView_.reset();
  isProcessingCallback_ = false;
  state_.clear();
  const Completion completion = std::exchange(authCompletion_, nullptr);
  if (!completion) return;
  services_.dispatch.mainQueue()->post(
      lifetime_.guard([completion, result] { completion(result); }));
}

void GoogleAuthService::signOut(std::function<void(const Status&)> completion) {
  if (!linkedAccount()) {
    return services_.dispatch.mainQueue()->post(
        lifetime_.guard([completion] { completion(failed(noAccount, "No linked account")); }));
  }
  post("/google/unlink", Json::object(),
       [this, completion = std::move(completion)](const Result<HttpResponse>& response) {
         const auto answer = answerIn(response);
         if (!answer) return completion(fail(answer.error()));
         setLinkedGoogleAccount(services_.settings, std::nullopt);
         completion({});
       });
}

void GoogleAuthService::updateScopes(const std::vector<std::string>& scopes,
                                     Completion completion) {
  if (!linkedAccount()) {
    return services_.dispatch.mainQueue()->post(
        lifetime_.guard([completion] { completion(failed(noAccount, "No linked account")); }));
  }
  post(
      "/google/update-scopes", Json::object({{"scopes", Json::arrayOf(scopes)}}),
      [this, scopes, completion = std::move(completion)](const Result<HttpResponse>& response) {
        const auto answer = answerIn(response);
        auto account = linkedAccount();
        if (answer && account) {
          account->enabledScopes = scopesIn(*answer, scopes);
          setLinkedGoogleAccount(services_.settings, account);
          return completion(*account);
        }
        // It may have been unlinked meanwhile, and stays so.
        const Error error = answer ? Error{domain, noAccount, "No linked account"} : answer.error();
        services_.logger.print("❌ Failed to update scopes: " + error.description);
        completion(fail(error));
      });
}

void GoogleAuthService::post(const std::string& path, Json body,
                             std::function<void(const Result<HttpResponse>&)> completion) {
  const auto told = onMain(services_.dispatch, lifetime_, std::move(completion));
  // The first reading of the id waits for the disk.
  services_.dispatch.globalQueue()->post([url = services_.backend + path, body = std::move(body),
                                          told, session = session_,
                                          &id = services_.deviceId]() mutable {
    body.set("device_user_id", id.deviceId());
    session->data(jsonPost(url, body.dump()), told);
  });
}

}  // namespace kestrin
