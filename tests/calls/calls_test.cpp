#include "calls/calls.h"

#include <gtest/gtest.h>

#include "liveassist/live_world.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

/// Calls on a simulated machine whose backend answers well until told otherwise.
struct CallsWorld : LiveWorld {
  CallsWorld() {
    answer("POST", "/calls/initiate", R"({"roomName":"r1"})");
    answer("POST", "/calls/token", R"({"token":"kestrin-room.1"})");
    answer("POST", "/calls/room", R"({"after":7,"messages":[]})");
    answer("GET", "/calls/history/*", R"({"calls":[]})");
    answer("POST", "/calls/transcript", R"({"summary":"They agreed."})");
    answer("GET", "/presence/online*", R"({"users":[{"deviceId":"d2","userId":"d2",
        "userEmail":"ada@x.example","lastSeen":"soon"},{"deviceId":"d3"}]})");
    const Endpoints endpoints{.asr = "http://127.0.0.1:8001", .backend = "http://127.0.0.1:8780"};
    main([&] {
      calls.emplace(Calls::Sources{dispatch, http, audio, files, random, settings, notifications,
                                   pasteboard, webPages, logger, deviceId, profiles, asr, endpoints,
                                   "/lib/media.js", [this]() -> LiveAssist& { return *live; }});
      calls->hooks.notify = [this](const UserNotification& notification, const Json&,
                                   const std::function<void(const Result<uint32_t>&)>& onShown) {
        notified.push_back(notification.title + "|" + notification.body);
        onShown(uint32_t{1});
      };
      calls->hooks.playRingtone = [this] { ++rings; };
      statusObserver = notifications.observe(
          CallService::callStatusChanged,
          [this](const Json& info) { statuses += info.stringAt("status", "") + " "; });
      calls->setupGlobalIncomingCallHandler();
    });
  }
  ~CallsWorld() {
    main([this] { calls.reset(); });
  }
  void answer(const char* method, const std::string& path, const ScriptedReply& reply) {
    http.on(method, std::string(backend) + path, reply);
  }
  void answer(const char* method, const std::string& path, const char* body) {
    answer(method, path, ScriptedReply::body(body));
  }
  void start() {
    main([this] { calls->start(); });
  }
  /// Somebody rings until the next poll.
  void ring() {
    http.once("GET", std::string(backend) + "/calls/incoming/*",
              ScriptedReply::body(
                  R"({"hasIncoming":true,"roomName":"r9","callerId":"d2","callerName":"Ada"})"));
    simulation->runFor(4s);
  }
  size_t asked(const std::string& path) const {
    return http.requests(std::string(backend) + path).size();
  }
  Json last(const std::string& path) const {
    const auto seen = http.requests(std::string(backend) + path);
    return seen.empty() ? Json() : Json::parse(seen.back().request.body).value_or(Json());
  }
  CallsView& page() { return calls->view(); }

  LocalASRService asr{dispatch, http,   files,
                      random,   logger, Endpoints{.asr = "http://127.0.0.1:8001"}};
  std::optional<Calls> calls;
  std::vector<std::string> notified;
  std::string statuses;
  SubscriptionHandle statusObserver;
  int rings = 0;
};

struct PlacedWorld : CallsWorld {
  PlacedWorld() {
    start();
    main([this] {
      page().controlTextDidChange("  Ada ");
      page().audioCallClicked();
    });
  }
};

