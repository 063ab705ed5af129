#include <gtest/gtest.h>

#include "identity/auth_reply.h"
#include "identity/login_window_controller.h"
#include "platform/simulated/simulated_world.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

const std::string where = "auth.example/v1/accounts:signInWithPassword";
const std::string file = "/home/user/.local/share/com.kestrin.kestrin/firebase_user.json";
const std::string legacyFile = "/home/user/.local/share/com.kestrin.nibo/firebase_user.json";
const User ada{"uid-1", "ada@example.org", "id-token", "refresh-token", "3600"};

struct Service : SimulatedWorld {
  Logger logger{dispatch, notifications};
  std::unique_ptr<FirebaseAuthService> auth = started();

  std::unique_ptr<FirebaseAuthService> started(AuthEndpoint endpoint = {"https://auth.example/v1",
                                                                        "secret key"}) {
    return std::make_unique<FirebaseAuthService>(dispatch, http, files, logger, endpoint);
  }
  /// "user", or the error's text.
  std::string signIn(Duration patience = 130s) {
    std::string outcome = "no answer";
    auth->signIn("ada@example.org", "pass word", [&](const Result<User>& user) {
      EXPECT_TRUE(dispatch.mainQueue()->isCurrent());
      EXPECT_TRUE(user || user.error().domain == "Auth");
      EXPECT_EQ(outcome, "no answer") << "told twice";
      outcome = user ? "user" : user.error().description;
    });
    simulation->runFor(patience);
    return outcome;
  }
  std::string signIn(ScriptedReply reply) {
    http.on("POST", where, std::move(reply));
    return signIn();
  }
  std::string refused(const std::string& message, int status = 400) {
    return signIn(ScriptedReply::json(
        Json::object({{"error", Json::object({{"code", status}, {"message", message}})}}), status));
  }
  std::string logged() {
    std::string all;
    for (const LogEntry& entry : logger.getEntries()) all += entry.message + "\n";
    return all;
  }
};

TEST(SignIn, AsksAsTheServiceWantsAndStaysSignedInAcrossRuns) {
  Service service;
  EXPECT_EQ(service.auth->currentUser(), std::nullopt);
  EXPECT_EQ(service.signIn(ScriptedReply::json(ada.toJson())), "user");
  const HttpRequest asked = service.http.requests().back().request;
  EXPECT_EQ(asked.url, "https://auth.example/v1/accounts:signInWithPassword?key=secret%20key");
  EXPECT_EQ(Json::parse(asked.body), Json::object({{"email", "ada@example.org"},
                                                   {"password", "pass word"},
                                                   {"returnSecureToken", true}}));
  EXPECT_EQ(service.auth->currentUser(), ada);
  EXPECT_EQ(service.started()->currentUser(), ada);

  service.auth->signOut();
  EXPECT_EQ(service.auth->currentUser(), std::nullopt);
  EXPECT_FALSE(service.files.exists(file));
  EXPECT_EQ(service.started()->currentUser(), std::nullopt);
}

TEST(SignIn, SaysWhatTheServiceRefused) {
  Service service;
  EXPECT_EQ(service.refused("INVALID_LOGIN_CREDENTIALS"), "Invalid email or password");
  EXPECT_EQ(service.refused("WEAK_PASSWORD : Password should be at least 6 characters"),
            "Password too weak (min 6 chars)");
  EXPECT_EQ(service.refused("EMAIL_EXISTS", 200), "Email already exists");
  EXPECT_EQ(service.refused("TOO_MANY_ATTEMPTS : later"), "TOO_MANY_ATTEMPTS : later");
  EXPECT_EQ(service.refused("EMAIL_EXISTS_NOT"), "EMAIL_EXISTS_NOT");
}

