#include <gtest/gtest.h>

#include "home/activity_tracker.h"
#include "home_world.h"
#include "identity/google/google_account.h"
#include "support/worlds.h"

namespace kestrin::test {
namespace {

/// A home with everything in it that a page can show, from which its timers run.
struct Day : HomeWorld {
  Day() {
    setLinkedGoogleAccount(settings, GoogleAccount{"ada@x", {}, {}, {}, {"a/calendar"}});
    backendAnswers("GET", "/gmail/status/*", R"({"hasAccess":true})");
    backendAnswers("POST", "/gmail/messages",
                   R"({"messages":[{"id":"1","subject":"Plan","isUnread":true}]})");
    backendAnswers("POST", "/google/calendar/events",
                   R"({"events":[{"id":"g","summary":"Call","start":"2026-03-02T20:00:00Z",
                       "end":"2026-03-02T21:00:00Z"}]})");
  }
  void backendAnswers(const char* method, const std::string& path, const char* body) {
    http.on(method, backend + path, ScriptedReply::body(body));
  }
  void begin() {
    main([this] {
      view->load();
      gmail->checkGmailAccessAndLoadEmails();
      caches->startAllBackgroundCaches();
      triggers->startTriggerPolling();
    });
  }
  void until(const char* moment) {
    const Duration left = *dates::parseIso8601(moment) - dispatch.clock().wallNow();
    ASSERT_GT(left, 0s) << moment;
    simulation->runFor(left);
  }
  /// The briefing as it stands: salutation and what is said of the day.
  std::string said() const {
    const std::string text = latest(), mark = " Here's your latest. It is mild. ";
    const size_t at = text.find(mark);
    if (at == text.npos) return text;
    const size_t from = at + mark.size();
    return text.substr(0, text.find_first_of(".,")) + ": " +
           text.substr(from, text.find(" In the news") - from);
  }
  /// Everything that the page shows of what was fetched.
  std::string page() {
    std::string out = caches->cachedNotesSummary() + "|" + caches->cachedNewsSpeechText() + "|" +
                      caches->cachedWeatherSpoken() + "|" + caches->cachedWeatherOneliner() + "|" +
                      std::to_string(caches->hasBriefingAudio()) + "|" + said() + "|";
    for (const auto& item : caches->cachedNewsPanelItems()) out += item.title + "|";
    for (const auto& email : gmail->cachedEmails()) out += email.shownSubject() + "|";
    return out;
  }

  const std::string backend = "127.0.0.1:8780";
};

TEST(HomeDay, FollowsTheClocksOfThePlaceThroughSummerTimeAndTravel) {
  const Variable zone("TZ", "America/New_York");
  Day day;
  // Before the clocks go forward at 02:00 (07:00 UTC) of Sunday.
  day.until("2026-03-08T05:00:00Z");
  day.backendAnswers("POST", "/google/calendar/events", R"({"events":[
    {"id":"a","summary":"Lunch","start":"2026-03-08T16:30:00Z","end":"2026-03-08T17:00:00Z"},
    {"id":"b","summary":"Late","start":"2026-03-09T03:30:00Z","end":"2026-03-09T03:40:00Z"},
    {"id":"c","summary":"Next day","start":"2026-03-09T04:30:00Z","end":"2026-03-09T05:00:00Z"}]})");
  day.begin();
  const size_t spokenBefore = day.asked("/tts"), heardBefore = day.asked("/triggers/evaluate");
  EXPECT_EQ(day.said(),
            "Hello: Next on your calendar is Lunch at 12:30 PM. Plus 1 more event today.");
  day.until("2026-03-08T08:45:00Z");
  EXPECT_EQ(day.said().substr(0, 6), "Hello:") << "04:45 of the new clock";
  day.until("2026-03-08T09:15:00Z");
  EXPECT_EQ(day.said().substr(0, 13), "Good morning:");
  day.until("2026-03-08T16:45:00Z");
  EXPECT_EQ(day.said(), "Good afternoon: Next on your calendar is Late at 11:30 PM.");
  EXPECT_EQ(Json::parse(day.http.requests("*/triggers/evaluate").back().request.body)
                ->stringAt("user_timezone", ""),
            "America/New_York");
  day.until("2026-03-09T03:45:00Z");
  EXPECT_EQ(day.said(), "Hello: You've finished all 2 events today.");
  day.until("2026-03-09T04:15:00Z");
  EXPECT_EQ(day.said(), "Hello: Next on your calendar is Next day at 12:30 AM.")
      << "a day later, 23 hours after it began";
  EXPECT_EQ(day.asked("/tts") - spokenBefore, 139u)
      << "every ten minutes of 23 and a quarter hours";
  EXPECT_EQ(day.asked("/triggers/evaluate") - heardBefore, 23u * 60 + 15);

  const Variable journey("TZ", "Asia/Tokyo");
  day.until("2026-03-09T04:45:00Z");
  EXPECT_EQ(day.said(), "Good afternoon: You've finished all 3 events today.")
      << "where it is 13:45, all three were between midnight and now";
  EXPECT_EQ(Json::parse(day.http.requests("*/triggers/evaluate").back().request.body)
                ->stringAt("user_timezone", ""),
            "Asia/Tokyo");
}