TEST(Calls, ACallIsPlacedHeardSummedUpAndGivenBack) {
  PlacedWorld world;
  EXPECT_EQ(world.last("/calls/initiate").stringAt("recipientId"), "Ada");
  EXPECT_EQ(world.last("/calls/initiate").stringAt("callerName"), "User");
  EXPECT_TRUE(world.page().isInCall());
  EXPECT_EQ(world.statuses, "ringing connecting ");
  const auto page = world.webPages.last();
  ASSERT_TRUE(page && page->isOpen());
  EXPECT_NE(page->local.html.find("const token = 'kestrin-room.1';"), std::string::npos);
  EXPECT_TRUE(page->local.scriptFiles.empty()) << "our own room needs no other library";
  EXPECT_TRUE(world.calls->panel().isVisible());
  page->send(*Json::parse(R"({"room":{"to":null,"message":{"type":"join"}}})"));
  world.simulation->runFor(1s);
  EXPECT_EQ(page->scripts.back().substr(0, 31), "kestrinRoom.receive(JSON.parse(");
  world.audio.speak("mic", std::vector<float>(2 * 48000, 0.3F), 48000);
  world.simulation->runFor(10s);
  ASSERT_EQ(world.calls->panel().lines().size(), 1u);
  EXPECT_EQ(world.calls->panel().lines()[0].label, "You");
  world.main(
      [&] {
        world.page().toggleMute();
        world.page().endCallClicked();
      },
      500ms);
  EXPECT_EQ(world.page().status(), "📋 Call summary saved");
  EXPECT_FALSE(page->isOpen()) << "its memory is given back";
  EXPECT_EQ(page->scripts.back(), disconnectScript);
  EXPECT_EQ(
      world.last("/calls/room").find("messages")->items()[0].find("message")->stringAt("type"),
      "leave");
  EXPECT_EQ(world.last("/calls/end").stringAt("reason"), "ended");
  EXPECT_EQ(world.last("/calls/transcript").stringAt("transcript"), "[You] This is line 1");
  EXPECT_EQ(world.last("/calls/transcript").stringAt("roomName"), "r1");
  ASSERT_EQ(world.notified.size(), 1u);
  EXPECT_EQ(world.notified[0].substr(0, world.notified[0].find('|')), "📞 Call Ended — Ada");
  EXPECT_EQ(world.live->feedbackWindow().currentSummary(), "📋 Call with Ada ended");
  EXPECT_FALSE(world.live->service().isRunning());
  world.simulation->runFor(5s);
  EXPECT_EQ(world.statuses, "ringing connecting ended idle ");
}

TEST(Calls, ABackendThatGoesInMidCallTakesNothingFromIt) {
  PlacedWorld world;
  const auto page = world.webPages.last();
  const auto signal = [&](const char* type) {
    page->send(
        Json::object({{"room", Json::object({{"message", Json::object({{"type", type}})}})}}));
    world.simulation->runFor(1s);
  };
  signal("join");
  world.answer("*", "/*", ScriptedReply::body("<html>", 502));
  signal("candidate");
  world.simulation->runFor(120s);
  EXPECT_TRUE(world.page().isInCall());
  EXPECT_TRUE(page->isOpen());
  EXPECT_EQ(world.page().timerLabel(), "02:03");
  world.answer("POST", "/calls/room",
               R"({"after":9,"messages":[{"from":"x","message":{"type":"leave"}}]})");
  world.simulation->runFor(3s);
  const Json sent = world.last("/calls/room");
  EXPECT_NE(page->scripts.back().find("leave"), std::string::npos) << "it is heard again";
  EXPECT_EQ(sent.find("messages")->items().size(), 0u) << "what waited was sent once";
  world.main([&] { world.page().endCallClicked(); }, 20s);
  EXPECT_EQ(world.statuses, "ringing connecting ended idle ");
  EXPECT_TRUE(world.page().canCall());
}

TEST(Calls, EveryRequestMayFailAndTheNextCallGoesThrough) {
  for (const char* path : {"/calls/initiate", "/calls/token"}) {
    for (const auto& reply : {ScriptedReply::body("[1]"), ScriptedReply::body("\xff", 500),
                              ScriptedReply::body(R"({"roomName":7,"token":""})")}) {
      CallsWorld world;
      world.start();
      world.answer("POST", path, reply);
      const auto place = [&] {
        world.main([&] {
          world.page().controlTextDidChange("Ada");
          world.page().videoCallClicked();
        });
      };
      place();
      EXPECT_EQ(world.page().status().substr(0, 24), "❌ Call failed: Invalid") << path;
      EXPECT_TRUE(world.page().canCall());
      EXPECT_TRUE(world.webPages.pages().empty());
      world.answer("POST", "/calls/initiate", R"({"roomName":"r1"})");
      world.answer("POST", "/calls/token", R"({"token":"hosted"})");
      place();
      EXPECT_TRUE(world.page().isInCall()) << path;
      EXPECT_EQ(world.webPages.last()->local.scriptFiles,
                std::vector<std::string>{"/lib/media.js"});
      world.main([&] { world.webPages.last()->end(webCrashed); });
      EXPECT_FALSE(world.page().isInCall()) << "a page that crashed ends the call";
    }
  }
}

