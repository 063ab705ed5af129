#include <gtest/gtest.h>

#include "liveassist/live_assist_session_manager.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

struct Listener : LASessionManagerDelegate {
  void didLoadTranscripts(LiveAssistSessionManager&, const std::vector<Json>& lines,
                          const std::string& id) override {
    loaded += id + ":" + std::to_string(lines.size()) + " ";
  }
  void didUpdateFiles(LiveAssistSessionManager&,
                      const std::vector<LAAttachedFile>& files) override {
    updates.push_back(files.size());
  }
  std::string loaded;
  std::vector<size_t> updates;
};

struct World : SimulatedWorld {
  static constexpr const char* base = "127.0.0.1:8780/live-assist";
  World() {
    manager.delegate = listener;
    on("*", "*", R"({"success":true})");
    on("POST", "/session/start", R"({"success":true,"sessionId":"s 1"})");
  }
  void on(const std::string& method, const std::string& path, const ScriptedReply& reply) {
    http.on(method, base + path, reply);
  }
  void on(const std::string& method, const std::string& path, const char* body) {
    on(method, path, ScriptedReply::body(body));
  }
  /// On the main queue, then all that follows of it.
  void run(const std::function<void()>& what, Duration time = 1s) {
    dispatch.mainQueue()->sync(what);
    simulation->runFor(time);
  }
  std::vector<Json> bodies(const std::string& path) {
    std::vector<Json> out;
    for (const auto& seen : http.requests(base + path)) {
      out.push_back(Json::parse(seen.request.body).value_or(Json()));
    }
    return out;
  }
  std::string log() {
    std::string out;
    for (const auto& entry : logger.getEntries("Session")) out += entry.message + "\n";
    return out;
  }

  Logger logger{dispatch, notifications};
  std::shared_ptr<Listener> listener = std::make_shared<Listener>();
  LiveAssistSessionManager manager{dispatch, http,         files,
                                   logger,   "device_0a1", "http://127.0.0.1:8780"};
};

TEST(LiveAssistSession, ItsLinesAndItsEndReachTheStoreInOrder) {
  World world;
  auto& manager = world.manager;
  world.run([&] {
    manager.logTranscript(LAAudioChannel::system, "too early", 1, Json::object());
    manager.startSession();
    manager.logTranscript(LAAudioChannel::system, "still too early", 1, Json::object());
    EXPECT_EQ(manager.transcriptCount(), 0);
  });
  world.run([&] {
    EXPECT_EQ(manager.currentSessionId(), "s 1");
    manager.logTranscript(LAAudioChannel::microphone, "Hello.", 2,
                          Json::object({{"duration", 1.5}, {"gender", ""}}));
    manager.updateContact("ann@example.com", "Ann");
    manager.saveSessionFeedbackSnapshot({"So far", {"a"}, {"k"}, {Json::object()}, {}});
  });
  world.run([&] {
    manager.endSession();
    EXPECT_FALSE(manager.currentSessionId() || manager.sessionStartTime());
    manager.endSession();
    manager.saveSessionFeedbackSnapshot({});
  });
  std::string paths;
  for (const auto& seen : world.http.requests()) {
    paths += seen.request.url.substr(33) + " ";
    EXPECT_EQ(seen.request.timeout, 60s);
    EXPECT_EQ(seen.request.headers[0].second, "application/json");
  }
  EXPECT_EQ(paths, "/session/start /transcript /session/update /session/update /session/end ");
  EXPECT_EQ(world.bodies("/session/start")[0].dump(),
            R"({"device_id":"device_0a1","user_id":"device_0a1"})");
  EXPECT_EQ(world.bodies("/transcript")[0].dump(),
            R"({"sessionId":"s 1","userId":"device_0a1","channel":"microphone","text":"Hello.",)"
            R"("speakerNumber":2,"metadata":{"duration":1.5,"gender":""}})");
  EXPECT_EQ(world.bodies("/session/update")[1].dump(),
            R"({"sessionId":"s 1","feedbackSnapshot":{"feedbackSummary":"So far",)"
            R"("suggestions":["a"],"keywords":["k"]}})");
  EXPECT_EQ(world.log(),
            "Starting new Live Assist session\nSession started: s 1\n"
            "Ending session: s 1 (1 transcripts, 2s)\nSession ended successfully: s 1\n");
}

