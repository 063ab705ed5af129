#include <gtest/gtest.h>

#include "home/calendar_view.h"
#include "home_world.h"
#include "identity/google/google_account.h"
#include "support/worlds.h"

namespace kestrin::test {
namespace {

TEST(Briefing, GreetsByTheHourAndTheFirstName) {
  HomeWorld world;
  const std::vector<std::pair<std::vector<int>, std::string>> hours{{{5, 11}, "Good morning"},
                                                                    {{12, 16}, "Good afternoon"},
                                                                    {{17, 20}, "Good evening"},
                                                                    {{0, 4, 21, 23}, "Hello"}};
  for (const auto& [each, salutation] : hours) {
    for (const int hour : each) {
      EXPECT_EQ(world.persona->greeting("Ada Lovelace", hour).substr(0, salutation.size() + 7),
                salutation + ", Ada. ");
      EXPECT_EQ(world.persona->greeting(" ", hour).substr(0, salutation.size() + 2),
                salutation + ". ");
    }
  }
  std::set<std::string> closings;
  for (int i = 0; i < 100; ++i) closings.insert(world.persona->greeting("", 9));
  EXPECT_EQ(closings, (std::set<std::string>{"Good morning. Ready to start the day?",
                                             "Good morning. What can I help you with?",
                                             "Good morning. I'm here when you need me."}));
}

TEST(Briefing, SaysTheDayForEveryCount) {
  HomeWorld world;
  const auto time = [&](const CalendarEvent& event) {
    return dates::format(event.startDate, "h:mm a");
  };
  const auto past = world.event("Past", -1min), older = world.event("Older", -2min);
  const auto a = world.event("A", 1min), b = world.event("B", 2min), c = world.event("C", 3min);
  const auto other = world.event("Tomorrow", 25h);
  EXPECT_EQ(world.daily({other}),
            " Your schedule is clear today — a perfect day for focused work.");
  EXPECT_EQ(world.daily({a}), " You have one thing on the calendar: A at " + time(a) + ".");
  EXPECT_EQ(world.daily({past}), " You wrapped up Past earlier. The rest of the day is yours.");
  EXPECT_EQ(world.daily({past, older}), " You've completed all 2 events today. Well done.");
  EXPECT_EQ(world.daily({past, a}), " You have 1 event ahead. Next up is A at " + time(a) + ".");
  EXPECT_EQ(world.daily({b, a}), " You have 2 events ahead. Next up is A at " + time(a) +
                                     ". After that, B at " + time(b) + ".");
  EXPECT_EQ(world.daily({c, b, a}), " You have 3 events ahead. Next up is A at " + time(a) +
                                        ". After that, B at " + time(b) + ". Plus 1 more later.");
  EXPECT_EQ(world.daily({a}, 1, {"Hi"}).substr(world.daily({a}).size()),
            " You have 1 unread email. The latest is about \"Hi\".");
  EXPECT_EQ(world.daily({a}, 2, {"", "x"}).substr(world.daily({a}).size()),
            " You have 2 unread emails.");
  EXPECT_EQ(world.daily({a}, 0, {"Hi"}), world.daily({a}));

  const auto latest = [&](const std::vector<CalendarEvent>& events, int mail,
                          const std::vector<std::string>& news, const std::string& weather) {
    const auto whole =
        world.persona->generateLatestBriefing(events, "", mail, {"S"}, news, weather);
    return whole.substr(whole.find(" Here's your latest."));
  };
  EXPECT_EQ(latest({}, 0, {}, ""),
            " Here's your latest. Your calendar is clear today. That's your latest.");
  EXPECT_EQ(
      latest({past}, 1, {"N1"}, "Sunny."),
      " Here's your latest. Sunny. You've finished all 1 events today. In the news: N1. You have 1 "
      "unread email. The most recent is about \"S\". That's your latest.");
  EXPECT_EQ(latest({a, b}, 2, {"1", "2", "3", "4"}, ""),
            " Here's your latest. Next on your calendar is A at " + time(a) +
                ". Plus 1 more event today. In the news: 1. Also, 2. Also, 3. You have 2 unread "
                "emails. The "
                "most recent is about \"S\". That's your latest.");
}

TEST(HomeCaches, AreReadyByTheirTimersAndKeepWhatTheyHad) {
  HomeWorld world;
  world.calendars.records->push_back({"c", "Lunch", world.dispatch.clock().wallNow() + 1min,
                                      world.dispatch.clock().wallNow() + 61min});
  world.main([&] { world.caches->startAllBackgroundCaches(); }, 60s);
  ASSERT_EQ(world.caches->cachedNewsPanelItems().size(), 2u) << "without a title it is no news";
  EXPECT_EQ(world.caches->cachedNewsPanelItems()[1].url, "") << "only the web is linked";
  EXPECT_EQ(world.caches->cachedNewsSpeechText(), "The news.");
  EXPECT_EQ(world.caches->cachedWeatherOneliner(), "☀️ 21°C, Fair — Lyon");
  EXPECT_NE(world.latest().find("It is mild."), std::string::npos);
  EXPECT_NE(world.latest().find("Lunch at"), std::string::npos);
  EXPECT_NE(world.latest().find("In the news: One. Also, Two."), std::string::npos);
  EXPECT_TRUE(world.caches->hasBriefingAudio());
  bool summarised = false;
  for (const auto& seen : world.http.requests("127.0.0.1:8765/process/stream")) {
    const auto said = Json::parse(seen.request.body)->stringAt("transcript", "");
    if (!said.starts_with("Summarize")) continue;
    summarised = true;
    EXPECT_TRUE(said.ends_with("\n- " + std::string(200, 'n')));
  }
  EXPECT_TRUE(summarised);
  world.main([] {}, 3600s);
  EXPECT_EQ(world.asked("/tts"), 7u) << "8 s after the start and every 600 s";

  const std::string text = world.latest();
  for (const auto& reply : {ScriptedReply::refused(), ScriptedReply::body("", 500),
                            ScriptedReply::body(R"({"success":false,"spoken":"no","audio":7})"),
                            ScriptedReply::body("\xff<html>")}) {
    world.http.on("*", "*", reply);
    world.main([] {}, 1800s);
    EXPECT_TRUE(world.caches->hasBriefingAudio());
    EXPECT_EQ(world.caches->cachedWeatherOneliner(), "☀️ 21°C, Fair — Lyon");
    EXPECT_NE(world.caches->weatherProblem(), "");
    EXPECT_NE(world.latest(), "");
  }
  world.statuses.clear();
  world.main([&] { world.caches->playLatestBriefing(); });
  EXPECT_EQ(world.statuses, "🔊 Here's your latest...|Hold Right Ctrl to ask anything|")
      << "a press speaks at once from made audio";
}

TEST(HomeCaches, WithoutTheAgentThereIsStillATextAndAHint) {
  HomeWorld world;
  world.http.on("*", "127.0.0.1:8765/*", ScriptedReply::refused());
  int called = 0;
  world.main([&] {
    world.caches->refreshLatestBriefingCache([&] { ++called; });
    world.caches->refreshLatestBriefingCache([&] { called += 10; });
  });
  EXPECT_EQ(called, 1) << "a second one during a run is not called";
  EXPECT_NE(world.latest(), "");
  world.main([&] { world.caches->playLatestBriefing(); });
  EXPECT_EQ(world.statuses, "🔊 Speaking your latest...|!❌ TTS failed - is Docker running?|");
}

TEST(Triggers, BecomeNotificationsAndSpeech) {
  HomeWorld world;
  for (int i = 0; i < 12; ++i)
    world.calendars.records->push_back({"c" + std::to_string(i), "E",
                                        world.dispatch.clock().wallNow(),
                                        world.dispatch.clock().wallNow() + 1h});
  world.main([&] { world.view->load(); });
  world.answer(
      "POST", "/triggers/evaluate",
      R"({"triggers":[{"title":"Soon","body":"Lunch","priority":"high","audio":true},7,{}]})");
  world.main([&] { world.triggers->startTriggerPolling(); }, 70s);
  const auto sent = Json::parse(world.http.requests("*/triggers/evaluate").at(0).request.body);
  EXPECT_EQ(sent->objectsAt("calendar_events").size(), 10u);
  EXPECT_EQ(sent->stringAt("device_id"), world.deviceId.deviceId());
  const auto& shown = world.userNotifications.shown;
  ASSERT_EQ(shown.size(), 4u) << "after 10 s and at the minute, two each";
  EXPECT_TRUE(shown[0].first.sound);
  EXPECT_EQ(shown[1].first.title, "Kestrin");
  EXPECT_FALSE(shown[1].first.sound);
  EXPECT_EQ(world.asked("/tts"), 2u);
  world.answer("POST", "/triggers/evaluate", R"({"triggers":"none"})");
  world.main([] {}, 120s);
  EXPECT_EQ(world.userNotifications.shown.size(), 4u);
}

TEST(HomeView, ChipsDoWhatTheySay) {
  HomeWorld world;
  world.calendars.records->push_back(
      {"c", "", world.dispatch.clock().wallNow(), world.dispatch.clock().wallNow() + 90min});
  world.main([&] { world.view->handleQuickAction("deep_research"); });
  EXPECT_EQ(world.tabs, "Research");
  world.main([&] { world.view->handleQuickAction("schedule"); });
  EXPECT_EQ(world.view->panel().title, "Today's Schedule");
  ASSERT_EQ(world.view->panel().items.size(), 1u);
  EXPECT_EQ(world.view->panel().items[0].title, "Untitled");
  EXPECT_EQ(world.view->todayEvents()[0].durationString(), "1 hr 30 min");
  world.main([&] { world.view->handleQuickAction("news"); });
  EXPECT_EQ(world.view->panel().items.size(), 2u);
  world.main([&] { world.view->handleQuickAction("What now?"); });
  EXPECT_EQ(world.view->panel().text, "The news.");
  world.http.on("GET", "127.0.0.1:8780/gmail/*", ScriptedReply::body(R"({"hasAccess":true})"));
  world.http.on("POST", "127.0.0.1:8780/gmail/messages",
                ScriptedReply::body(R"({"messages":[{"subject":"Plan","id":"1"}]})"));
  world.main([&] { world.view->handleQuickAction("gmail"); });
  EXPECT_EQ(world.view->panel().items.at(0).title, "Plan");
  world.http.on("*", "*", ScriptedReply::refused());
  world.main([&] { world.view->handleQuickAction("gmail"); });
  EXPECT_TRUE(world.view->panel().text.starts_with("Your mail could not be read: "));
  EXPECT_EQ(world.view->panel().items.size(), 1u) << "what was there stays";
  world.main([&] { world.view->handleQuickAction("What now?"); });
  EXPECT_FALSE(world.view->panel().isOpen());
  EXPECT_NE(world.statuses.find("!❌ Failed: "), std::string::npos);
}

TEST(HomeView, TheStatusRestsWhenASoundEndsOrAQuestionIsGivenUp) {
  const std::string rest = "Hold Right Ctrl to ask anything|";
  HomeWorld world;
  const auto said = [&](const std::function<void()>& what) {
    world.statuses.clear();
    world.main(what);
    return world.statuses;
  };
  const std::string spoken = Json::object({{"audio", text::base64Encode(world.sound)}}).dump();
  EXPECT_EQ(said([&] { world.view->handleQuickAction("schedule"); }),
            "📅 Checking your schedule...|🔊 Speaking...|" + rest);
  EXPECT_EQ(said([&] {
              world.triggers->handleFiredTrigger(Json::object({{"body", "Hi"}, {"audio", true}}));
            }),
            "🔊 Speaking...|" + rest);
  world.answer("POST", "/process/stream", "data: {\"chunk\":\"Tea.\"}\ndata: " + spoken + "\n");
  EXPECT_EQ(said([&] { world.view->handleQuickAction("What now?"); }),
            "🔄 Processing: What now?|✅ Got response|🔊 Speaking...|" + rest);
  for (const char* query : {"What now?", "schedule", "gmail"}) {
    const auto given = said([&] {
      world.view->handleQuickAction(query);
      world.view->closePanel();
    });
    EXPECT_TRUE(given.ends_with("|" + rest)) << given;
    EXPECT_EQ(std::count(given.begin(), given.end(), '|'), 2) << given;
  }
  EXPECT_EQ(said([&] { world.view->closePanel(); }), "") << "what others say stays";
}

TEST(HomeView, AnAnswerThatSaysNothingIsAFailure) {
  HomeWorld world;
  const auto ask = [&](const char* body) {
    world.answer("POST", "/process/stream", body);
    world.statuses.clear();
    world.main([&] { world.view->handleQuickAction("What now?"); });
    EXPECT_FALSE(world.view->panel().isOpen());
    return world.statuses.substr(world.statuses.find('|') + 1);
  };
  EXPECT_EQ(ask("data: {\"mode\":\"plain\"}\n\ndata: [DONE]\n"),
            "!❌ Failed: The agent gave no answer|");
  EXPECT_EQ(ask("data: {\"chunk\":\"Half\"}\n\ndata: {\"error\":\"out of tea\"}\n"),
            "!❌ Failed: out of tea|");
}

TEST(CalendarService, MergesWhatThereIsAndSkipsWhatCannotBeRead) {
  HomeWorld world;
  const auto read = [](const char* events) {
    return parseGoogleEvents(*Json::parse(events), [](const std::string&) {});
  };
  const auto google = read(R"({"events":[
    {"id":"a","summary":"Day","start":{"date":"2026-03-01"},"end":{"date":"2026-03-02"}},
    {"id":"b","start":"2026-03-01T10:00:00.250Z","end":{"dateTime":"2026-03-01T12:00:00+01:00"},
     "attendees":[{"email":"x"}]},
    {"summary":"no id"},{"id":"c","start":"2026-03-01T10:00:00Z","end":"soon"},{"id":"d"},
    {"id":"e","start":"2026-03-01T10:00:00","end":"2026-03-01T11:00:00Z"},
    {"id":"f","summary":"","start":"2026-03-01T10:00:00+0100","end":"2026-03-01T11:00:00.5-05:00"}]})");
  ASSERT_EQ(google.size(), 3u) << "a time without an offset cannot be read";
  EXPECT_TRUE(google[0].isAllDay);
  EXPECT_EQ(google[1].title, "Untitled");
  EXPECT_EQ(google[1].attendees.at(0).status, "needsAction");
  EXPECT_EQ(google[1].durationString(), "59 min");
  EXPECT_EQ(google[2].title, "Untitled");
  std::vector<CalendarEvent> found;
  const auto fetch = [&] {
    found.assign(3, {});
    world.main([&] {
      world.calendar->fetchEvents(
          [&](const std::vector<CalendarEvent>& events) { found = events; });
    });
    return found.size();
  };
  EXPECT_EQ(fetch(), 0u);
  world.calendars.records.reset();
  EXPECT_EQ(fetch(), 0u) << "no calendar is no error";
  setLinkedGoogleAccount(world.settings, GoogleAccount{"ada@x", {}, {}, {}, {"a/calendar"}});
  world.http.on(
      "POST", "127.0.0.1:8780/google/calendar/events",
      ScriptedReply::body(R"({"events":[{"id":"g","start":"2026-01-01","end":"2026-01-02"}]})"));
  EXPECT_EQ(fetch(), 1u);
  world.http.on("POST", "127.0.0.1:8780/google/calendar/events", ScriptedReply::body("[]", 502));
  EXPECT_EQ(fetch(), 0u);
}