TEST(Calls, OneThatFailedIsOverAfterAMoment) {
  CallsWorld world;
  world.start();
  world.answer("POST", "/calls/initiate", ScriptedReply::body("{}", 404));
  world.main([&] { world.calls->place("Nobody"); }, 4s);
  EXPECT_EQ(world.page().status(), "Ready to make calls");
  world.ring();
  EXPECT_TRUE(world.calls->banner().currentCall()) << "others get through again";
}

TEST(Calls, NothingOfAMeetingGoesIntoTheNextCall) {
  PlacedWorld world;
  world.main([&] { world.page().endCallClicked(); }, 5s);
  LiveAssistView& meeting = world.live->view();
  world.LiveWorld::start();
  world.say(LAAudioChannel::system);
  EXPECT_FALSE(world.live->service().conversationTranscript.empty());
  world.main([&] { meeting.stopCapture(); });
  world.main([&] { world.page().audioCallClicked(); }, 5s);
  ASSERT_TRUE(world.page().isInCall());
  EXPECT_EQ(world.live->service().useCase, LALiveAssistUseCase::meeting);
  // Another meeting beside it keeps its words to itself.
  world.LiveWorld::start();
  world.say(LAAudioChannel::microphone);
  const std::string heard = world.live->service().conversationTranscript;
  EXPECT_EQ(std::count(heard.begin(), heard.end(), '['), 1) << heard;
  world.main([&] {
    meeting.stopCapture();
    world.page().endCallClicked();
  });
  EXPECT_EQ(world.last("/calls/transcript").stringAt("transcript"), heard);
}

TEST(Calls, ACallNobodyTakesEndsAndOneInVainSendsNothing) {
  CallsWorld world;
  world.start();
  world.main([&] { world.page().audioCallClicked(); });
  EXPECT_EQ(world.page().status(), "⚠️ Enter a contact to call");
  EXPECT_EQ(world.page().shakes(), 1);
  world.answer("POST", "/calls/token", ScriptedReply::body("{}").after(50s));
  world.main(
      [&] {
        world.page().controlTextDidChange("Ada");
        world.page().audioCallClicked();
      },
      31s);
  EXPECT_EQ(world.asked("/calls/end"), 0u) << "there is no room yet";
  EXPECT_TRUE(world.page().canCall());
  world.simulation->runFor(60s);
  EXPECT_EQ(world.page().status(), "Ready to make calls") << "the late token changes nothing";
  EXPECT_FALSE(world.page().isInCall());
}