TEST(LiveAssistSession, AStartThatFailsLeavesNoSession) {
  const std::vector<std::pair<ScriptedReply, const char*>> cases{
      {ScriptedReply::refused(), "Failed to start session: "},
      {ScriptedReply::lost(), "Failed to start session: "},
      {ScriptedReply::never(), "Failed to start session: "},
      {ScriptedReply::body("<html>"), "Invalid session start response"},
      {ScriptedReply::body(R"({"sessionId":7})"), "Invalid session start response"},
      {ScriptedReply::body(R"({"error":"full"})", 500), "Invalid session start response"},
  };
  for (const auto& [reply, said] : cases) {
    World world;
    world.on("POST", "/session/start", reply);
    world.run([&] { world.manager.startSession(); }, 100s);
    EXPECT_TRUE(text::contains(world.log(), said)) << world.log();
    world.run([&] {
      EXPECT_FALSE(world.manager.currentSessionId());
      world.manager.addPinnedItem(Json::object({{"id", "p"}}));
      world.manager.logTranscript(LAAudioChannel::system, "x", 1, Json());
      world.manager.endSession();
    });
    EXPECT_EQ(world.http.requests().size(), 1u);
  }
}

TEST(LiveAssistSession, ALateAnswerToAnEarlierStartChangesNothing) {
  World world;
  world.http.once("POST", "127.0.0.1:8780/live-assist/session/start",
                  ScriptedReply::body(R"({"sessionId":"old"})").after(5s));
  world.run([&] { world.manager.startSession(); });
  world.run([&] { world.manager.startSession(); }, 10s);
  EXPECT_EQ(world.manager.currentSessionId(), "s 1");
}

TEST(LiveAssistSession, FilesAndPinsStayWithinTheirLimits) {
  World world;
  auto& manager = world.manager;
  std::vector<std::string> paths;
  for (int i = 0; i < 6; ++i) {
    paths.push_back("/home/user/Documents/Plan " + std::to_string(i) + ".txt");
    if (i != 1) world.files.put(paths.back(), std::string(10, 'x'));
  }
  world.run([&] { manager.addLocalFiles(paths); });
  ASSERT_EQ(manager.attachedFiles().size(), 5u);
  EXPECT_EQ(manager.attachedFiles()[0].url, "file:///home/user/Documents/Plan%200.txt");
  EXPECT_EQ(manager.attachedFiles()[1].size, 0) << "a file that is not there has no size";
  EXPECT_TRUE(world.http.requests().empty()) << "there is no session yet";
  world.run([&] {
    manager.addDriveFile("d1", "Q1/50%.pdf", 7, "application/pdf");
    manager.removeFile(5);
    manager.setUseForContext("nothing", false);
    EXPECT_EQ(world.listener->updates, std::vector<size_t>{5});
    manager.startSession();
  });
  world.run([&] {
    while (manager.attachedFiles().size() > 1) manager.removeFile(1);
    manager.addDriveFile("d1", "Q1/50%.pdf", 7, "application/pdf");
    manager.setUseForContext("d1", false);
    for (int i = 0; i < 13; ++i) manager.addPinnedItem(Json::object({{"id", std::to_string(i)}}));
    manager.addPinnedItem(Json::object({{"id", "5"}}));
  });
  EXPECT_EQ(manager.attachedFiles()[1].url, "drive://d1/Q1/50%25.pdf");
  EXPECT_EQ(manager.fileMimeTypes().at("d1"), "application/pdf");
  const auto sent = world.bodies("/session/update");
  ASSERT_EQ(sent.size(), 4u + 1 + 1 + 13);
  EXPECT_EQ(sent.back().find("attachedFiles")->dump(),
            R"([{"name":"Plan 0.txt","size":10,"source":"local","useForContext":true},)"
            R"({"name":"Q1/50%.pdf","size":7,"source":"drive","useForContext":false,)"
            R"("driveFileId":"d1"}])");
  EXPECT_EQ(sent.back().stringAt("useCase"), "sales_call");
  const auto pins = sent.back().objectsAt("pinnedItems");
  ASSERT_EQ(pins.size(), 12u);
  EXPECT_EQ(pins.front()->stringAt("id"), "12");
  EXPECT_EQ(pins.back()->stringAt("id"), "1");
  world.run([&] { manager.clearFilesAndPins(); });
  EXPECT_TRUE(manager.attachedFiles().empty() && manager.pinnedItems().empty());
}

