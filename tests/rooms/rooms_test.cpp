#include <gtest/gtest.h>

#include "calls/call_page.h"
#include "calls/call_service.h"
#include "calls/presence_service.h"
#include "companion/companion.h"
#include "platform/linux/curl_http.h"
#include "platform/linux/posix_processes.h"
#include "platform/linux/web_process.h"
#include "platform/simulated/simulated_settings.h"
#include "support/worlds.h"

namespace kestrin::test {
namespace {

/// The companion itself, and two installations that have it as their backend.
struct RoomsWorld {
  RoomsWorld() {
    CompanionOptions options;
    options.recogniserPort.reset();
    options.modelPort.reset();
    options.agentPort.reset();
    options.backendPort = 0;
    options.storePath = folder.file("store.sqlite");
    const auto listening = companion.start(options, {});
    endpoints.backend = "http://127.0.0.1:" + std::to_string(listening->front().port);
    for (const char* name : {"device_ada_0001", "device_bob_0002"})
      sides.push_back(std::make_unique<Side>(*this, name));
    sides[0]->settings.set("nibo_user_name", "Ada");
    sides[1]->settings.set("nibo_user_name", "Bob");
  }
  struct Side {
    Side(RoomsWorld& world, const std::string& id)
        : calls(*world.dispatch, *world.http, center, world.logger, world.endpoints),
          presence(*world.dispatch, *world.http, settings, world.logger, world.endpoints) {
      calls.currentUserId = id;
      presence.deviceId = id;
    }
    NotificationCenter center;
    SimulatedSettings settings;
    CallService calls;
    PresenceService presence;
  };
  void until(const std::function<bool()>& done) {
    EXPECT_TRUE(eventually([&] {
      dispatch->mainLoop().drain();
      return done();
    }));
  }
  std::string history(size_t side) {
    std::optional<std::string> out;
    sides[side]->calls.fetchCallHistory([&](const std::vector<CallRecord>& calls) {
      out = "";
      for (const auto& call : calls)
        *out += call.direction + " " + call.status + " " + call.callerName + "; ";
    });
    until([&] { return out.has_value(); });
    return *out;
  }
  size_t online(size_t side) {
    std::optional<size_t> count;
    sides[side]->presence.fetchOnlineUsers(
        [&](const std::vector<OnlineUser>& users) { count = users.size(); });
    until([&] { return count.has_value(); });
    return *count;
  }
  /// Ada calls Bob by his name; the room, when it rings at his side.
  std::string ring() {
    std::optional<Result<std::string>> placed;
    std::optional<IncomingCall> incoming;
    sides[1]->calls.onIncomingCall = [&](const IncomingCall& call) { incoming = call; };
    sides[1]->calls.startPollingForIncomingCalls();
    sides[0]->calls.initiateCall("bob", "Ada",
                                 [&](const Result<std::string>& room) { placed = room; });
    until([&] { return placed && incoming; });
    EXPECT_TRUE(*placed) << placed->error().description;
    EXPECT_EQ(incoming->callerName, "Ada");
    EXPECT_EQ(incoming->roomName, placed->value_or(""));
    return incoming->roomName;
  }

