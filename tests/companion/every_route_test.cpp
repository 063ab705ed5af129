#include <atomic>
#include <gtest/gtest.h>
#include <map>

#include "companion/backend/database.h"
#include "companion/backend/live_session_routes.h"
#include "companion/backend/note_routes.h"
#include "companion/backend/research_routes.h"
#include "companion/calls/call_routes.h"
#include "companion/companion.h"
#include "companion/raw_client.h"
#include "platform/dispatch/threads.h"
#include "platform/linux/curl_http.h"
#include "platform/simulated/simulated_speech.h"
#include "platform/text/text.h"
#include "support/worlds.h"

namespace kestrin::test {
namespace {

/// The companion with all its services, each on a port of its own.
struct EveryService {
  EveryService() {
    CompanionOptions options;
    for (auto* port :
         {&options.recogniserPort, &options.modelPort, &options.agentPort, &options.backendPort})
      *port = 0;
    options.storePath = folder.file("store.sqlite");
    options.ports.speech = &voice;
    options.ports.engine = [] {
      return Result<std::unique_ptr<recogniser::Engine>>(fail("Test", 1, "no engine"));
    };
    const auto listening = companion.start(options, {});
    EXPECT_TRUE(listening);
    for (const auto& each : *listening) ports[each.service] = each.port;
  }
  std::string ask(const std::string& service, const std::string& method, const std::string& path,
                  const Json& body = Json::object({}), const std::string& device = "") {
    const std::string header = device.empty() ? "" : "X-Device-Id: " + device + "\r\n";
    return kestrin::testing::ask(ports[service], method, path, body.dump(), header);
  }
  Json answer(const std::string& service, const std::string& method, const std::string& path,
              const Json& body = Json::object({}), const std::string& device = "") {
    const std::string whole = ask(service, method, path, body, device);
    const size_t head = whole.find("\r\n\r\n");
    return head == std::string::npos ? Json()
                                     : Json::parse(whole.substr(head + 4)).value_or(Json());
  }

  ScratchFolder folder;
  std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  const std::unique_ptr<Http> http = makeCurlHttp(*dispatch);
  SimulatedSpeech voice;
  Companion companion{*dispatch, *http, [](const std::string&) {}};
  std::map<std::string, uint16_t> ports;
};

constexpr const char *ada = "device_1000000000000001", *ben = "device_2000000000000002",
                     *cleo = "device_3000000000000003";

/// Ada's records, each with her secret word, and the ids that somebody could have got hold of.
struct Records {
  static constexpr const char* secret = "zebrafish";

  explicit Records(EveryService& world) : world_(world) {
    const std::string text = "We decided that the zebrafish quagga is ours. Can you send it?";
    const auto backend = [&](const char* path, const Json& body) {
      return world.answer("backend", "POST", path, body, ada);
    };
    for (int i = 0; i < 6; ++i) {
      backend("/log-transcription",
              Json::object({{"user_id", ada}, {"transcript", text}, {"processed_text", text}}));
    }
    const Json probabilities =
        *Json::parse(R"({"emotion":[{"token":"zebrafish","probability":1}]})");
    backend("/update-voice-profile",
            Json::object({{"user_id", ada}, {"voice_metadata_probs", probabilities}}));
    note = backend("/notes/save", Json::object({{"user_id", ada}, {"content", text}}))
               .objectAt("note")
               ->stringAt("id", "");
    backend("/research/save", Json::object({{"id", research},
                                            {"userId", ada},
                                            {"query", text},
                                            {"summary", text},
                                            {"sources", Json::array()}}));
    session = backend("/live-assist/session/start", Json::object({{"device_id", ada}}))
                  .stringAt("sessionId", "");
    backend("/live-assist/session/update", Json::object({{"sessionId", session},
                                                         {"contactEmail", "ann@example.org"},
                                                         {"contactName", secret}}));
    for (const char* channel : {"system", "microphone"}) {
      backend("/live-assist/transcript",
              Json::object(
                  {{"sessionId", session}, {"userId", ada}, {"channel", channel}, {"text", text}}));
    }
    backend("/presence/heartbeat", Json::object({{"deviceId", cleo}, {"userName", "Cleo"}}));
    world.answer("backend", "POST", "/presence/heartbeat",
                 Json::object({{"deviceId", cleo}, {"userName", "Cleo"}}), cleo);
    room = backend("/calls/initiate",
                   Json::object({{"callerId", ada}, {"callerName", secret}, {"recipientId", cleo}}))
               .stringAt("roomName", "");
    backend("/calls/transcript",
            Json::object(
                {{"userId", ada}, {"roomName", room}, {"transcript", text}, {"summary", text}}));
  }

  /// What Ada finds of her own.
  std::string hers() {
    std::string all;
    for (const std::string& path :
         {std::string("/history/"), std::string("/voice-profile/"), std::string("/notes/"),
          std::string("/research/history/"), std::string("/live-assist/sessions/"),
          std::string("/calls/history/")})
      all += world_.answer("backend", "GET", path + ada, Json::object({}), ada).dump() + "\n";
    return all + world_
                     .answer("backend", "GET", "/live-assist/session/" + session + "/transcripts",
                             Json::object({}), ada)
                     .dump();
  }

