#include "platform/linux/icalendar.h"

#include <gtest/gtest.h>

#include "companion/home/home_requests.h"
#include "companion/home/home_service.h"
#include "companion/home/news.h"
#include "companion/home/triggers.h"
#include "companion/home/weather.h"
#include "companion/http/in_process.h"
#include "platform/dispatch/simulation.h"
#include "platform/simulated/simulated_http.h"
#include "platform/simulated/simulated_speech.h"
#include "platform/text/text.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

Date at(const char* iso) { return *dates::parseIso8601(iso); }

/// "title@start-end" of each instance, in UTC, by start.
std::string instances(const std::string& events, const char* from, const char* to,
                      const char* zone = "Europe/Paris") {
  const std::string file = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nX-WR-CALNAME:Work\r\n" +
                           text::replaceAll(events, "\n", "\r\n") + "END:VCALENDAR\r\n";
  auto found = readIcalendar(file, at(from), at(to), zone);
  std::sort(found.begin(), found.end(),
            [](const auto& a, const auto& b) { return a.start < b.start; });
  std::string out;
  for (const auto& record : found) {
    out += record.title + (record.allDay ? "*" : "") + "@" +
           dates::format(record.start, "MMdd'T'HHmm", "UTC") + "-" +
           dates::format(record.end, "MMdd'T'HHmm", "UTC") + " ";
  }
  return text::trim(out);
}

std::string event(const std::string& lines) {
  return "BEGIN:VEVENT\nUID:u\nSUMMARY:E\n" + lines + "END:VEVENT\n";
}

TEST(Icalendar, RecurrencesExceptionsAndMovedInstances) {
  const std::string weekly = event(
      "DTSTART;TZID=Europe/Paris:20260309T090000\nDTEND;TZID=Europe/Paris:20260309T100000\n"
      "RRULE:FREQ=WEEKLY;COUNT=6\nEXDATE;TZID=Europe/Paris:20260316T090000\n");
  EXPECT_EQ(
      instances(weekly, "2026-03-01T00:00:00Z", "2026-05-01T00:00:00Z"),
      "E@0309T0800-0309T0900 E@0323T0800-0323T0900 E@0330T0700-0330T0800 E@0406T0700-0406T0800 "
      "E@0413T0700-0413T0800")
      << "nine o'clock stays nine o'clock over the change to summer time";
  const std::string moved = event(
      "RECURRENCE-ID;TZID=Europe/Paris:20260323T090000\nDTSTART;TZID=Europe/Paris:20260324T150000\n"
      "DTEND;TZID=Europe/Paris:20260324T160000\n");
  EXPECT_EQ(instances(weekly + moved, "2026-03-20T00:00:00Z", "2026-03-31T00:00:00Z"),
            "E@0324T1400-0324T1500 E@0330T0700-0330T0800");
  EXPECT_EQ(
      instances(weekly + event("RECURRENCE-ID;TZID=Europe/Paris:20260323T090000\n"
                               "DTSTART;TZID=Europe/Paris:20260323T090000\nSTATUS:CANCELLED\n"),
                "2026-03-20T00:00:00Z", "2026-03-29T00:00:00Z"),
      "");
  EXPECT_EQ(
      instances(event("DTSTART:20200101T080000Z\nDURATION:PT30M\nRRULE:FREQ=MONTHLY;BYDAY=-1FR\n"),
                "2026-03-01T00:00:00Z", "2026-05-01T00:00:00Z"),
      "E@0327T0800-0327T0830 E@0424T0800-0424T0830");
}

