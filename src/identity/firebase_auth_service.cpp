#include "identity/firebase_auth_service.h"

#include <cstdlib>
#include <mutex>
#include <utility>

#include "identity/account_file.h"
#include "identity/auth_reply.h"

#ifndef KESTRIN_AUTH_BASE_URL
#define KESTRIN_AUTH_BASE_URL "https://identitytoolkit.googleapis.com/v1"
#endif
#ifndef KESTRIN_AUTH_WEB_API_KEY
#define KESTRIN_AUTH_WEB_API_KEY ""
#endif

namespace kestrin {
namespace {

constexpr const char* domain = "Auth";
constexpr std::chrono::milliseconds requestTimeout{60'000};
/// For a peer that never falls silent and never ends either.
constexpr std::chrono::milliseconds resourceTimeout{120'000};
constexpr size_t maximumBodyBytes = 1u << 20;

std::string fromVariable(const char* variable, const char* fallback) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0' ? value : fallback;
}

}  // namespace

AuthEndpoint AuthEndpoint::fromEnvironment() {
  AuthEndpoint endpoint{fromVariable("KESTRIN_AUTH_URL", KESTRIN_AUTH_BASE_URL),
                        fromVariable("KESTRIN_AUTH_KEY", KESTRIN_AUTH_WEB_API_KEY)};
  while (!endpoint.url.empty() && endpoint.url.back() == '/') endpoint.url.pop_back();
  return endpoint;
}

/// The account and its file, changed together; outlives the service while a request ends.
struct FirebaseAuthService::Account {
  Account(Files& f, Logger& l) : files(f), logger(l), path(accountFilePath(f, authFilename)) {
    if (!path || !files.exists(*path)) return;
    const auto content = files.read(*path);
    const auto json = content ? Json::parse(*content) : Json();
    if (json) user = User::fromJson(*json);
    if (!user) {
      logger.log(domain, LogLevel::warning, "The stored account cannot be read: signed out");
    }
  }

  void store(const User& signedIn) {
    user = signedIn;
    const Status written = path ? files.writeAtomic(*path, signedIn.toJson().dump())
                                : Status(fail(domain, 0, "there is no data folder"));
    if (!written) {
      logger.log(domain, LogLevel::warning,
                 "The account is kept for this run only: " + written.error().description);
    }
  }

  void forget() {
    user.reset();
    ++signOuts;
    if (!path) return;
    // What the legacy folder holds would be copied over, and signed in, at the next start.
    for (const std::string& file : {*path, legacyAccountFilePath(files, authFilename)}) {
      if (!files.exists(file)) continue;
      if (const Status removed = files.remove(file); !removed) {
        logger.log(domain, LogLevel::error,
                   "The account's file cannot be deleted: " + removed.error().description);
      }
    }
  }

  Files& files;
  Logger& logger;
  const std::optional<std::string> path;
  mutable std::mutex mutex;  ///< guards what follows and the file
  std::optional<User> user;
  int signOuts = 0;
};

FirebaseAuthService::FirebaseAuthService(Dispatch& dispatch, Http& http, Files& files,
                                         Logger& logger, AuthEndpoint endpoint)
    : main_(dispatch.mainQueue()),
      endpoint_(std::move(endpoint)),
      session_(http.makeSession({.requestTimeout = requestTimeout,
                                 .resourceTimeout = resourceTimeout,
                                 .maximumBodyBytes = maximumBodyBytes})),
      account_(std::make_shared<Account>(files, logger)) {}

FirebaseAuthService::~FirebaseAuthService() = default;

std::optional<User> FirebaseAuthService::currentUser() const {
  std::lock_guard lock(account_->mutex);
  return account_->user;
}

void FirebaseAuthService::signIn(const std::string& email, const std::string& password,
                                 Completion completion) {
  ask("accounts:signInWithPassword", email, password, std::move(completion));
}

void FirebaseAuthService::signUp(const std::string& email, const std::string& password,
                                 Completion completion) {
  ask("accounts:signUp", email, password, std::move(completion));
}

void FirebaseAuthService::ask(const char* operation, const std::string& email,
                              const std::string& password, Completion completion) {
  const auto failOnMain = [&](AuthErrorCode code, const char* description) {
    main_->post([completion = std::move(completion), code, description] {
      completion(fail(domain, code, description));
    });
  };
  if (endpoint_.key.empty() && endpoint_.url == KESTRIN_AUTH_BASE_URL) {
    return failOnMain(authNotSetUp, "Sign-in is not set up here (KESTRIN_AUTH_KEY is missing)");
  }
  HttpRequest request = jsonPost(
      endpoint_.url + "/" + operation + "?key=" + urlEncode(endpoint_.key),
      Json::object({{"email", email}, {"password", password}, {"returnSecureToken", true}}).dump());
  if (!isHttpUrl(request.url)) return failOnMain(authNotSetUp, "Invalid sign-in URL");
  request.timeout = requestTimeout;

  int signOuts = 0;
  {
    std::lock_guard lock(account_->mutex);
    signOuts = account_->signOuts;
  }
  session_->data(
      std::move(request), [weak = std::weak_ptr<Account>(account_), main = main_, signOuts,
                           completion = std::move(completion)](const Result<HttpResponse>& answer) {
        const auto account = weak.lock();
        if (!account) return;
        auto user = answer ? parseAuthReply(*answer)
                           : Result<User>(fail(domain, authTransport, answer.error().description));
        if (user) {
          std::lock_guard lock(account->mutex);
          if (account->signOuts == signOuts) {
            account->store(*user);
          } else {
            user = fail(domain, authSignedOut, "Signed out");
          }
        }
        main->post([completion, user = std::move(user)] { completion(user); });
      });
}

void FirebaseAuthService::signOut() {
  std::lock_guard lock(account_->mutex);
  account_->forget();
}

}  // namespace kestrin
