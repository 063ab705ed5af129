#include "services/local/embedded_host.h"

#include <gtest/gtest.h>

#include "platform/simulated/simulated_world.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;
using State = ServiceHostStatus::State;

/// A machine with the companion installed.
struct Host : SimulatedWorld {
  Host() {
    processes.on("kestrin-companion", [this](const ProcessSpec&) { return program; });
  }
  ~Host() {
    host.reset();
    simulation->runFor(60s);
  }
  void companionAnswers(ScriptedReply reply) {
    http.on("GET", "127.0.0.1:8001/", reply);
    http.on("GET", "127.0.0.1:8765/health", reply);
  }
  void start() {
    host->start(
        {.onStatus = [this](const ServiceHostStatus& status) { states.push_back(status.state); }});
  }
  size_t starts() const { return processes.seen().size(); }

  ScriptedProgram program{.endless = true};
  Logger logger{dispatch, notifications};
  Endpoints endpoints{"http://127.0.0.1:8001", "http://127.0.0.1:8082", "http://127.0.0.1:8765",
                      "https://backend.example"};
  std::unique_ptr<EmbeddedHost> host = std::make_unique<EmbeddedHost>(
      dispatch, http, processes, logger, settings, endpoints, "kestrin-companion");
  std::vector<State> states;
};

TEST(EmbeddedHost, StartsTheCompanionOnceAndSaysWhenItAnswers) {
  Host world;
  world.start();
  world.simulation->runFor(2s);
  world.start();
  world.simulation->runFor(2s);
  ASSERT_EQ(world.starts(), 1u);
  EXPECT_EQ(world.host->status().state, State::starting);
  EXPECT_TRUE(world.processes.seen()[0].spec.dieWithParent) << "it would be orphaned";
  EXPECT_EQ(
      world.processes.seen()[0].spec.arguments,
      (std::vector<std::string>{"--ports", "8001,8082,8765,8780", "--services", "asr,llm,agent"}));
  world.companionAnswers(ScriptedReply::body("{}"));
  world.simulation->runFor(1s);
  EXPECT_EQ(world.host->status().state, State::running);
  bool ended = false;
  world.host->stop([&] { ended = true; });
  EXPECT_FALSE(ended);
  world.simulation->runFor(60s);
  EXPECT_TRUE(ended);
  EXPECT_EQ(world.starts(), 1u);
  EXPECT_TRUE(world.processes.seen()[0].exitCode) << "it outlives the application";
}

TEST(EmbeddedHost, LeavesACompanionAloneThatSomebodyElseRunsUntilItIsGone) {
  Host world;
  world.companionAnswers(ScriptedReply::body("{}"));
  world.start();
  world.simulation->runFor(2min);
  EXPECT_EQ(world.starts(), 0u);
  EXPECT_EQ(world.host->status().state, State::running);
  EXPECT_FALSE(EmbeddedHost::canServe({"https://asr.example", "", "http://127.0.0.1:1", ""}));
  world.companionAnswers(ScriptedReply::refused());
  world.simulation->runFor(31s);
  EXPECT_EQ(world.starts(), 1u);
}

TEST(EmbeddedHost, StartsAgainWithGrowingPausesAndSurvivesACrashLoop) {
  Host world;
  world.program = ScriptedProgram::printing("no model", 1);
  world.start();
  world.simulation->runFor(400ms);
  EXPECT_EQ(world.starts(), 1u);
  world.simulation->runFor(300ms);
  EXPECT_EQ(world.starts(), 2u);
  world.simulation->runFor(14s);
  EXPECT_LE(world.starts(), 6u);
  world.simulation->runFor(10min);
  EXPECT_LE(world.starts(), 30u);
  EXPECT_EQ(world.states, (std::vector{State::starting, State::failed}));
  // Asking again does not cut the pauses short.
  for (int i = 0; i < 30; ++i) {
    world.start();
    world.simulation->runFor(2s);
  }
  EXPECT_LE(world.starts(), 33u);
  world.program = {.endless = true};
  world.companionAnswers(ScriptedReply::body("{}").after(1s));
  world.simulation->runFor(2min);
  EXPECT_EQ(world.host->status().state, State::running);
}

TEST(EmbeddedHost, ACompanionThatHangsIsStartedAnew) {
  Host world;
  world.start();
  world.simulation->runFor(1s);
  world.companionAnswers(ScriptedReply::body("{}"));
  world.simulation->runFor(70s);
  ASSERT_EQ(world.host->status().state, State::running);
  world.companionAnswers(ScriptedReply::never());
  world.simulation->runFor(36s);
  EXPECT_EQ(world.starts(), 1u) << "one silence is no hang";
  world.simulation->runFor(60s);
  EXPECT_EQ(world.starts(), 2u);
  EXPECT_TRUE(world.processes.seen()[0].exitCode);
  world.companionAnswers(ScriptedReply::body("{}"));
  world.simulation->runFor(6s);
  EXPECT_EQ(world.states,
            (std::vector{State::starting, State::running, State::starting, State::running}));
}

TEST(EmbeddedHost, AMissingProgramDoesNotHoldUpTheStart) {
  Host world;
  world.processes.forget("kestrin-companion");
  world.start();
  world.simulation->runFor(1s);
  EXPECT_EQ(world.host->status().state, State::failed);
}

TEST(EmbeddedHost, NeitherStopNorDestructionLeavesAnOrphan) {
  Host world;
  world.start();
  world.simulation->runFor(1s);
  world.host.reset();
  world.simulation->runFor(1s);
  EXPECT_TRUE(world.processes.seen().at(0).exitCode);
  EXPECT_EQ(world.states, std::vector{State::starting});
}

TEST(ServiceHost, IsTheOneOfTheSetting) {
  SimulatedWorld world;
  const Endpoints here{"http://127.0.0.1:8001", "", "http://localhost:8765/", ""};
  const Endpoints elsewhere{"https://asr.example", "", "http://localhost:8765/", ""};
  EXPECT_EQ(chosenServiceHost(world.settings, here), ServiceHostKind::companion);
  EXPECT_EQ(chosenServiceHost(world.settings, elsewhere), ServiceHostKind::external);
  world.settings.set("pref_serviceHost", "container");
  EXPECT_EQ(chosenServiceHost(world.settings, here), ServiceHostKind::container);
  world.settings.set("pref_serviceHost", "external");
  EXPECT_EQ(chosenServiceHost(world.settings, here), ServiceHostKind::external);
}

}  // namespace
}  // namespace kestrin::test
