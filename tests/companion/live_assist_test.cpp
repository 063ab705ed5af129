#include <gtest/gtest.h>

#include "companion/backend/live_session_routes.h"
#include "companion/backend/live_sessions.h"
#include "companion/backend/memory_routes.h"
#include "companion/raw_client.h"
#include "platform/dispatch/threads.h"
#include "platform/linux/curl_http.h"
#include "platform/linux/linux_files.h"
#include "platform/text/text.h"
#include "support/worlds.h"

namespace kestrin::backend {
namespace {

class LiveAssistBackend : public ::testing::Test {
 protected:
  LiveAssistBackend() {
    model_.route("GET", "/v1/models", [](const auto&, const server::Responder& to) {
      to.json(200, Json::object({{"data", Json::array()}}));
    });
    model_.route("POST", "/v1/chat/completions", [](const auto&, const server::Responder& to) {
      to.text(200, "text/event-stream",
              "data: {\"choices\":[{\"delta\":{\"content\":"
              "\"{\\\"feedbackSummary\\\":\\\"By model\\\"}\"}}]}\n\ndata: [DONE]\n\n");
    });
    service_.addRoutes(server_);
    addLiveSessionRoutes(server_, service_, dispatch_->clock(), random_);
    addMemoryRoutes(server_, service_, feedback_);
    EXPECT_TRUE(server_.start() && model_.start());
  }
  Json ask(const char* method, const std::string& path, const std::string& body = "",
           const std::string& headers = "") {
    const std::string answer = kestrin::testing::ask(server_.port(), method, path, body, headers);
    status = answer.size() > 12 ? std::stoi(answer.substr(9, 3)) : 0;
    return Json::parse(answer.substr(answer.find("\r\n\r\n") + 4)).value_or(Json());
  }
  Json post(const std::string& path, const Json& body, const std::string& headers = "") {
    return ask("POST", path, body.dump(), headers);
  }
  std::string start(const char* device = "device_a") {
    return post("/live-assist/session/start",
                Json::object({{"device_id", device}, {"user_id", device}}))
        .stringAt("sessionId", "");
  }
  Json line(const std::string& id, const char* channel, const std::string& text) {
    return post("/live-assist/transcript",
                Json::object({{"sessionId", id},
                              {"userId", "device_a"},
                              {"channel", channel},
                              {"text", text},
                              {"speakerNumber", 2},
                              {"metadata", Json::object({{"emotion", "EMOTION_HAPPY"}})}}));
  }
  /// An update of one key, the value as JSON text.
  Json update(const std::string& id, const char* key, const std::string& value) {
    return post("/live-assist/session/update",
                Json::object({{"sessionId", id}, {key, *Json::parse(value)}}));
  }
  Json context(const char* more = "{}") {
    Json body = *Json::parse(more);
    body.set("device_user_id", "device_a");
    if (!body.has("transcript")) body.set("transcript", "[OTHER] When can we start the pilot?");
    return post("/memory/live-context", body);
  }