TEST(Calls, AnIncomingCallIsAnsweredDeclinedOrTimesOut) {
  CallsWorld world;
  world.start();
  world.ring();
  ASSERT_TRUE(world.calls->banner().currentCall());
  EXPECT_EQ(world.page().bannerText(), "🔔 Ada is calling");
  EXPECT_EQ(world.notified, std::vector<std::string>{"📞 Incoming Call|Ada is calling you"});
  const size_t polls = world.asked("/calls/incoming/*");
  world.simulation->runFor(9s);
  EXPECT_EQ(world.asked("/calls/incoming/*"), polls) << "polling rests while it rings";
  EXPECT_GE(world.rings, 3);
  world.main([&] { world.calls->decline(); });
  EXPECT_FALSE(world.calls->banner().currentCall());
  EXPECT_EQ(world.asked("/calls/end"), 0u);
  EXPECT_EQ(world.statuses, "ringing idle ");
  world.ring();
  world.simulation->runFor(31s);
  EXPECT_FALSE(world.calls->banner().currentCall()) << "it timed out";
  EXPECT_EQ(world.page().status(), "Ready to make calls");
  world.ring();
  std::optional<Status> answered;
  world.main([&] { world.calls->answer([&](const Status& status) { answered = status; }); });
  ASSERT_TRUE(answered && *answered);
  EXPECT_EQ(world.last("/calls/answer").stringAt("roomName"), "r9");
  ASSERT_TRUE(world.calls->embedded()) << "it leads into the room";
  world.main([&] {
    world.calls->panel().toggleContextSource("docs");
    EXPECT_FALSE(world.page().canCall()) << "one call at a time";
    world.calls->place("Bob");
  });
  EXPECT_EQ(world.live->service().contextFilters,
            (std::map<std::string, bool>{{"docs", world.calls->panel().isSourceOn("docs")}}));
  EXPECT_EQ(world.asked("/calls/initiate"), 0u);
  EXPECT_EQ(world.calls->embedded()->status(), "Connected with Ada");
  EXPECT_EQ(world.calls->activeCallLines()[0], "Incoming call from Ada");
  EXPECT_FALSE(world.page().currentIncomingCall());
  world.audio.speak("mic", std::vector<float>(2 * 48000, 0.3F), 48000);
  world.simulation->runFor(10s);
  EXPECT_EQ(world.calls->panel().lines().size(), 1u);
  world.main([&] { world.webPages.last()->closeWindow(); }, 5s);
  EXPECT_FALSE(world.calls->embedded());
  EXPECT_EQ(world.last("/calls/transcript").stringAt("transcript"), "This is line 2");
  EXPECT_EQ(world.last("/calls/transcript").stringAt("summary"), "This is line 2");
  EXPECT_EQ(world.calls->service().callStatus(), CallStatus::idle);
  world.main([&] { world.calls->answer([&](const Status& status) { answered = status; }); });
  EXPECT_EQ(answered->error().description, "Nobody is calling");
}

TEST(Calls, AnAnswerOnThePageLeadsIntoTheRoomThere) {
  CallsWorld world;
  world.start();
  world.ring();
  world.answer("POST", "/calls/answer", ScriptedReply::body("", 500));
  world.main([&] { world.page().answerCallClicked(); });
  EXPECT_TRUE(world.page().isInCall()) << "the token counts, not the answer's answer";
  EXPECT_FALSE(world.calls->embedded());
  EXPECT_FALSE(world.calls->banner().currentCall());
  EXPECT_EQ(world.page().status(), "🎥 Video call connected");
  world.main([&] { world.calls->hangUp(); }, 5s);
  EXPECT_FALSE(world.page().isInCall());
}

TEST(Presence, ListsWhoeverIsOnlineAndKeepsTheListOnFailure) {
  CallsWorld world;
  world.settings.set(UserPreferences::userNameKey, "Grace");
  world.start();
  world.simulation->runFor(65s);
  EXPECT_EQ(world.asked("/presence/heartbeat"), 3u);
  EXPECT_EQ(world.last("/presence/heartbeat").stringAt("userName"), "Grace");
  ASSERT_EQ(world.page().onlineUsers().size(), 1u);
  EXPECT_EQ(world.page().onlineUsers()[0].displayName(), "Ada");
  for (const char* body : {"", "[]", "{", R"({"users":{}})"}) {
    world.answer("GET", "/presence/online*", body);
    world.simulation->runFor(11s);
    EXPECT_EQ(world.page().onlineUsers().size(), 1u) << body;
  }
  world.main([&] { world.page().quickAudioCall(1); });
  EXPECT_EQ(world.asked("/calls/initiate"), 0u);
  world.main([&] { world.page().quickAudioCall(0); });
  EXPECT_EQ(world.last("/calls/initiate").stringAt("recipientId"), "d2");
  world.main([&] { world.calls->stop(); });
  EXPECT_EQ(world.asked("/presence/offline"), 1u);
  const OnlineUser shortId{.deviceId = "123456789012"}, longId{.deviceId = "1234567890123"};
  EXPECT_EQ(shortId.displayName() + " " + longId.displayName(), "123456789012 123456…0123");
}

