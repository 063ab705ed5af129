#include "services/local/agent_client.h"

#include <gtest/gtest.h>

#include "identity/keychain_helper.h"
#include "platform/simulated/simulated_world.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

struct Agent : SimulatedWorld {
  static constexpr const char* address = "127.0.0.1:8765/process";

  Result<AgentAnswer> ask(const ScriptedReply& reply) {
    http.on("POST", address, reply);
    const auto queue = dispatch.makeQueue("answers");
    std::vector<Result<AgentAnswer>> answers;
    client.process(Json::object({{"transcript", "hi"}}), queue, [&](Result<AgentAnswer> answer) {
      EXPECT_TRUE(queue->isCurrent());
      answers.push_back(std::move(answer));
    });
    simulation->runFor(120s);
    EXPECT_EQ(answers.size(), 1u);
    return answers.empty() ? fail("test", 0, "") : answers.front();
  }

  AgentClient client{http, {"", "", "http://127.0.0.1:8765", ""}};
};

TEST(AgentClient, SendsTheBodyAndReadsTheAnswer) {
  Agent agent;
  const auto answer = agent.ask(ScriptedReply::json(
      Json::object({{"success", true}, {"processed_text", "Hi."}, {"transcript", 7}})));
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->text().value_or(""), "Hi.");
  EXPECT_FALSE(answer->transcript);
  const auto request = agent.http.requests(Agent::address).at(0).request;
  EXPECT_EQ(request.body, R"({"transcript":"hi"})");
  EXPECT_EQ(request.timeout, 30s);
  EXPECT_EQ(request.headers, (HttpHeaders{{"Content-Type", "application/json"}}));
}

TEST(AgentClient, EveryBadReplyIsOneErrorWithAReason) {
  const auto json = [](Json value, int status = 200) { return ScriptedReply::json(value, status); };
  const std::vector<std::tuple<ScriptedReply, const char*, int>> cases{
      {ScriptedReply::refused(), "HTTP", httpCannotConnect},
      {ScriptedReply::lost(), "HTTP", httpConnectionLost},
      {ScriptedReply::never(), "HTTP", httpTimedOut},
      {json(Json::object({{"success", true}})).cutAfter(5), "HTTP", httpConnectionLost},
      {ScriptedReply::body(""), "AgentClient", agentNoData},
      {ScriptedReply::body("<html>"), "AgentClient", agentNotJson},
      {json(Json::array()), "AgentClient", agentNotJson},
      {ScriptedReply::body("{\"success\":tr"), "AgentClient", agentNotJson},
      {ScriptedReply::body(std::string(100000, '[')), "AgentClient", agentNotJson},
      {ScriptedReply::body("", 502), "AgentClient", agentBadStatus},
      {json(Json::object({{"success", true}, {"processed_text", "x"}}), 500), "AgentClient",
       agentBadStatus},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    const auto& [reply, domain, code] = cases[i];
    Agent agent;
    const auto answer = agent.ask(reply);
    ASSERT_FALSE(answer) << i;
    EXPECT_EQ(answer.error().domain, domain) << i;
    EXPECT_EQ(answer.error().code, code) << i;
    EXPECT_NE(answer.error().description, "") << i;
  }
  Agent agent;
  EXPECT_EQ(agent.ask(json(Json::object({{"detail", "no model"}}), 503)).error().description,
            "The agent answered with status 503: no model");
  AgentClient nowhere(agent.http, {"", "", "nonsense", ""});
  std::optional<Result<AgentAnswer>> answer;
  nowhere.process({}, agent.dispatch.mainQueue(), [&](auto result) { answer = result; });
  agent.simulation->runFor(1s);
  EXPECT_EQ(answer.value().error().code, agentBadUrl);
}

TEST(AgentClient, OnlyASuccessWithTextIsText) {
  const auto error = [](Json json) {
    return AgentAnswer::fromJson(json).text().error().description;
  };
  EXPECT_EQ(error(Json::object({{"processed_text", "x"}})), "Agent processing failed");
  EXPECT_EQ(error(Json::object({{"success", true}, {"processed_text", ""}})),
            "Agent processing failed");
  EXPECT_EQ(error(Json::object({{"success", "true"}, {"processed_text", "x"}, {"error", "full"}})),
            "full");
}

TEST(AgentClient, TheModelFieldsFollowTheSettings) {
  SimulatedWorld world;
  Logger logger(world.dispatch, world.notifications);
  KeychainHelper keychain(world.secrets, logger);
  GeminiKeyManager key(keychain, world.settings);
  Json body;
  setModelFields(body, world.settings, key);
  EXPECT_EQ(body.dump(), R"({"use_local_llm":false})");
  key.save("secret");
  world.settings.set("pref_llmEndpoint", Json("http://llm"));
  world.settings.set("pref_useLocalLLM", Json(true));
  body = {};
  setModelFields(body, world.settings, key);
  EXPECT_EQ(body.dump(),
            R"({"gemini_api_key":"secret","custom_llm_url":"http://llm","use_local_llm":true})");
}

}  // namespace
}  // namespace kestrin