  ScratchFolder folder;
  const std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  const std::unique_ptr<Http> http = makeCurlHttp(*dispatch);
  Companion companion{*dispatch, *http, [](const std::string&) {}};
  Endpoints endpoints;
  NotificationCenter notifications;
  Logger logger{*dispatch, notifications};
  LinuxRandom random;
  std::vector<std::unique_ptr<Side>> sides;
};

TEST(Rooms, TwoInstallationsSeeCallAndLeaveEachOther) {
  RoomsWorld world;
  for (auto& side : world.sides) side->presence.startPresence();
  world.until([&] { return world.online(0) == 1 && world.online(1) == 1; });
  const std::string room = world.ring();
  EXPECT_EQ(world.history(1), "incoming ringing Ada; ");
  world.sides[1]->calls.endCall("declined");
  world.until([&] { return world.sides[1]->calls.callStatus() == CallStatus::idle; });
  EXPECT_EQ(world.history(0), "outgoing ringing Ada; ")
      << "an unanswered call is declined here alone";
  world.sides[0]->calls.endCall("timeout");
  world.until([&] { return world.history(0) == "outgoing timeout Ada; "; });

  const std::string second = world.ring();
  EXPECT_NE(second, room) << "the declined one does not ring again";
  std::optional<Result<std::string>> answered;
  world.sides[1]->calls.answerCall(second,
                                   [&](const Result<std::string>& token) { answered = token; });
  world.until([&] { return answered.has_value(); });
  ASSERT_TRUE(*answered) << answered->error().description;
  EXPECT_EQ(world.history(0), "outgoing answered Ada; outgoing timeout Ada; ");

  // What one side's page signals reaches the other side's, and nobody without the room's token.
  std::string got[3];
  const auto relay = [&](size_t i, const std::string& token) {
    return std::make_unique<RoomRelay>(*world.dispatch, world.http->makeSession({}), world.random,
                                       world.endpoints.backend, second, token,
                                       [&got, i](const Json& news) { got[i] += news.dump(); });
  };
  const Json join = *Json::parse(R"({"room":{"to":null,"message":{"type":"join"}}})");
  auto ada = relay(0, world.sides[0]->calls.currentCall()->token);
  ada->take(join);
  world.until([&] { return got[0] == R"({"joined":true})"; });
  auto bob = relay(1, **answered);
  bob->take(join);
  world.until([&] { return got[0].find(R"("type":"join")") != std::string::npos; });
  EXPECT_EQ(got[1], R"({"joined":true})");
  auto stranger = relay(2, "kestrin-room.guess");
  stranger->take(join);
  world.until([&] { return !got[2].empty(); });
  EXPECT_EQ(got[2], R"({"error":"This room is closed to you"})");
  bob.reset();
  world.until([&] { return got[0].find(R"("type":"leave")") != std::string::npos; });
  ada.reset();
  stranger.reset();
  world.sides[1]->calls.endCall("ended");
  world.until([&] { return world.history(1).starts_with("incoming ended Ada; "); });
  world.sides[1]->presence.stopPresence();
  world.until([&] { return world.online(0) == 0; });
}

#ifdef KESTRIN_WEB_VIEW
/// Chromium's own devices give a beep and a moving picture.
struct FakeDevices {
  FakeDevices() {
    setenv("QTWEBENGINE_CHROMIUM_FLAGS",
           "--use-fake-device-for-media-stream --use-fake-ui-for-media-stream "
           "--allow-loopback-in-peer-connection --no-sandbox --disable-gpu",
           1);
  }
};

TEST(Rooms, TwoPagesHearAndSeeEachOther) {
  const FakeDevices devices;
  RoomsWorld world;
  for (auto& side : world.sides) side->presence.startPresence();
  world.until([&] { return world.online(0) == 1 && world.online(1) == 1; });
  const std::string room = world.ring();
  std::optional<Result<std::string>> answered;
  world.sides[1]->calls.answerCall(room,
                                   [&](const Result<std::string>& token) { answered = token; });
  world.until([&] { return answered.has_value(); });
  const auto processes = makePosixProcesses();
  const auto views =
      makeWebPages(*world.dispatch, *processes, KESTRIN_BINARY_DIR "/bin/kestrin-web");
  struct Page {
    std::unique_ptr<WebPage> view;
    std::unique_ptr<RoomRelay> relay;
    std::string problem, complaint;
    Json value;
  } pages[2];
  const std::string tokens[2] = {world.sides[0]->calls.currentCall()->token, **answered};
  for (size_t i = 0; i < 2; ++i) {
    Page& page = pages[i];
    WebPageHandlers handlers;
    handlers.onMessage = [&page](const Json& message) { page.relay->take(message); };
    handlers.onEnded = [&page](const Error& error) { page.problem = error.description; };
    handlers.onConsole = [&page](const std::string& level, const std::string& text) {
      page.complaint += level + ": " + text + "\n";
    };
    WebPageOptions options;
    options.mayUseMedia = true;
    page.view = views->open(options, world.dispatch->mainQueue(), std::move(handlers));
    page.relay = std::make_unique<RoomRelay>(
        *world.dispatch, world.http->makeSession({}), world.random, world.endpoints.backend, room,
        tokens[i], [&page](const Json& news) {
          page.view->run("kestrinRoom.receive(JSON.parse('" + escapeForScript(news.dump()) + "'))");
        });
    page.view->load(LocalWebPage{createVideoHTML(tokens[i], room, false), {}});
  }
  const auto value = [&](Page& page, const char* script) {
    std::optional<Json> got;
    page.view->run(script, [&](const Result<Json>& result) { got = result.value_or(Json()); });
    world.until([&] { return got.has_value() || !page.problem.empty(); });
    return got.value_or(Json());
  };
  const auto looked = [&](Page& page) {
    EXPECT_EQ(page.problem, "") << page.complaint;
    if (!page.problem.empty()) return true;
    value(page,
          "window.currentRoom && window.currentRoom.received().then((s) => { window.seen = s; })");
    page.value = value(page, "window.seen || {}");
    return page.value.numberAt("energy").value_or(0) > 0 &&
           page.value.numberAt("video").value_or(0) > 0;
  };
  world.until([&] { return looked(pages[0]) && looked(pages[1]); });
  for (Page& page : pages) EXPECT_GT(page.value.numberAt("audio").value_or(0), 0) << page.complaint;
  value(pages[0], (muteScript(true) + cameraScript(true) + " 1").c_str());
  EXPECT_EQ(value(pages[0], "window.currentRoom.stream.getTracks().map((t) => t.enabled).join()"),
            Json("false,false"));
  value(pages[1], disconnectScript);
  const char* pill = "document.getElementById('status').textContent";
  world.until([&] { return value(pages[0], pill) == Json("Participant left"); });
  EXPECT_EQ(value(pages[1], pill), Json("Call ended"));
}
#endif

}  // namespace
}  // namespace kestrin::test