TEST(Icalendar, WholeDaysOwnClocksAndOddZones) {
  // Paris changes its clocks in the night to the 29th.
  EXPECT_EQ(instances(event("DTSTART;VALUE=DATE:20260328\nDTEND;VALUE=DATE:20260330\n"),
                      "2026-03-29T00:00:00Z", "2026-03-30T00:00:00Z"),
            "E*@0327T2300-0329T2200");
  EXPECT_EQ(instances(event("DTSTART;VALUE=DATE:20260401\n"), "2026-04-01T00:00:00Z",
                      "2026-04-02T00:00:00Z", "America/New_York"),
            "E*@0401T0400-0402T0400");
  EXPECT_EQ(instances(event("DTSTART:20260401T120000\nDTEND:20260401T130000\n"),
                      "2026-04-01T00:00:00Z", "2026-04-02T00:00:00Z"),
            "E@0401T1000-0401T1100")
      << "without a zone it is the reader's";
  EXPECT_EQ(
      instances(event("DTSTART;TZID=W. Europe Standard Time:20260401T120000\nDURATION:PT1H\n"),
                "2026-04-01T00:00:00Z", "2026-04-02T00:00:00Z", "Asia/Tokyo"),
      "E@0401T1000-0401T1100");
  EXPECT_EQ(instances("BEGIN:VTIMEZONE\nTZID:Office\nBEGIN:STANDARD\nDTSTART:19700101T000000\n"
                      "TZOFFSETFROM:+0530\nTZOFFSETTO:+0530\nEND:STANDARD\nEND:VTIMEZONE\n" +
                          event("DTSTART;TZID=Office:20260401T120000\nDURATION:PT1H\n"),
                      "2026-04-01T00:00:00Z", "2026-04-02T00:00:00Z"),
            "E@0401T0630-0401T0730");
}

TEST(Icalendar, WhatIsBrokenIsLeftOut) {
  const char* from = "2026-04-01T00:00:00Z";
  const char* to = "2026-04-02T00:00:00Z";
  for (const std::string& lines :
       {std::string(), std::string("DTSTART:soon\n"), std::string("DTSTART:20261301T000000Z\n"),
        std::string("DTSTART:20260401T000000Z\nRRULE:FREQ=SECONDLY\n"),
        std::string("DTSTART:00010101T000000Z\nRRULE:FREQ=DAILY\n")}) {
    EXPECT_EQ(instances(event(lines), from, to), "") << lines;
  }
  EXPECT_EQ(instances(event("DTSTART:20260401T100000Z\nDTEND:20260401T090000Z\n") +
                          event("DTSTART:20260401T110000Z\nSUMMARY:\xff\n"),
                      from, to)
                .find("E@0401T1000"),
            0u);
  const std::string endless = event("DTSTART:20260401T100000Z\nDTEND:40520602T100000Z\n");
  ASSERT_EQ(instances(endless, from, to).find("E@0401T1000"), 0u);
  EXPECT_GT(
      readIcalendar("BEGIN:VCALENDAR\n" + endless + "END:VCALENDAR\n", at(from), at(to)).at(0).end,
      at("2261-01-01T00:00:00Z"))
      << "the far future does not turn into the past";
  EXPECT_TRUE(readIcalendar("", at(from), at(to)).empty());
  EXPECT_TRUE(readIcalendar(std::string(1000, '\0'), at(from), at(to)).empty());
}

TEST(CompanionHome, TriggersFireOnceForTheirCause) {
  home::Triggers rules;
  home::Situation day{
      "u", "Europe/Paris", {{"Lunch", at("2026-04-01T10:00:00Z")}}, 2, at("2026-04-01T07:00:00Z")};
  const auto fired = [&](const char* now) {
    std::string out;
    const Json triggers = rules.evaluate(day, at(now));
    for (const Json& each : triggers.items())
      out += each.stringAt("title", "") + ": " + each.stringAt("body", "") + " ";
    return text::trim(out);
  };
  EXPECT_EQ(fired("2026-04-01T09:49:59Z"), "");
  EXPECT_EQ(fired("2026-04-01T09:51:30Z"), "Starting soon: Lunch starts in 9 minutes.");
  EXPECT_EQ(fired("2026-04-01T09:55:00Z"), "");
  day.unreadMail = 3;
  EXPECT_EQ(fired("2026-04-01T10:30:00Z"), "Unread mail: You have 3 unread emails.");
  EXPECT_EQ(fired("2026-04-01T10:59:00Z"), "");
  EXPECT_EQ(fired("2026-04-01T11:00:00Z"),
            "Still here: It has been quiet for a while. Is there anything I can do?");
  EXPECT_EQ(fired("2026-04-01T17:00:00Z"), "");
  EXPECT_EQ(fired("2026-04-02T07:00:00Z"), "Unread mail: You have 3 unread emails.")
      << "a new day; of yesterday's silence nothing is said";
}