TEST(SignIn, EveryBrokenAnswerFailsWithATextAndSignsNobodyIn) {
  const std::string whole = ada.toJson().dump();
  const std::string unreadable = "The sign-in service sent an unreadable answer";
  const std::string incomplete = "The sign-in service sent an incomplete answer";
  Json numbers = ada.toJson();
  numbers.set("localId", 7);
  Json noToken = ada.toJson();
  noToken.erase("idToken");
  struct Case {
    ScriptedReply reply;
    std::string says;
  };
  for (const Case& c : std::vector<Case>{
           {ScriptedReply::body(""), "No data"},
           {ScriptedReply::body(whole.substr(0, 40)), unreadable},
           {ScriptedReply::body("{\"localId\":\"\xff\xfe\",\"idToken\":\"t\"}"), unreadable},
           {ScriptedReply::body("[1]"), unreadable},
           {ScriptedReply::json(numbers), incomplete},
           {ScriptedReply::json(noToken), incomplete},
           {ScriptedReply::json(Json::object({{"error", "text"}})), incomplete},
           {ScriptedReply::json(ada.toJson(), 500), "The sign-in service answered with status 500"},
           {ScriptedReply::body("<html>", 503), "The sign-in service answered with status 503"},
           {ScriptedReply::json(Json::object({{"error", Json::object({{"message", 5}})}}), 400),
            "The sign-in service answered with status 400"}}) {
    Service service;
    EXPECT_EQ(service.signIn(c.reply), c.says);
    EXPECT_EQ(service.auth->currentUser(), std::nullopt) << c.says;
    EXPECT_FALSE(service.files.exists(file)) << c.says;
  }
  // What the transport says is told as it is, and within the time-outs.
  ScriptedReply drips = ScriptedReply::body("");
  drips.headers.clear();
  for (int i = 0; i < 100; ++i) drips.piece(30s, " ");
  for (const ScriptedReply& reply :
       {ScriptedReply::refused(), ScriptedReply::lost(), ScriptedReply::never(), drips,
        ScriptedReply::body(whole).cutAfter(30), ScriptedReply::body(Bytes(2 << 20, ' '))}) {
    Service service;
    const std::string says = service.signIn(reply);
    EXPECT_FALSE(says.empty() || says == "user" || says == "no answer") << says;
    EXPECT_EQ(says.find("secret"), says.npos);
    EXPECT_EQ(service.auth->currentUser(), std::nullopt);
    EXPECT_EQ(service.signIn(ScriptedReply::body(whole)), "user") << "it does not recover";
    EXPECT_EQ(service.logged().find("secret") + service.logged().find("pass word"),
              2 * std::string::npos);
  }
}

TEST(SignIn, ABrokenFileCountsAsSignedOut) {
  Json noEmail = ada.toJson();
  noEmail.erase("email");
  Json nobody = ada.toJson();
  nobody.set("localId", "");
  for (const std::string& content :
       {std::string(), std::string("\xff{"), ada.toJson().dump().substr(0, 50), std::string("[]"),
        noEmail.dump(), nobody.dump()}) {
    Service service;
    service.files.put(file, content);
    EXPECT_EQ(service.started()->currentUser(), std::nullopt) << content;
    EXPECT_EQ(service.signIn(ScriptedReply::json(ada.toJson())), "user");
    EXPECT_EQ(service.started()->currentUser(), ada);
  }
}

TEST(SignIn, AnAccountOfTheLegacyFolderIsTakenOverUntilSignOut) {
  Service service;
  service.files.put(legacyFile, ada.toJson().dump());
  const auto next = service.started();
  EXPECT_EQ(next->currentUser(), ada);
  EXPECT_TRUE(service.files.exists(file));
  next->signOut();
  EXPECT_EQ(service.started()->currentUser(), std::nullopt) << "signed in again by the old file";
}

TEST(SignIn, AFullDiskKeepsTheAccountForTheRun) {
  Service service;
  service.files.makeReadOnly("/home/user");
  EXPECT_EQ(service.signIn(ScriptedReply::json(ada.toJson())), "user");
  EXPECT_EQ(service.auth->currentUser(), ada);
  EXPECT_NE(service.logged().find("for this run only"), std::string::npos);
}