  /// A body that names `user` wherever a body can name one, and Ada's records.
  Json body(const char* user) const {
    Json out = Json::object({{"sessionId", session},
                             {"roomName", room},
                             {"id", research},
                             {"query", "quagga"},
                             {"text", "quagga"},
                             {"content", "quagga"},
                             {"transcript", "[YOU] quagga"},
                             {"channel", "system"},
                             {"summary", ""},
                             {"participant", "p"},
                             {"recipientId", "Cleo"},
                             {"contact_email", "ann@example.org"},
                             {"generateFeedback", true},
                             {"filters", Json::object({{"memories", true}, {"history", true}})}});
    for (const char* key : {"user_id", "userId", "device_id", "deviceId", "device_user_id",
                            "callerId", "identity", "from"})
      out.set(key, user);
    return out;
  }

  std::string note, session, room;
  std::string research = "5d1c0b9e-0000-4000-8000-000000000001";

 private:
  EveryService& world_;
};

TEST(EveryRoute, GivesAndChangesNothingOfAnotherDevice) {
  EveryService world;
  Records records(world);
  const std::string before = records.hers();
  size_t found = 0;
  for (size_t at = 0; (at = before.find(Records::secret, at)) != std::string::npos; ++at) ++found;
  ASSERT_GE(found, 14u) << "each kind of record has the word: " << before;

  size_t asked = 0, given = 0;
  for (const auto& service : world.companion.services()) {
    for (const auto& route : service.server->routes()) {
      std::vector<std::string> paths{route.path};
      if (route.path.ends_with('*')) {
        paths.clear();
        const std::string stem = route.path.substr(0, route.path.size() - 1);
        for (const std::string& id :
             {std::string(ben), std::string(ada), records.note, records.session,
              records.session + "/transcripts", records.session + "/deliver", records.research,
              records.research + "/status", records.room})
          paths.push_back(stem + id);
      }
      for (const std::string& path : paths) {
        for (const char* named : {ada, ben}) {
          const std::string query =
              std::string("?device_user_id=") + named + "&email=ann%40example.org&query=a&limit=50";
          const std::string answer =
              world.ask(service.name, route.method, path + query, records.body(named), ben);
          const std::string what = route.method + " " + path + " as " + named;
          EXPECT_EQ(answer.find(Records::secret), std::string::npos) << what << ": " << answer;
          EXPECT_TRUE(answer.starts_with("HTTP/1.1 ")) << what << ": " << answer;
          ++asked;
          given += answer.starts_with("HTTP/1.1 200");
        }
      }
    }
  }
  EXPECT_GT(asked, 200u);
  EXPECT_GT(given, 40u) << "not everything was refused for another reason";
  EXPECT_EQ(records.hers(), before);
}

TEST(EveryRoute, SaysThatTheDiskIsFullAndKeepsWhatThereWas) {
  ScratchFolder folder;
  const auto dispatch = ThreadsDispatch::make();
  LinuxRandom random;
  auto store = backend::Store::open(folder.file("store.sqlite"));
  ASSERT_TRUE(store);
  backend::BackendService service(*dispatch, std::move(*store), "1");
  server::Server server(*dispatch, {});
  service.addRoutes(server);
  backend::addLiveSessionRoutes(server, service, dispatch->clock(), random);
  backend::addCallRoutes(server, service, dispatch->clock(), random);
  backend::addNoteRoutes(server, service, dispatch->clock(), random);
  backend::addResearchRoutes(server, service, dispatch->clock());
  ASSERT_TRUE(server.start());
  const auto post = [&](const std::string& path, const Json& body) {
    return kestrin::testing::ask(server.port(), "POST", path, body.dump());
  };
  const auto valueIn = [](const std::string& answer, const char* key) {
    return Json::parse(answer.substr(answer.find("\r\n\r\n") + 4))->stringAt(key, "");
  };
  const std::string session =
      valueIn(post("/live-assist/session/start", Json::object({{"device_id", ada}})), "sessionId");
  const std::string room = valueIn(
      post("/calls/initiate", Json::object({{"callerId", ada}, {"recipientId", ben}})), "roomName");
  ASSERT_TRUE(!session.empty() && !room.empty());
  std::atomic<bool> full = false;
  service.withStore([&](backend::Store& records) {
    records.database()->exec("PRAGMA max_page_count = 1");  // of no more than there is
    full = true;
  });
  ASSERT_TRUE(eventually([&] { return full.load(); }));

  const std::string big(50'000, 'x');
  const std::vector<std::pair<const char*, Json>> writes{
      {"/log-transcription", Json::object({{"user_id", ada}, {"transcript", big}})},
      {"/notes/save", Json::object({{"user_id", ada}, {"content", big}})},
      {"/research/save", Json::object({{"id", "r"},
                                       {"userId", ada},
                                       {"query", "q"},
                                       {"summary", big},
                                       {"sources", Json::array()}})},
      {"/live-assist/transcript",
       Json::object(
           {{"sessionId", session}, {"userId", ada}, {"channel", "system"}, {"text", big}})},
      {"/live-assist/session/update",
       Json::object({{"sessionId", session},
                     {"feedbackSnapshot", Json::object({{"feedbackSummary", big}})}})},
      {"/calls/transcript",
       Json::object({{"userId", ada}, {"roomName", room}, {"transcript", big}})}};
  for (const auto& [path, body] : writes) {
    const std::string answer = post(path, body);
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 507")) << path << ": " << answer;
    EXPECT_NE(answer.find("no room left"), std::string::npos) << path;
  }
  const std::string history =
      kestrin::testing::ask(server.port(), "GET", std::string("/calls/history/") + ada);
  EXPECT_NE(history.find(room), std::string::npos) << "what was kept before: " << history;
}

}  // namespace
}  // namespace kestrin::test
