#include <gtest/gtest.h>

#include "identity/google/google_account_view.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

const std::string redirect = googleRedirectAddress;
const std::string backend = "127.0.0.1:8780/google/";
constexpr const char* linked = R"({"success":true,"email":"ada@x.org","name":"Ada","picture":7})";

struct LinkWorld : SimulatedWorld {
  explicit LinkWorld(uint64_t seed = 1) : SimulatedWorld(seed) {
    http.on("POST", backend + "*", ScriptedReply::body(linked).after(1s));
    main([&] {
      auth.emplace(GoogleAuthService::Services{dispatch, http, settings, random, webPages, logger,
                                               deviceId, "http://127.0.0.1:8780"},
                   GoogleConsent{"https://consent.example/auth", "the id"});
    });
  }
  ~LinkWorld() {
    main([&] { auth.reset(); });
  }
  void main(const std::function<void()>& what, Duration time = 10s) {
    dispatch.mainQueue()->sync(what);
    simulation->runFor(time);
  }
  auto noting() {
    return [this](const auto& r) { outcomes += (r ? "ok" : r.error().description) + "|"; };
  }
  void signIn() {
    main([&] { auth->signIn({"a/calendar", "b"}, noting()); });
  }
  SimulatedWebPages::Page& page() { return *webPages.last(); }
  void navigate(const std::string& url, Duration time = 10s) {
    page().navigate(url);
    simulation->runFor(time);
  }
  std::string state() { return *parseGoogleCallback(page().address).state; }
  std::string granted() { return redirect + "?code=4%2Fsecret+code&scope=x&state=" + state(); }
  std::string logged() const {
    std::string all;
    for (const LogEntry& entry : logger.getEntries()) all += entry.message + "\n";
    return all;
  }
  std::string asked(const std::string& path) {
    std::string out;
    for (const auto& seen : http.requests(backend + path)) out += seen.request.body + "\n";
    return out;
  }

  Logger logger{dispatch, notifications};
  DeviceIdManager deviceId{files, settings, random};
  std::optional<GoogleAuthService> auth;
  std::string outcomes;
};

TEST(GoogleLink, TheCodeGoesToTheBackendOnceAndNowhereElse) {
  for (uint64_t seed = 1; seed <= 30; ++seed) {
    LinkWorld world(seed);
    world.signIn();
    EXPECT_TRUE(world.page().address.starts_with(
        "https://consent.example/auth?client_id=the%20id&redirect_uri=http%3A%2F%2F127.0.0.1%3A"
        "9876%2Fgoogle-callback&response_type=code&scope=a%2Fcalendar%20b&access_type=offline&"
        "prompt=consent&state="))
        << world.page().address;
    EXPECT_GE(world.state().size(), 32u);
    world.navigate("http://127.0.0.1:98760/?error=x");
    EXPECT_TRUE(world.page().refused.empty()) << "another port is another site";
    const std::string granted = world.granted();
    world.page().navigate(granted);
    world.navigate(granted, 100ms);
    world.page().closeWindow();
    world.simulation->runFor(10s);
    EXPECT_EQ(world.page().refused.size(), 2u);
    EXPECT_EQ(world.outcomes, "ok|") << "closing while the code is on its way cancels nothing";
    EXPECT_EQ(world.asked("exchange-token"),
              R"({"code":"4/secret code","redirect_uri":")" + redirect +
                  R"(","scopes":["a/calendar","b"],"device_user_id":")" +
                  world.deviceId.deviceId() + "\"}\n");
    const auto account = *world.auth->linkedAccount();
    EXPECT_EQ(account.email, "ada@x.org");
    EXPECT_EQ(account.picture, std::nullopt);
    EXPECT_EQ(account.enabledScopes, (std::vector<std::string>{"a/calendar", "b"}));
    EXPECT_TRUE(account.mayUse("calendar"));
    EXPECT_TRUE(world.settings.boolean("hasCalendarAccess"));
    EXPECT_FALSE(world.page().isOpen());
    EXPECT_TRUE(text::contains(world.logged(), "ignoring duplicate"));
    EXPECT_FALSE(text::containsAny(world.logged(), {"secret", "code="}));
  }
}