TEST(CompanionHome, ASilenceIsThatOfTheDeviceWhoeverIsSignedIn) {
  const auto engine = Simulation::make(1);
  SimulatedHttp http{*engine};
  SimulatedSpeech voice;
  std::string lookedUp;
  home::HomeService service(*engine, http, voice, {});
  server::Server server(*engine, {});
  service.addRoutes(server);
  service.useHistory([&](const std::string& id, const auto& completion) {
    lookedUp += id + " ";
    completion(std::nullopt);
  });
  for (const char* body : {R"({"user_id":"local","device_id":"device_1"})",
                           R"({"user_id":"device_2"})", R"({"user_id":"u","device_id":"../x"})"}) {
    server::InProcessRequest request(
        server, {.method = "POST", .path = "/triggers/evaluate", .body = body});
    engine->runFor(1s);
  }
  EXPECT_EQ(lookedUp, "device_1 device_2 ");
}

TEST(CompanionHome, WeatherNewsAndNotesAreReadFromWhatPeopleHave) {
  const auto weather = [](const char* report, const char* place) {
    return home::weatherAnswer(Json::parse(report).value_or(Json()), place);
  };
  const Json good =
      weather(R"({"current_condition":[{"temp_C":"-3","weatherDesc":[{"value":"Light snow"}]}]})",
              "Lyon, France");
  EXPECT_EQ(good.stringAt("spoken"), "It is -3 degrees and light snow in Lyon.");
  EXPECT_EQ(good.objectAt("weather")->numberAt("temp_c"), -3);
  for (const char* bad :
       {"", "[]", R"({"current_condition":[]})", R"({"current_condition":[{"temp_C":"x"}]})"})
    EXPECT_EQ(weather(bad, "").boolAt("success"), false) << bad;

  const auto rss = home::readFeed(
      "<rss><channel><title>Paper</title><item><title><![CDATA[A <b>bold</b> &amp; true]]></title>"
      "<link> https://n.example/1 </link></item><item><title/></item><item><title>B</title>"
      "<link>javascript:x</link></item></channel></rss>");
  ASSERT_EQ(rss.size(), 2u);
  EXPECT_EQ(rss[0].title, "A bold & true");
  EXPECT_EQ(rss[0].url, "https://n.example/1");
  EXPECT_EQ(rss[1].url, "");
  const auto atom = home::readFeed(
      "<feed xmlns='http://www.w3.org/2005/Atom'><title>T</title><entry><title>C</title>"
      "<link href='https://n.example/2'/></entry></feed>");
  ASSERT_EQ(atom.size(), 1u);
  EXPECT_EQ(home::spokenNews(home::mixed({rss, atom}, 2)),
            "Here are the latest headlines. A bold & true. C.");
  for (const char* bad : {"", "<rss>",
                          "<!DOCTYPE x [<!ENTITY a SYSTEM 'file:///etc/passwd'>]><rss><channel>"
                          "<item><title>&a;</title></item></channel></rss>"})
    EXPECT_TRUE(home::readFeed(bad).empty()) << bad;

  EXPECT_TRUE(home::asksForNews(Json::object({{"transcript", "Tell me the latest news"}})));
  EXPECT_FALSE(home::asksForNews(
      Json::object({{"transcript", "Tell me the latest news"}, {"app_context", Json::object()}})))
      << "dictated into an application it is a sentence";
  EXPECT_EQ(
      home::summaryOfNotes(Json::object(
          {{"transcript", "Summarize these notes in short:\n- # Plan\n- Call Anna. Then wait."},
           {"mode", "plain"}})),
      "Your latest notes: Plan; Call Anna.");
}

}  // namespace
}  // namespace kestrin::test