TEST(Contacts, AreFoundHereFirstAndThenAtTheBackend) {
  CallsWorld world;
  Json many = Json::array();
  for (int i = 0; i < 10'000; ++i)
    many.push(Json::object({{"name", "Person " + std::to_string(i)}, {"email", ""}}));
  world.answer("GET", "/contacts/frequent/*",
               ScriptedReply::json(Json::object({{"contacts", std::move(many)}})));
  world.answer("GET", "/contacts/search*", R"({"contacts":[{"email":"zoe@x"},{}]})");
  world.start();
  world.main([&] { world.page().refresh(); });
  const auto type = [&](const char* text) {
    world.main([&] { world.page().controlTextDidChange(text); });
    return world.page().contacts().shown().size();
  };
  EXPECT_EQ(type(" PERSON 99"), ContactSearch::mostShown);
  EXPECT_EQ(world.asked("/contacts/search*"), 0u);
  EXPECT_EQ(type("zo"), 2u);
  EXPECT_EQ(world.page().contacts().shown()[1].shownName(), "Unknown");
  world.main([&] { world.page().chooseContact(0); });
  EXPECT_EQ(world.page().recipient(), "zoe@x");
  EXPECT_EQ(type(" "), 0u);
}

TEST(CallRecords, AreShownAndGroupedAsTheyAre) {
  const auto record = [](const std::string& changes) {
    Json json = *Json::parse(R"({"id":"1","roomName":"r","callerId":"a","callerName":"Ada",
        "recipientId":"device_1234567","status":"ended","direction":"outgoing",
        "createdAt":"2026-03-02T08:00:00Z"})");
    const Json parsed = *Json::parse(changes);
    for (const auto& [key, value] : parsed.members()) json.set(key, value);
    return CallRecord::fromJson(json).value_or(CallRecord());
  };
  EXPECT_EQ(record("{}").displayName(), "device…4567");
  EXPECT_EQ(record(R"({"direction":"incoming"})").displayName(), "Ada");
  EXPECT_EQ(record(R"({"createdAt":"then"})").formattedDate(), "then");
  for (const auto& [seconds, text] :
       {std::pair{"0", ""}, {"7", "7s"}, {"61", "1m 1s"}, {"3660", "1h 1m"}})
    EXPECT_EQ(record(std::string("{\"duration\":") + seconds + "}").formattedDuration(), text);
  EXPECT_EQ(record(R"({"status":null})").id, "") << "a record without a status is none";
  std::string groups;
  for (const auto& group : groupCallsByDate({record("{}"), record(R"({"createdAt":"?"})"),
                                             record(R"({"createdAt":"2026-03-01T08:00:00Z"})"),
                                             record(R"({"createdAt":"2026-02-25T08:00:00Z"})"),
                                             record(R"({"createdAt":"2026-02-23T08:00:00Z"})")},
                                            *dates::parseIso8601("2026-03-02T09:00:00Z")))
    groups += group.title + std::to_string(group.calls.size()) + " ";
  EXPECT_EQ(groups, "TODAY1 YESTERDAY1 THIS WEEK1 EARLIER2 ");
  EXPECT_EQ(formatDuration(59) + " " + formatDuration(3600), "00:59 1:00:00");
  EXPECT_EQ(generateSimpleSummary("No. Well then, we agree! Yes.", "A"), "Well then, we agree");
  EXPECT_EQ(generateSimpleSummary("", "Ada"), "Call with Ada");
}

TEST(MediaPage, ValuesCannotLeaveTheirPlace) {
  const std::string nasty = "a'</script><script>alert(1)//\\\n\u2028";
  const std::string page = createVideoHTML(nasty, nasty, true);
  EXPECT_EQ(page.find("a'<"), std::string::npos);
  EXPECT_EQ(page.find("</script><script>"), std::string::npos);
  EXPECT_NE(page.find("const audioOnly = true;"), std::string::npos);
  EXPECT_EQ(escapeForScript("it's\n\u2028"), "it\\u0027s\\u000a\\u2028");
  EXPECT_NE(mediaPage(MediaPageHost::embedded, {"t", "r", true}).find("const audioOnly = false;"),
            std::string::npos);
}

}  // namespace
}  // namespace kestrin::test
