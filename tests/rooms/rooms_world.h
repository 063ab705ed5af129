#pragma once

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
  void until(const std::function<bool()>& done) { EXPECT_TRUE(eventually(*dispatch, done)); }
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

  /// Bob answers; his token of the room.
  std::string answer(const std::string& room) {
    std::optional<Result<std::string>> answered;
    sides[1]->calls.answerCall(room, [&](const Result<std::string>& token) { answered = token; });
    until([&] { return answered.has_value(); });
    EXPECT_TRUE(*answered) << answered->error().description;
    return answered->value_or("");
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

/// Chromium's own devices give a beep and a moving picture.
struct FakeDevices {
  FakeDevices() {
    setenv("QTWEBENGINE_CHROMIUM_FLAGS",
           "--use-fake-device-for-media-stream --use-fake-ui-for-media-stream "
           "--allow-loopback-in-peer-connection --no-sandbox --disable-gpu",
           1);
  }
};

/// The call's page of both sides, in the web view.
struct RoomPages {
  struct Page {
    std::unique_ptr<WebPage> view;
    std::unique_ptr<RoomRelay> relay;
    std::string problem, complaint;
    Json value;
  };
  RoomPages(RoomsWorld& inWorld, const std::string& room, const std::string (&tokens)[2])
      : world(inWorld) {
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
            page.view->run("kestrinRoom.receive(JSON.parse('" + escapeForScript(news.dump()) +
                           "'))");
          });
      page.view->load(LocalWebPage{createVideoHTML(tokens[i], room, false), {}});
    }
  }
  Json value(size_t side, const std::string& script) {
    Page& page = pages[side];
    std::optional<Json> got;
    page.view->run(script, [&](const Result<Json>& result) { got = result.value_or(Json()); });
    world.until([&] { return got.has_value() || !page.problem.empty(); });
    return got.value_or(Json());
  }
  /// Sound with something in it and a picture have come from the other side.
  bool hearsAndSees(size_t side) {
    Page& page = pages[side];
    EXPECT_EQ(page.problem, "") << page.complaint;
    if (!page.problem.empty()) return true;
    value(side,
          "window.currentRoom && "
          "window.currentRoom.received().then((s) => { window.seen = s; })");
    page.value = value(side, "window.seen || {}");
    return page.value.numberAt("energy").value_or(0) > 0 &&
           page.value.numberAt("video").value_or(0) > 0;
  }

  const FakeDevices devices;
  RoomsWorld& world;
  const std::unique_ptr<Processes> processes = makePosixProcesses();
  const std::unique_ptr<WebPages> views =
      makeWebPages(*world.dispatch, *processes, KESTRIN_BINARY_DIR "/bin/kestrin-web");
  Page pages[2];
};

}  // namespace kestrin::test