TEST(LiveAssistSession, HistoryComesBackAsItWasKept) {
  World world;
  auto& manager = world.manager;
  world.files.put("/home/user/a.txt", "abc");
  world.on("GET", "/sessions/device_0a1", R"({"sessions":[{"id":"s"},7]})");
  world.on("GET", "/session/s%201/transcripts", R"({"transcripts":[{"text":"Hi"}]})");
  world.on("GET", "/session/s%201",
           R"({"session":{"id":"s 1","startTime":1772442000000,"useCase":"meeting","attachedFiles":[
             {"id":"/home/user/a.txt","name":"a.txt","size":3,"source":"local","useForContext":false},
             {"id":"/home/user/gone.txt","name":"gone.txt","size":3,"source":"local"},
             {"id":"d","source":"drive"},{"source":"ftp","name":"x"}],
             "feedbackSnapshot":{"feedbackSummary":"F","docItems":[{"title":"T"}]}}})");
  int loads = 0;
  std::optional<LASessionRecord> record;
  world.run([&] {
    manager.onHistoryLoaded = [&] { ++loads; };
    manager.loadHistory();
    manager.loadSessionTranscripts("s 1");
    manager.loadFullSession(
        "s 1", [&](Result<Json> session) { record = LASessionRecord::fromJson(*session); });
  });
  EXPECT_EQ(manager.cachedSessions().size(), 1u);
  EXPECT_EQ(loads, 1);
  EXPECT_TRUE(text::contains(world.log(), "Loaded 1 sessions (caching 1)"));
  EXPECT_EQ(world.listener->loaded, "s 1:1 ");
  ASSERT_TRUE(record);
  EXPECT_EQ(dates::iso8601(*record->startTime), "2026-03-02T09:00:00Z");
  EXPECT_EQ(record->useCase, LALiveAssistUseCase::meeting);
  EXPECT_EQ(record->feedbackSnapshot->docItems.size(), 1u);
  world.run([&] { manager.restoreFiles(record->attachedFiles); });
  ASSERT_EQ(manager.attachedFiles().size(), 2u) << "the file that is gone is left out";
  EXPECT_FALSE(manager.attachedFiles()[0].useForContext);
  EXPECT_EQ(manager.attachedFiles()[1].name, "Unknown");
  EXPECT_FALSE(manager.currentSessionId());
}

TEST(LiveAssistSession, EveryBrokenReplyKeepsWhatWasThereAndSaysSo) {
  const std::vector<ScriptedReply> replies{
      ScriptedReply::refused(), ScriptedReply::never(),
      ScriptedReply::body("{\"sessions\":[{\"id\":\"x\"}").cutAfter(9), ScriptedReply::body("[]"),
      ScriptedReply::body(R"({"error":"closed"})", 503)};
  for (const auto& reply : replies) {
    World world;
    auto& manager = world.manager;
    world.on("GET", "/sessions/device_0a1", R"({"sessions":[{"id":"kept"}]})");
    world.run([&] { manager.loadHistory(), manager.startSession(); });
    world.on("*", "*", reply);
    int failures = 0;
    world.run(
        [&] {
          manager.loadHistory();
          manager.loadSessionTranscripts("s");
          manager.loadFullSession("s", [&](const Result<Json>& session) { failures += !session; });
          manager.emailSessionReport("s", [&](const Status& sent) { failures += !sent; });
        },
        100s);
    EXPECT_EQ(failures, 2);
    EXPECT_EQ(manager.cachedSessions().size(), 1u);
    EXPECT_EQ(world.listener->loaded, "");
    EXPECT_TRUE(text::containsAny(
        world.log(), {"Failed to load history: ", "Invalid session history response"}));
    EXPECT_TRUE(text::contains(world.log(), "Email delivery failed: "));
  }
}

}  // namespace
}  // namespace kestrin