  kestrin::test::ScratchFolder folder_;
  const std::unique_ptr<ThreadsDispatch> dispatch_ = ThreadsDispatch::make();
  const std::unique_ptr<Http> http_ = makeCurlHttp(*dispatch_);
  LinuxRandom random_;
  agent::LanguageModel languageModel_{http_->makeSession({})};
  assist::ModelFeedback feedback_{*dispatch_, languageModel_, "", [](const std::string&) {}};
  BackendService service_{*dispatch_, std::move(*Store::open(folder_.file("store.sqlite"))), "1"};
  server::Server server_{*dispatch_, {}}, model_{*dispatch_, {}};
  int status = 0;
};

TEST_F(LiveAssistBackend, ASessionComesBackAsItWasLogged) {
  const std::string id = start();
  ASSERT_EQ(id.size(), 36u);
  line(id, "microphone", "The pilot runs for six weeks in Lyon.");
  line(id, "system", "And the pilot costs nothing?");
  update(id, "attachedFiles",
         R"([{"name":"a.txt","size":3,"source":"local","useForContext":true}])");
  update(id, "pinnedItems", R"([{"id":"p"}])");
  update(id, "useCase", R"("meeting")");
  update(id, "contactEmail", R"("ann@example.com")");
  update(id, "feedbackSnapshot", R"({"feedbackSummary":"F"})");
  EXPECT_EQ(post("/live-assist/session/end", Json::object({{"sessionId", id}})).boolAt("success"),
            true);
  const auto sessions = ask("GET", "/live-assist/sessions/device_a").objectsAt("sessions").size();
  EXPECT_EQ(sessions, 1u);
  const Json answer = ask("GET", "/live-assist/session/" + id);
  const Json& session = *answer.objectAt("session");
  EXPECT_EQ(session.stringAt("id"), id);
  EXPECT_TRUE(dates::parseIso8601(session.stringAt("startTime", "")));
  EXPECT_EQ(session.intAt("transcriptCount"), 2);
  EXPECT_EQ(session.intAt("microphoneCount"), 1);
  EXPECT_GE(session.intAt("totalDurationMs").value_or(-1), 0);
  EXPECT_EQ(session.stringAt("summary"), "The pilot runs for six weeks in Lyon.");
  EXPECT_EQ(session.stringAt("useCase"), "meeting");
  EXPECT_EQ(session.objectsAt("attachedFiles").at(0)->stringAt("name"), "a.txt");
  EXPECT_EQ(session.objectAt("feedbackSnapshot")->stringAt("feedbackSummary"), "F");
  const Json transcripts = ask("GET", "/live-assist/session/" + id + "/transcripts");
  const auto lines = transcripts.objectsAt("transcripts");
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0]->stringAt("channel"), "microphone");
  EXPECT_EQ(lines[0]->intAt("speakerNumber"), 2);
  EXPECT_EQ(lines[1]->objectAt("metadata")->stringAt("emotion"), "EMOTION_HAPPY");
  line(id, "system", "The rollout of the pilot and the rollout plan are in May.");
  EXPECT_TRUE(text::contains(
      ask("GET", "/live-assist/session/" + id).objectAt("session")->stringAt("title", ""),
      "rollout"))
      << "the description follows what comes late";
  const Json report = post("/live-assist/session/" + id + "/deliver",
                           Json::object({{"channel", "email"}, {"device_user_id", "device_a"}}));
  EXPECT_EQ(status, 501);
  EXPECT_EQ(report.boolAt("success"), false);
  EXPECT_NE(report.stringAt("error", ""), "");
}

TEST_F(LiveAssistBackend, AnotherDeviceFindsNothing) {
  const std::string id = start();
  const std::string asB = "X-Device-Id: device_b\r\n";
  for (const std::string& path :
       {"/live-assist/session/" + id, "/live-assist/session/" + id + "/transcripts",
        std::string("/live-assist/session/nothing")}) {
    EXPECT_FALSE(ask("GET", path, "", asB).boolAt("success").value_or(true));
    EXPECT_EQ(status, 404) << path;
  }
  for (const char* path :
       {"/live-assist/session/end", "/live-assist/session/update", "/live-assist/transcript"}) {
    post(path, Json::object({{"sessionId", id}, {"channel", "system"}, {"text", "x"}}), asB);
    EXPECT_EQ(status, 404) << path;
  }
  post("/live-assist/session/" + id + "/deliver", Json::object({{"device_user_id", "device_b"}}));
  EXPECT_EQ(status, 404);
  ask("GET", "/live-assist/sessions/device_a", "", asB);
  EXPECT_EQ(status, 403);
  ask("GET", "/memory/contact-context?device_user_id=device_a&email=x", "", asB);
  EXPECT_EQ(status, 403);
  EXPECT_EQ(ask("GET", "/live-assist/sessions/device_b").objectsAt("sessions").size(), 0u);
  EXPECT_FALSE(ask("GET", "/live-assist/session/" + id).objectAt("session")->has("endTime"));
}

