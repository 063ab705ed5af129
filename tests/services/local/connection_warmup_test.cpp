#include <gtest/gtest.h>

#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"
#include "services/local/connection_warmup_service.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

struct Warmup : SimulatedWorld {
  Warmup() {
    logger.setSink([this](std::string_view line) { printed.emplace_back(line); });
    for (const char* where : {"127.0.0.1:8001/", "127.0.0.1:8082/health", "127.0.0.1:8765/health",
                              "127.0.0.1:8780/", "127.0.0.1:8765/process"}) {
      http.on("*", where, ScriptedReply::json(Json::object({{"status", "ok"}})));
    }
  }
  bool run() {
    std::optional<bool> result;
    dispatch.mainQueue()->post([&] { service.warmup([&](bool all) { result = all; }); });
    EXPECT_TRUE(simulation->runUntil([&] { return result.has_value(); }, 90s)) << "it hangs";
    EXPECT_FALSE(service.warmupInProgress());
    EXPECT_EQ(service.isWarmedUp(), result);
    return result.value_or(false);
  }
  bool said(const std::string& line) const {
    return std::find(printed.begin(), printed.end(), line) != printed.end();
  }

  Logger logger{dispatch, notifications};
  KeychainHelper keychain{secrets, logger};
  GeminiKeyManager keys{keychain, settings};
  ConnectionWarmupService service{dispatch,
                                  http,
                                  settings,
                                  logger,
                                  keys,
                                  {"http://127.0.0.1:8001", "http://127.0.0.1:8082",
                                   "http://127.0.0.1:8765", "http://127.0.0.1:8780"}};
  std::vector<std::string> printed;
};

TEST(ConnectionWarmup, ProbesAllFourAtOnceAndTellsAfterEach) {
  Warmup world;
  world.http.on("GET", "127.0.0.1:8001/", ScriptedReply::body("not json").after(3s));
  world.http.on("GET", "127.0.0.1:8780/", ScriptedReply::body("{}").after(2s));
  std::vector<ServiceStatus> told;
  world.service.onStatusChange = [&](const ServiceStatus& status) { told.push_back(status); };
  EXPECT_TRUE(world.run());
  EXPECT_LT(world.simulation->elapsed(), 3100ms);
  ASSERT_EQ(told.size(), 4u);
  EXPECT_EQ(told[2], (ServiceStatus{false, true, true, true}));
  EXPECT_EQ(world.printed.front(), "🔥 Starting connection warmup...");
  EXPECT_EQ(world.printed.back(), "🔥 ✅ All connections warmed up and ready!");
  EXPECT_TRUE(world.said("🔥 ASR Engine ready")) << "the body need not be JSON";

  world.http.on("GET", "127.0.0.1:8001/", ScriptedReply::body(R"({"status":"ok"})", 503));
  EXPECT_FALSE(world.run());
  EXPECT_TRUE(world.said("🔥 ASR Engine not ready: Unknown"));
  const std::vector<std::string> tail(world.printed.end() - 5, world.printed.end());
  EXPECT_EQ(tail,
            (std::vector<std::string>{"🔥 ⚠️ Some connections failed to warm up", "   ASR: ❌",
                                      "   LLM: ✅", "   Agent: ✅", "   Backend: ✅"}));
}

TEST(ConnectionWarmup, ChoosesTheLanguageModelByTheSettings) {
  struct Case {
    bool useLocal, key, localUp, geminiUp;
    bool ready;
    const char* provider;
    size_t localRequests, geminiRequests;
  };
  for (const Case& c : {Case{false, false, false, false, true, "Off", 0, 0},
                        Case{true, false, true, false, true, "Local", 1, 0},
                        Case{true, false, false, false, false, "Local", 1, 0},
                        Case{true, true, false, true, true, "Gemini", 1, 1},
                        Case{true, true, false, false, false, "Local", 1, 1},
                        Case{false, true, true, true, true, "Gemini", 0, 1},
                        Case{false, true, true, false, false, "Gemini", 0, 1}}) {
    Warmup world;
    world.settings.set("pref_useLocalLLM", c.useLocal);
    if (c.key) world.keys.save("secret");
    if (!c.localUp) world.http.on("GET", "127.0.0.1:8082/health", ScriptedReply::refused());
    if (!c.geminiUp) world.http.on("POST", "127.0.0.1:8765/process", ScriptedReply::never());
    world.run();
    EXPECT_EQ(world.service.status().llmReady, c.ready);
    EXPECT_EQ(world.service.llmProvider(), c.provider);
    EXPECT_EQ(world.service.llmServiceDisplayName(),
              std::string("Natural language service (") + c.provider + ")");
    EXPECT_EQ(world.http.requests("127.0.0.1:8082/*").size(), c.localRequests);
    const auto asked = world.http.requests("127.0.0.1:8765/process");
    ASSERT_EQ(asked.size(), c.geminiRequests);
    if (asked.empty()) continue;
    EXPECT_EQ(asked[0].request.body, R"({"transcript":"Say OK","mode":"chat","app_context":"{}",)"
                                     R"("gemini_api_key":"secret","use_local_llm":false})");
    EXPECT_EQ(text::join(world.printed, "\n").find("secret"), std::string::npos);
  }
}

TEST(ConnectionWarmup, TheBackendIsOptional) {
  Warmup world;
  world.http.on("*", "127.0.0.1:8780/*", ScriptedReply::refused());
  EXPECT_TRUE(world.run());
  EXPECT_TRUE(world.said("🔥 No auth token for backend warmup, but marking as ready (optional)"));
  world.service.idToken = [] { return std::optional<std::string>("token"); };
  world.http.on("GET", "127.0.0.1:8780/voice-profile", ScriptedReply::body("", 401));
  EXPECT_TRUE(world.run());
  EXPECT_TRUE(world.said("🔥 Cloud Backend check failed: Unknown"));
  world.http.on("GET", "127.0.0.1:8780/voice-profile", ScriptedReply::body("", 204));
  EXPECT_TRUE(world.run());
  EXPECT_TRUE(world.said("🔥 Cloud Backend profile endpoint ready"));
  EXPECT_EQ(world.http.requests("127.0.0.1:8780/voice-profile")[0].request.headers,
            (HttpHeaders{{"Authorization", "Bearer token"}}));
}

TEST(ConnectionWarmup, APeerThatSaysNothingOrDribblesHoldsNothingUp) {
  Warmup world;
  auto dribble = ScriptedReply::events({});
  for (int i = 0; i < 100; ++i) dribble.piece(5s, " ");
  world.http.on("GET", "127.0.0.1:8001/", dribble);
  for (const char* where : {"127.0.0.1:8765/health", "127.0.0.1:8780/"}) {
    world.http.on("GET", where, ScriptedReply::never());
  }
  EXPECT_FALSE(world.run());
  EXPECT_EQ(world.service.status(), (ServiceStatus{false, true, false, true}));
  EXPECT_LT(world.simulation->elapsed(), 31s);
}

}  // namespace
}  // namespace kestrin::test