TEST(CalendarView, PacksWhatOverlapsIntoTheFewestColumns) {
  HomeWorld world;
  const DayRange day = dayOf(world.dispatch.clock().wallNow());
  const auto at = [&](const char* title, Duration start, Duration length) {
    CalendarEvent event = world.event(title, 0s);
    event.startDate = day.from + std::chrono::duration_cast<Date::duration>(start);
    event.endDate = event.startDate + std::chrono::duration_cast<Date::duration>(length);
    return event;
  };
  std::string drawn;
  for (const PlacedEvent& each :
       packed({at("lunch", 12h, 1h), at("b", 9h + 30min, 1h), at("a", 9h, 1h), at("c", 10h, 1h),
               at("instant", 12h + 59min, 0s), at("after", 13h + 19min, 1h), at("night", -2h, 3h),
               at("late", 23h + 50min, 2h)},
              day)) {
    drawn += each.event.title + " " + std::to_string(each.startMinute) + "-" +
             std::to_string(each.endMinute) + " " + std::to_string(each.column) + "/" +
             std::to_string(each.columns) + "; ";
  }
  EXPECT_EQ(drawn,
            "night 0-60 0/1; a 540-600 0/2; b 570-630 1/2; c 600-660 0/2; lunch 720-780 0/2; "
            "instant 779-799 1/2; after 799-859 0/1; late 1430-1440 0/1; ");
}

