#include "services/local/docker_asr_service.h"

#include "services/local/container_host.h"
#include "services/local/docker_config.h"
#include "services/local/docker_world.h"
#include "support/seeds.h"

namespace kestrin::test {
namespace {

using Calls = std::vector<std::string>;
using States = std::vector<DockerState>;

TEST(DockerASRService, AContainerThatIsUpIsTakenAndThenWatched) {
  DockerWorld world;
  world.answers["ps"] = ScriptedProgram::printing("Up 2 hours");
  world.start();
  world.simulation->runFor(1s);
  EXPECT_EQ(world.calls(), (Calls{infoCall, statusCall}));
  EXPECT_EQ(world.states, (States{DockerState::containerStarting, DockerState::running}));
  EXPECT_TRUE(world.http.requests().empty());

  world.servicesAnswer();
  world.simulation->runFor(40s);
  EXPECT_EQ(world.service->status().state, DockerState::running);
  world.http.on("GET", "127.0.0.1:8765/health", ScriptedReply::body("x", 503));
  world.simulation->runFor(30s);
  EXPECT_EQ(world.service->status().state, DockerState::stopped);
  // Better later changes nothing: only a new start does.
  world.servicesAnswer();
  world.simulation->runFor(2min);
  EXPECT_EQ(world.service->status().state, DockerState::stopped);
  EXPECT_EQ(world.calls().size(), 2u);
}

TEST(DockerASRService, AContainerThatCannotBeStartedIsMadeAnew) {
  DockerWorld world;
  world.answers["ps"] = ScriptedProgram::printing("Exited (137) 3 days ago");
  world.answers["start"] = DockerWorld::failing("no such network");
  world.answers["run"] = ScriptedProgram::printing("0123456789abcdef0123");
  world.start();
  world.simulation->runFor(30s);
  EXPECT_EQ(world.calls(), (Calls{infoCall, statusCall, "start kestrin-unified",
                                  "rm -f kestrin-unified", createCall}));
  EXPECT_TRUE(world.wasTold("Recreating container..."));
  EXPECT_TRUE(world.wasTold("Loading models... (20s)"));
  EXPECT_EQ(world.service->status().state, DockerState::containerStarting);
  world.servicesAnswer();
  world.simulation->runFor(3s);
  EXPECT_EQ(world.service->status().state, DockerState::running);
  EXPECT_NE(
      std::find(world.printed.begin(), world.printed.end(), "✅ Container started: 0123456789ab"),
      world.printed.end());
}

TEST(DockerASRService, AMissingImageIsPulledWithItsProgress) {
  DockerWorld world;
  world.answers["pull"] = {.lines = {{1s, "latest: Pulling from kestrinasr/unified-nollm"},
                                     {1s, "0a1b2c3d: Pulling fs layer"},
                                     {1s, ""},
                                     {1s, "4e5f6a7b: Already exists"},
                                     {1s, "0a1b2c3d: Pull compl"},
                                     {10min, "0a1b2c3d: Pull complete"}}};
  world.servicesAnswer();
  std::vector<std::string> texts;
  world.service->startService(
      [&](const DockerASRStatus& status) { texts.push_back(status.hostStatus().text); });
  world.simulation->runFor(11min);
  EXPECT_EQ(world.calls(),
            (Calls{infoCall, statusCall, imageCall, "pull kestrinasr/unified-nollm:latest",
                   "rm -f kestrin-unified", createCall}));
  EXPECT_EQ(world.service->status().state, DockerState::running);
  EXPECT_NE(std::find(texts.begin(), texts.end(), "Downloading AI models... (1/2)"), texts.end());
  EXPECT_EQ(std::count(world.told.begin(), world.told.end(), ""), 0);

  DockerWorld offline;
  offline.answers["pull"] = DockerWorld::failing("no route to host");
  offline.start();
  offline.simulation->runFor(1s);
  EXPECT_EQ(offline.service->status(), DockerASRStatus::error("Failed to download ASR model"));
  EXPECT_TRUE(offline.wasTold("no route to host"));
  EXPECT_EQ(offline.calls().back(), "pull kestrinasr/unified-nollm:latest");
}

TEST(DockerASRService, GivesUpAfter181RoundsOfWaiting) {
  DockerWorld world;
  world.answers["images"] = ScriptedProgram::printing("sha256:1");
  world.http.on("GET", "127.0.0.1:8001/", ScriptedReply::body("", 200));
  world.http.on("GET", "127.0.0.1:8765/health", ScriptedReply::body("", 204));
  world.start();
  world.simulation->runFor(359s);
  EXPECT_EQ(world.service->status().state, DockerState::containerStarting);
  world.simulation->runFor(10s);
  EXPECT_EQ(world.service->status(), DockerASRStatus::error("ASR service failed to start"));
  EXPECT_EQ(world.http.requests("127.0.0.1:8001/").size(), 181u);
  EXPECT_EQ(world.told.back(), "Error: Service startup timeout");
  EXPECT_EQ(world.calls().back(), createCall);
}

TEST(DockerASRService, ADaemonThatIsDownIsStartedByTheUserAndWaitedFor) {
  DockerWorld world;
  world.answers["info"] = DockerWorld::failing("Cannot connect to the Docker daemon");
  world.start();
  world.simulation->runFor(1s);
  EXPECT_EQ(world.states, (States{DockerState::containerStarting, DockerState::dockerStopped}));
  ASSERT_EQ(world.prompts.size(), 1u);
  EXPECT_EQ(world.prompts[0].command, "sudo systemctl start docker");
  world.simulation->runFor(1min);
  EXPECT_EQ(world.calls().size(), 1u) << "nobody said that it will come";
  world.prompts[0].accept();
  world.prompts[0].accept();
  world.simulation->runFor(10min);
  EXPECT_EQ(world.calls().size(), 1u + 61u);
  EXPECT_EQ(world.printed.back(), "⚠️ Docker daemon not ready after 2 minutes");
  EXPECT_EQ(world.service->status().state, DockerState::dockerStopped);

  // The desktop product needs no rights: we start it.
  world.files.put("/usr/lib/systemd/user/docker-desktop.service", "");
  world.processes.on("systemctl", [&](const ProcessSpec& spec) {
    EXPECT_EQ(spec.arguments, (Calls{"--user", "start", "docker-desktop"}));
    world.answers.erase("info");
    return ScriptedProgram{};
  });
  world.answers["ps"] = ScriptedProgram::printing("Up 1 second");
  world.start();
  world.simulation->runFor(1s);
  EXPECT_EQ(world.prompts.back().acceptLabel, "Open Docker");
  world.prompts.back().accept();
  world.simulation->runFor(5s);
  EXPECT_EQ(world.service->status().state, DockerState::running);

  world.answers["info"] = DockerWorld::failing("permission denied while trying to connect");
  world.start();
  world.simulation->runFor(1s);
  EXPECT_EQ(world.prompts.back().command, "sudo usermod -aG docker \"$USER\"");
}

TEST(DockerASRService, ACallThatHangsHoldsNothingUp) {
  for (const auto& [hanging, expected] : std::map<std::string, DockerASRStatus>{
           {"info", {DockerState::dockerStopped}},
           {"ps", DockerASRStatus::error("Docker does not answer")},
           {"images", DockerASRStatus::error("Docker does not answer")},
           {"run", DockerASRStatus::error("Failed to start ASR service")},
           {"pull", DockerASRStatus::error("Failed to download ASR model")}}) {
    DockerWorld world;
    if (hanging != "pull") world.answers["images"] = ScriptedProgram::printing("sha256:1");
    world.answers[hanging] = {.endless = true};
    world.start();
    world.simulation->runFor(31min);
    EXPECT_EQ(world.service->status(), expected) << hanging;
    EXPECT_EQ(world.processes.seen().back().exitCode, 137) << hanging << " still runs";
  }
  DockerWorld world;
  world.answers["stop"] = {.endless = true};
  bool stopped = false;
  world.service->stopService([&] { stopped = true; });
  world.simulation->runFor(1min);
  EXPECT_TRUE(stopped);
}

TEST(DockerASRService, WithoutTheToolTheUserGetsTheCommandOfTheDistribution) {
  DockerWorld world;
  world.files.put("/etc/os-release", "NAME=\"Any\"\nID=any\nID_LIKE=\"ubuntu debian\"\n");
  world.processes.forget("docker");
  world.start();
  world.start();
  EXPECT_EQ(world.states, (States{DockerState::notInstalled, DockerState::installingDocker,
                                  DockerState::notInstalled}));
  ASSERT_EQ(world.prompts.size(), 1u) << "a second installation";
  EXPECT_TRUE(world.prompts[0].command.starts_with("sudo apt install docker.io"));
  world.simulation->runFor(30s);
  EXPECT_TRUE(world.wasTold("⏳ Waiting for Docker Desktop to initialize... (20s)"));
  world.answers["ps"] = ScriptedProgram::printing("Up");
  world.installDocker();
  world.simulation->runFor(3s);
  EXPECT_EQ(world.service->status().state, DockerState::running);
  EXPECT_FALSE(world.service->isAutoInstallingDocker());

  world.processes.forget("docker");
  world.start();
  world.simulation->runFor(200s);
  EXPECT_FALSE(world.service->isAutoInstallingDocker()) << "it could never be tried again";
  ASSERT_EQ(world.prompts.size(), 3u);
  EXPECT_EQ(world.prompts[2].acceptLabel, "Download Docker");
  world.prompts[2].accept();
  EXPECT_EQ(world.opened.size(), 1u);
}

TEST(DockerTool, KnowsEachFamilysCommand) {
  const std::pair<const char*, const char*> table[] = {
      {"ID=debian", "sudo apt install docker.io"},
      {"ID=fedora\nVERSION_ID=41", "sudo dnf install moby-engine"},
      {"ID=\"rocky\"\nID_LIKE=\"rhel centos fedora\"", "sudo dnf install podman"},
      {"ID=endeavouros\nID_LIKE='arch'", "sudo pacman -S docker"},
      {"ID=\"opensuse-leap\"", "sudo zypper install docker"},
      {"ID=alpine", "doas apk add docker"}};
  for (const auto& [release, command] : table) {
    EXPECT_TRUE(dockerInstallCommand(release).value_or("").starts_with(command)) << release;
  }
  EXPECT_FALSE(dockerInstallCommand("ID=unheard\n"));
  SimulatedWorld world;
  world.processes.on("pacman", ScriptedProgram{});
  EXPECT_TRUE(DockerTool(world.files, world.processes).installCommand().starts_with("sudo pacman"));
}

TEST(DockerASRService, AStopWaitsForTheStartThatIsUnderWay) {
  DockerWorld world;
  world.answers["images"] = ScriptedProgram::printing("sha256:1");
  world.answers["run"] = {.endDelay = 5s};
  world.servicesAnswer();
  world.start();
  world.simulation->runFor(2s);
  int stopped = 0;
  world.service->stopService([&] { ++stopped; });
  world.simulation->runFor(1s);
  EXPECT_EQ(world.calls().back(), createCall) << "the daemon would start it after the stop";
  world.simulation->runFor(5min);
  EXPECT_EQ(world.calls().back(), "stop kestrin-unified");
  EXPECT_EQ(world.processes.seen().back().spec.dieWithParent, false);
  EXPECT_EQ(stopped, 1);
  EXPECT_EQ(world.states.back(), DockerState::stopped);
  EXPECT_TRUE(world.http.requests().empty());
}

TEST(ContainerHost, NobodyWhoQuitsWaitsForAToolThatHangs) {
  DockerWorld world;
  world.answers["info"] = DockerWorld::failing("down");
  ContainerHost host(world.platform, world.logger, Endpoints::fromEnvironment());
  std::vector<std::string> prompts;
  host.start({.onPrompt = [&](const ServicePrompt& prompt) { prompts.push_back(prompt.command); }});
  world.simulation->runFor(1s);
  EXPECT_EQ(host.status().state, ServiceHostStatus::State::needsUser);
  EXPECT_EQ(prompts.size(), 1u);
  world.answers["stop"] = {.endless = true};
  int ended = 0;
  host.stop([&] { ++ended; });
  world.simulation->runFor(21s);
  EXPECT_EQ(ended, 1);
  world.simulation->runFor(1min);
  EXPECT_EQ(ended, 1);
  EXPECT_EQ(host.status().state, ServiceHostStatus::State::stopped);
}

TEST(DockerASRService, WhateverIsAskedWhenTheLastWordCounts) {
  forEachSeed(150, [](Simulation& chosen) {
    DockerWorld world(chosen.seed());
    bool up = false;
    const std::set<std::string> changes{"start", "rm", "run", "stop"};
    for (const std::string& change : changes) world.answers[change] = {.endDelay = 1500ms};
    world.answers["pull"] = {.lines = {{2s, "0a1b2c3d: Pull complete"}}, .endDelay = 2s};
    world.processes.on("docker", [&](const ProcessSpec& spec) {
      const std::string& what = spec.arguments[0];
      if (what == "ps") return ScriptedProgram::printing(up ? "Up 1 second" : "Exited");
      const auto found = world.answers.find(what);
      if (found == world.answers.end()) return ScriptedProgram{};
      if (what == "pull") return found->second;
      const auto all = world.processes.seen();
      EXPECT_EQ(std::count_if(all.begin(), all.end(),
                              [&](const SeenProcess& seen) {
                                return !seen.exitCode && changes.contains(seen.spec.arguments[0]);
                              }),
                1)
          << "two commands change the container at once";
      up = what == "start" || what == "run";
      return found->second;
    });
    world.servicesAnswer();
    int completions = 0;
    int stops = 0;
    bool wantsUp = false;
    for (int step = 0; step < 8; ++step) {
      wantsUp = world.simulation->random(2) == 0;
      if (wantsUp) {
        world.start();
      } else {
        ++stops;
        world.service->stopService([&] { ++completions; });
      }
      world.simulation->runFor(std::chrono::milliseconds(world.simulation->random(4000)));
    }
    world.simulation->runFor(2min);
    EXPECT_EQ(completions, stops);
    EXPECT_EQ(up, wantsUp);
    EXPECT_EQ(world.service->status().state, wantsUp ? DockerState::running : DockerState::stopped);
  });
}

TEST(DockerASRService, AnyCallThatFailsOnceEndsInAStateFromWhichANewStartWorks) {
  int calls = 1;
  for (int failing = 0; failing < calls && !HasFailure(); ++failing) {
    DockerWorld world;
    world.servicesAnswer();
    world.files.put(world.files.home() + "/.docker/config.json", R"({"credsStore":"gone"})");
    world.faults.arm(failing);
    world.start();
    world.simulation->runFor(10min);
    SCOPED_TRACE("call " + std::to_string(failing) + " fails");
    if (failing == 0) calls = world.faults.count() + 1;
    const auto reached = world.service->status().state;
    EXPECT_TRUE(reached == DockerState::running || reached == DockerState::error ||
                reached == DockerState::dockerStopped || reached == DockerState::stopped)
        << static_cast<int>(reached);
    world.faults.arm(0);
    world.start();
    world.simulation->runFor(1min);
    EXPECT_EQ(world.service->status().state, DockerState::running);
    bool stopped = false;
    world.service->stopService([&] { stopped = true; });
    world.simulation->runFor(1min);
    EXPECT_TRUE(stopped);
  }
  EXPECT_GT(calls, 8);
}

TEST(DockerConfig, LosesOnlyAHelperThatIsMissing) {
  DockerWorld world;
  const std::string path = world.files.home() + "/.docker/config.json";
  const std::string whole =
      R"({"credsStore":"desktop","auths":{"b":{},"a":{}},"HttpHeaders":{"X":"ü"}})";
  std::vector<std::string> told;
  const auto fix = [&](const std::string& content) {
    world.files.put(path, content);
    fixDockerCredentialConfig(
        world.files, world.processes, [](const std::string&) {},
        [&](const std::string& line) { told.push_back(line); });
    return world.files.read(path).value_or("");
  };
  EXPECT_EQ(fix(whole),
            "{\n  \"HttpHeaders\": {\n    \"X\": \"ü\"\n  },\n  \"auths\": {\n    \"a\": {},\n    "
            "\"b\": {}\n  }\n}\n");
  EXPECT_EQ(told.size(), 2u);
  world.processes.on("docker-credential-desktop", ScriptedProgram{});
  for (const std::string& untouched :
       {whole, std::string("{torn"), std::string("[1]"), std::string(R"({"credsStore":""})"),
        std::string(R"({"credsStore":7})")}) {
    EXPECT_EQ(fix(untouched), untouched);
  }
}

TEST(DockerModels, TheModelIsCheckedAndFetchedInsideTheRunningContainer) {
  DockerWorld world;
  std::optional<std::pair<bool, std::string>> answer;
  const auto take = [&](bool ok, const std::string& words) { answer = {ok, words}; };
  const auto after = [&](Duration time) {
    world.simulation->runFor(time);
    return std::exchange(answer, {}).value_or(std::pair(false, std::string("no answer")));
  };
  world.answers["inspect"] = ScriptedProgram::printing("false");
  world.service->downloadLocalLLMModel(take);
  EXPECT_EQ(after(1s).second,
            "Unified Docker container is not running. Start it first from Setup → Docker.");
  world.answers["inspect"] = ScriptedProgram::printing("true");
  world.answers["exec"] = {.exitCode = 1};
  world.service->ensureLocalLLMModelPresent(take);
  EXPECT_EQ(after(1s).second,
            "Local model not found. Click “Download model” to fetch "
            "Qwen/Qwen2.5-3B-Instruct-GGUF (~2GB).");
  EXPECT_EQ(world.calls().back(),
            "exec kestrin-unified bash -lc test -f "
            "\"/app/models/qwen2.5-3b-instruct-q4_k_m.gguf\"");
  world.answers["exec"] = DockerWorld::failing("No space left on device");
  world.service->downloadLocalLLMModel(take);
  EXPECT_EQ(after(1s), std::pair(false, std::string("Download failed: No space left on device")));
  // The download may take an hour as long as it says something; the restart may fail.
  world.processes.on("docker", [&](const ProcessSpec& spec) {
    if (spec.arguments[0] == "inspect") return ScriptedProgram::printing("true");
    if (spec.arguments.back() == "supervisorctl restart llm || true")
      return ScriptedProgram{.exitCode = 9};
    ScriptedProgram slow;
    for (int i = 0; i < 60; ++i) slow.lines.push_back({1min, "...", true});
    return slow;
  });
  world.service->downloadLocalLLMModel(take);
  world.service->stopService();
  EXPECT_EQ(after(61min),
            std::pair(true, std::string("Model downloaded and LLM restart triggered.")));
}

}  // namespace
}  // namespace kestrin::test