TEST(GoogleLink, EveryOtherEndIsToldOnceAndNothingIsLinked) {
  const std::vector<std::pair<std::function<void(LinkWorld&)>, std::string>> ends{
      {[](auto& w) { w.navigate(redirect + "?error=access_denied"); },
       "Authorization denied: access_denied"},
      {[](auto& w) { w.navigate(redirect); }, "Sign-in cancelled"},
      {[](auto& w) { w.page().closeWindow(); }, "Sign-in cancelled"},
      {[](auto& w) { w.page().end(webCrashed); }, "The web page ended"},
      {[](auto& w) { w.navigate(redirect + "?code=1"); },
       "Authorization denied: the answer belongs to another sign-in"},
      {[](auto& w) { w.navigate(redirect + "?code=1&state=" + w.state() + "x"); },
       "Authorization denied: the answer belongs to another sign-in"}};
  for (const auto& [end, told] : ends) {
    LinkWorld world;
    world.signIn();
    world.page().failLoad(redirect, "refused");
    world.page().failLoad("https://consent.example", "no network");
    world.simulation->runFor(1s);
    EXPECT_EQ(world.outcomes, "") << "a page that does not load can be loaded again";
    end(world);
    world.simulation->runFor(10s);
    EXPECT_EQ(world.outcomes, told + "|");
    EXPECT_FALSE(world.page().isOpen());
    EXPECT_EQ(world.asked("*"), "");
    EXPECT_FALSE(world.auth->isSigningIn());
    world.signIn();
    world.navigate(world.granted());
    EXPECT_EQ(world.outcomes, told + "|ok|") << "the next try is a fresh one";
  }
}

TEST(GoogleLink, BadAnswersOfTheBackendHaveWordsAndChangeNothing) {
  const std::vector<std::pair<ScriptedReply, std::string>> answers{
      {ScriptedReply::refused(), ""},
      {ScriptedReply::body(""), "No data received"},
      {ScriptedReply::body("\xff<html>"), "Invalid JSON response"},
      {ScriptedReply::body("[1]"), "Invalid JSON response"},
      {ScriptedReply::body("<html>", 502), "The backend answered with status 502"},
      {ScriptedReply::body(R"({"success":"yes"})"), "Unexpected response format"},
      {ScriptedReply::body(R"({"success":false,"error":"not here"})", 501), "not here"}};
  for (const auto& [answer, told] : answers) {
    LinkWorld world;
    world.main([&] { world.auth->signOut(world.noting()); });
    EXPECT_EQ(world.outcomes, "No linked account|");
    EXPECT_EQ(world.asked("*"), "");
    const GoogleAccount before{"old@x", "Old", {}, {}, {"gmail.x"}};
    setLinkedGoogleAccount(world.settings, before);
    world.http.on("POST", backend + "*", answer);
    world.outcomes.clear();
    world.signIn();
    world.navigate(world.granted());
    world.main([&] { world.auth->updateScopes({"s"}, world.noting()); });
    world.main([&] { world.auth->signOut(world.noting()); });
    const auto outcomes = text::split(world.outcomes, "|");
    ASSERT_EQ(outcomes.size(), 4u) << world.outcomes;
    for (int i = 0; i < 3; ++i) {
      EXPECT_NE(outcomes[i], "ok");
      EXPECT_TRUE(told.empty() || outcomes[i] == told) << outcomes[i];
    }
    EXPECT_EQ(world.auth->linkedAccount(), before);
  }
}

TEST(GoogleAccountCard, LinksAsksForMoreAndUnlinks) {
  LinkWorld world;
  std::optional<GoogleAccountView> view;
  int changes = 0;
  world.main([&] { view.emplace(*world.auth); });
  view->onLinkChanged = [&] { ++changes; };
  world.main([&] { view->choose("drive.readonly", false); });
  world.main([&] { view->link(); });
  world.main([&] { view->link(); });
  EXPECT_FALSE(world.webPages.pages().front()->isOpen()) << "one window at a time";
  world.page().closeWindow();
  world.simulation->runFor(1s);
  EXPECT_EQ(view->problem(), "Sign-in cancelled");
  EXPECT_FALSE(view->isBusy());
  world.main([&] { view->retry(); });
  world.navigate(world.granted());
  EXPECT_EQ(view->statusLine(), "Connected as ada@x.org");
  EXPECT_EQ(changes, 1);
  EXPECT_FALSE(view->hasNewScopes());
  world.main([&] { view->choose("drive.readonly", true); });
  EXPECT_TRUE(view->hasNewScopes());
  // Unlinked by another while it is asked: the answer links nothing anew.
  world.main([&] { view->applyScopes(); }, 100ms);
  setLinkedGoogleAccount(world.settings, std::nullopt);
  world.simulation->runFor(10s);
  EXPECT_EQ(view->problem(), "No linked account");
  EXPECT_EQ(view->statusLine(), "Not connected");
  setLinkedGoogleAccount(world.settings, GoogleAccount{"b@x", {}, {}, {}, {}});
  world.main([&] { view->retry(); });
  EXPECT_TRUE(world.auth->linkedAccount()->mayUse("drive"));
  world.main([&] { view->unlink(); });
  EXPECT_FALSE(view->isLinked());
  EXPECT_EQ(changes, 3);
  world.settings.set("linkedGoogleAccount", "no account");
  EXPECT_FALSE(view->isLinked());
  world.main([&] { view.reset(); });
}

}  // namespace
}  // namespace kestrin::test