TEST_F(LiveAssistBackend, WhatCannotBeKeptIsRefusedWithTheReason) {
  const std::string id = start();
  const std::vector<std::tuple<const char*, std::string, int>> updates{
      {"attachedFiles", "7", 400},
      {"attachedFiles", R"(["a"])", 400},
      {"attachedFiles", "[{},{},{},{},{},{}]", 400},
      {"pinnedItems", R"([{"detail":")" + std::string(300'000, 'x') + "\"}]", 400},
      {"useCase", R"("party")", 400},
      {"contactEmail", "\"" + std::string(321, 'x') + "\"", 400},
      {"feedbackSnapshot", "[]", 400},
      {"somethingNew", "1", 200}};
  for (const auto& [key, value, expected] : updates) {
    EXPECT_EQ(update(id, key, value).has("error"), expected == 400) << key;
    EXPECT_EQ(status, expected) << key << value.substr(0, 40);
  }
  line(id, "speaker", "x");
  EXPECT_EQ(status, 400);
  line(id, "system", " ");
  EXPECT_EQ(status, 400);
  line(id, "system", std::string(70'000, 'x'));
  EXPECT_EQ(status, 413);
  for (const char* path : {"/live-assist/session/start", "/live-assist/transcript",
                           "/live-assist/session/end", "/memory/live-context"}) {
    EXPECT_TRUE(ask("POST", path, "[1").has("error"));
    EXPECT_EQ(status, 400) << path;
  }
  EXPECT_TRUE(ask("GET", "/live-assist/session/" + id + "/other").has("error"));
  EXPECT_EQ(ask("GET", "/live-assist/session/" + id).objectAt("session")->stringAt("useCase"), "");
  EXPECT_TRUE(text::contains(ask("GET", "/drive/files?device_user_id=d").stringAt("error", ""),
                             "No Google Drive is linked"));
}

TEST_F(LiveAssistBackend, AConversationIsHelpedWithAndWithoutAModel) {
  const Json quiet = context();
  EXPECT_EQ(quiet.boolAt("success"), true);
  EXPECT_FALSE(quiet.has("feedbackSummary"));
  EXPECT_EQ(quiet.objectsAt("memoryItems").at(0)->stringAt("title"), "They asked");
  const Json rules = context(R"({"generateFeedback":true})");
  EXPECT_EQ(rules.stringAt("source"), "rules");
  EXPECT_EQ(rules.stringsAt("suggestions").at(0), "Answer: When can we start the pilot?");
  const auto with = [](uint16_t port) {
    return R"({"generateFeedback":true,"custom_llm_url":"http://127.0.0.1:)" +
           std::to_string(port) + "\"}";
  };
  const Json model = context(with(model_.port()).c_str());
  EXPECT_EQ(model.stringAt("source"), "model");
  EXPECT_EQ(model.stringAt("feedbackSummary"), "By model");
  const Json fallen = context(with(1).c_str());
  EXPECT_EQ(fallen.stringAt("source"), "rules") << "a model that is not there";
  EXPECT_EQ(fallen.stringsAt("suggestions"), rules.stringsAt("suggestions"));
}

TEST_F(LiveAssistBackend, WhatWasPromisedToAContactIsRemembered) {
  const std::string first = start(), second = start(), other = start("device_b");
  line(first, "microphone", "I'll send you the contract by Friday.");
  line(first, "microphone", "I'll book the room for the workshop.");
  line(second, "microphone", "I've sent the contract yesterday.");
  for (const std::string& id : {first, second, other}) {
    update(id, "contactEmail", R"("Ann@example.com")");
  }
  const Json known = ask(
      "GET", "/memory/contact-context?device_user_id=device_a&email=ann%40example.com&name=Ann");
  EXPECT_EQ(known.intAt("sessionCount"), 2);
  EXPECT_NE(known.stringAt("lastSession", ""), "");
  const auto items = known.objectsAt("memoryItems");
  ASSERT_EQ(items.size(), 1u) << known.dump();
  EXPECT_EQ(items[0]->stringAt("detail"), "I'll book the room for the workshop.");
  const auto remembered = [&](const char* body) {
    return context(body).objectsAt("memoryItems").size();
  };
  EXPECT_GT(remembered(R"({"contact_email":"ann@example.com","filters":{"memories":true}})"),
            remembered(R"({"contact_email":"ann@example.com","filters":{"memories":false}})"));
  EXPECT_EQ(ask("GET", "/memory/contact-context?device_user_id=device_a").intAt("sessionCount"), 0);
}

}  // namespace
}  // namespace kestrin::backend