TEST(CalendarView, KeepsToWholeDaysWhenTheClocksChange) {
  const Variable paris("TZ", "Europe/Paris");
  HomeWorld world;
  const Date lunch = *dates::parseIso8601("2026-03-29T10:30:00Z");
  world.calendars.records =
      std::vector<CalendarRecord>{{.title = "Lunch", .start = lunch, .end = lunch + 1h}};
  CalendarView view(world.dispatch, *world.calendar);
  const auto heads = [&](const std::function<void()>& step) {
    world.main(step);
    std::string out = view.title() + ":";
    for (const CalendarDay& day : view.days()) out += " " + day.title + (day.isToday ? "*" : "");
    return out;
  };
  EXPECT_EQ(heads([&] { view.load(); }), "March 2026: Mon 2* Tue 3 Wed 4 Thu 5 Fri 6 Sat 7 Sun 8");
  for (int i = 0; i < 3; ++i) heads([&] { view.move(1); });
  ASSERT_EQ(view.days().size(), 7u);
  EXPECT_EQ(view.days()[6].title, "Sun 29");
  ASSERT_EQ(view.days()[6].placed.size(), 1u);
  EXPECT_EQ(view.days()[6].placed[0].startMinute, 12 * 60 + 30) << "on a day of 23 hours";
  EXPECT_EQ(view.firstHour(), 8);
  EXPECT_EQ(heads([&] { view.move(1); }),
            "March 2026: Mon 30 Tue 31 Wed 1 Thu 2 Fri 3 Sat 4 Sun 5");
  EXPECT_EQ(heads([&] { view.showWeek(false); }), "Monday, 30 March 2026: Mon 30");
  EXPECT_EQ(heads([&] { view.showToday(); }), "Monday, 2 March 2026: Mon 2*");
}

}  // namespace
}  // namespace kestrin::test