TEST(SignIn, SignOutIsNotUndoneByAnAnswerOnItsWay) {
  Service service;
  service.http.on("POST", where, ScriptedReply::json(ada.toJson()).after(5s));
  std::optional<Error> told;
  service.auth->signIn("a", "b", [&](const Result<User>& user) { told = user.error(); });
  service.simulation->runFor(1s);
  service.auth->signOut();
  service.simulation->runFor(10s);
  ASSERT_TRUE(told);
  EXPECT_EQ(told->code, authSignedOut);
  EXPECT_EQ(service.auth->currentUser(), std::nullopt);
  EXPECT_FALSE(service.files.exists(file));
}

TEST(SignIn, WithoutAnEndpointItSaysSo) {
  Service service;
  const std::string builtIn = AuthEndpoint::fromEnvironment().url;
  service.auth = service.started({builtIn, ""});
  EXPECT_EQ(service.signIn(), "Sign-in is not set up here (KESTRIN_AUTH_KEY is missing)");
  service.auth = service.started({"file:///etc", "k"});
  EXPECT_EQ(service.signIn(), "Invalid sign-in URL");
  EXPECT_TRUE(service.http.requests().empty());
}

TEST(LoginWindow, TellsWhatHappensAndAsksOnce) {
  Service service;
  LoginWindowController window(*service.auth);
  std::string seen, signedIn;
  window.onChange = [&] {
    seen += window.loginButton().title + "/" + window.signupButton().title +
            (window.loginButton().isEnabled ? "" : " off") + "\n";
  };
  window.onLoginSuccess = [&](const User& user) {
    EXPECT_FALSE(window.window().isVisible);
    signedIn += user.localId;
  };
  window.show();
  window.emailField = " ada@example.org ";
  window.loginClicked();
  EXPECT_EQ(window.errorLabel(), "Enter your email and password");
  EXPECT_TRUE(service.http.requests().empty());

  window.passwordField = " p ";
  service.http.on(
      "POST", where,
      ScriptedReply::json(Json::object({{"error", Json::object({{"message", "USER_DISABLED"}})}})));
  window.loginClicked();
  EXPECT_EQ(window.errorLabel(), "");
  window.signupClicked();
  service.simulation->runFor(1s);
  EXPECT_EQ(window.errorLabel(), "Account disabled");
  EXPECT_TRUE(window.window().isVisible);

  service.http.on("POST", "auth.example/v1/accounts:signUp", ScriptedReply::json(ada.toJson()));
  seen.clear();
  window.signupClicked();
  service.simulation->runFor(1s);
  EXPECT_EQ(seen, "Sign In/Creating account... off\nSign In/Create Account\n");
  EXPECT_EQ(signedIn, "uid-1");
  EXPECT_EQ(window.passwordField, "");
  ASSERT_EQ(service.http.requests().size(), 2u);
  const auto body = Json::parse(service.http.requests().back().request.body);
  EXPECT_EQ(body->stringAt("email", "") + "|" + body->stringAt("password", ""),
            "ada@example.org| p ");
}

TEST(LoginWindow, AWindowThatIsGoneIsNotTold) {
  Service service;
  service.http.on("POST", where, ScriptedReply::json(ada.toJson()));
  auto window = std::make_unique<LoginWindowController>(*service.auth);
  window->emailField = window->passwordField = "x";
  window->onLoginSuccess = [](const User&) { FAIL(); };
  window->loginClicked();
  window.reset();
  service.simulation->runFor(1s);
  EXPECT_EQ(service.auth->currentUser(), ada);

  // Nor does an answer reach a service that is gone.
  service.auth->signIn("a", "b", [](const Result<User>&) { FAIL(); });
  service.auth.reset();
  service.simulation->runFor(1s);
}

}  // namespace
}  // namespace kestrin