TEST(HomeDay, AnyEndpointThatFailsLeavesThePageAsItWas) {
  const Variable zone("TZ", "UTC");
  // A text that is no event of the agent's is an answer without news.
  const std::vector<ScriptedReply> faults{ScriptedReply::refused(), ScriptedReply::lost(),
                                          ScriptedReply::body("<p>", 503)};
  const std::vector<ScriptedReply> wrong{
      ScriptedReply::body("\xff"), ScriptedReply::body("[7]"),
      ScriptedReply::body(
          R"({"success":"yes","hasAccess":1,"messages":7,"triggers":{},"audio":7})")};
  for (const std::string endpoint :
       {"127.0.0.1:8765/process/stream", "127.0.0.1:8765/tts", "127.0.0.1:8765/weather*",
        "127.0.0.1:8765/triggers/evaluate", "127.0.0.1:8780/gmail/status*",
        "127.0.0.1:8780/gmail/messages"}) {
    Day day;
    day.begin();
    day.simulation->runFor(1300s);
    const std::string before = day.page();
    for (const char* part : {"The news.", "It is mild.", "One|Two|", "Plan|", "Call at"})
      ASSERT_NE(before.find(part), before.npos) << part << " in " << before;
    const size_t asked = day.http.requests(endpoint).size();
    const auto failing = [&](const std::vector<ScriptedReply>& replies) {
      for (const ScriptedReply& reply : replies) {
        day.http.on("*", endpoint, reply);
        day.main([&] { day.gmail->checkGmailAccessAndLoadEmails(); }, 1200s);
        EXPECT_EQ(day.page(), before) << endpoint;
      }
    };
    failing(faults);
    if (!endpoint.ends_with("/stream")) {
      failing(wrong);
    } else {
      day.http.on("*", endpoint, wrong[2]);
      day.main([] {}, 1200s);
      EXPECT_TRUE(day.caches->cachedNewsPanelItems().empty());
      EXPECT_EQ(day.caches->cachedNewsSpeechText(), "The news.");
    }
    EXPECT_GE(day.http.requests(endpoint).size(), asked + 4) << endpoint;
    EXPECT_TRUE(day.userNotifications.shown.empty());
  }
}

TEST(ActivityTracker, TellsWhatCameInAnAbsenceAndOnlyThat) {
  SimulatedWorld world;
  std::set<std::string> events{"a"}, messages{"m"};
  Date day = *dates::parseIso8601("2026-03-02T00:00:00Z");
  ActivityTracker tracker(
      {world.dispatch, [&] { return events; }, [&] { return messages; }, [&] { return day; }});
  std::vector<std::string> told;
  tracker.onReturn = [&](const std::string& message) { told.push_back(message); };
  const auto back = [&](Duration after, const std::function<void()>& meanwhile) {
    world.simulation->runFor(after);
    meanwhile();
    world.dispatch.mainQueue()->sync([&] { tracker.userWasActive(); });
    return std::exchange(told, {});
  };
  const auto comes = [&] {
    events.insert("b" + std::to_string(events.size()));
    messages.erase("m");
    messages.insert({"n", "o"});
    tracker.callWasMissed();
  };
  EXPECT_EQ(back(0s, comes), std::vector<std::string>{}) << "not before tracking begins";
  world.dispatch.mainQueue()->sync([&] { tracker.startTracking(); });
  EXPECT_EQ(back(590s, comes), std::vector<std::string>{}) << "they were about";
  EXPECT_EQ(back(700s, [] {}), std::vector<std::string>{}) << "nothing came";
  messages.clear();
  EXPECT_EQ(back(700s, comes),
            std::vector<std::string>{
                "While you were away: 1 new calendar event, 2 new messages and 1 missed call."});
  EXPECT_EQ(back(1s, comes), std::vector<std::string>{});
  EXPECT_EQ(back(3600s, [&] { tracker.callWasMissed(); }),
            std::vector<std::string>{"While you were away: 1 missed call."});
  const auto night = [&] {
    events = {"x", "y"};
    day += 24h;
  };
  EXPECT_EQ(back(8h, night), std::vector<std::string>{}) << "the next day's list is no news";
}

}  // namespace
}  // namespace kestrin::test
