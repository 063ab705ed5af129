#include <csignal>
#include <gtest/gtest.h>

#include "platform/linux/curl_http.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/posix_processes.h"
#include "platform/simulated/simulated_files.h"
#include "platform/text/text.h"
#include "services/local/docker_asr_service.h"
#include "support/loopback_server.h"
#include "support/worlds.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

/// A program named docker on PATH, real processes, real HTTP.
struct RealTool {
  RealTool() {
    const std::string path = std::getenv("PATH");
    ::setenv("PATH", (KESTRIN_SOURCE_DIR "/tests/services/local/tool:" + path).c_str(), 1);
    ::setenv("KESTRIN_TEST_DOCKER", world.path().c_str(), 1);
    restore = path;
    service->onLogOutput = [this](const std::string& line) { told.push_back(line); };
  }
  ~RealTool() {
    dispatch->shutDown();
    ::setenv("PATH", restore.c_str(), 1);
    ::unsetenv("KESTRIN_TEST_DOCKER");
  }
  /// Serves the main queue until `ended` was called.
  void run(const std::function<void(std::function<void()> ended)>& job) {
    bool inTime = false;
    const auto limit =
        dispatch->after(dispatch->mainQueue(), 60s, [this] { dispatch->mainLoop().quit(1); });
    dispatch->mainQueue()->post([&] {
      job([&] {
        inTime = true;
        dispatch->mainLoop().quit(0);
      });
    });
    dispatch->mainLoop().run();
    EXPECT_TRUE(inTime) << text::join(told, "\n");
  }
  void startUntilRunning() {
    run([this](const std::function<void()>& ended) {
      service->startService([ended](const DockerASRStatus& status) {
        if (status.state == DockerASRStatus::State::running) ended();
      });
    });
  }
  std::vector<std::string> takeCalls() {
    LinuxFiles files;
    const auto calls = text::trim(files.read(world.file("calls")).value_or(""));
    EXPECT_TRUE(files.remove(world.file("calls")));
    return text::split(calls, "\n");
  }

  ScratchFolder world;
  std::string restore;
  std::vector<std::string> told;
  LoopbackServer server{[](LoopbackServer::Peer& peer) {
    while (peer.request()) peer.reply("{}");
  }};
  std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  NotificationCenter notifications;
  Logger logger{*dispatch, notifications};
  SimulatedFiles files{dispatch->clock()};
  std::unique_ptr<Http> http = makeCurlHttp(*dispatch);
  std::unique_ptr<Processes> processes = makePosixProcesses();
  std::unique_ptr<DockerASRService> service = std::make_unique<DockerASRService>(
      *dispatch, *http, *processes, files, logger,
      Endpoints{"http://" + server.host(), "", "http://" + server.host(), ""},
      [](const std::string&) {}, std::vector<std::string>{});
};

TEST(DockerContract, ARealProgramIsDrivenThroughItsWholeLife) {
  RealTool tool;
  tool.startUntilRunning();
  EXPECT_EQ(tool.takeCalls(),
            (std::vector<std::string>{
                "info", "ps -a --filter name=^kestrin-unified$ --format {{.Status}}",
                "images -q kestrinasr/unified-nollm:latest", "pull kestrinasr/unified-nollm:latest",
                "rm -f kestrin-unified",
                "run -d --name kestrin-unified -p 8001:8001 -p 8082:8082 -p 8765:8765 --restart "
                "unless-stopped kestrinasr/unified-nollm:latest"}));
  for (const char* line : {"0a1b2c3d: Pulling fs layer", "0a1b2c3d: Pull complete ✓", "\ufffd",
                           "a warning without an end"}) {
    EXPECT_EQ(std::count(tool.told.begin(), tool.told.end(), line), 1) << line;
  }
  std::string answer;
  tool.run([&](const std::function<void()>& ended) {
    tool.service->ensureLocalLLMModelPresent([&, ended](bool, const std::string& words) {
      answer = words;
      ended();
    });
  });
  EXPECT_TRUE(answer.starts_with("Local model not found.")) << answer;
  tool.run([&](const std::function<void()>& ended) { tool.service->stopService(ended); });
  EXPECT_EQ(tool.takeCalls().back(), "stop kestrin-unified");
  tool.startUntilRunning();
  EXPECT_EQ(tool.takeCalls().back(), "start kestrin-unified");
}

TEST(DockerContract, AToolThatHangsAndHearsNoSignalIsKilledAtItsDeadline) {
  RealTool tool;
  CommandRunner runner(*tool.dispatch, *tool.processes);
  CommandOutcome outcome{.exitCode = 0};
  tool.run([&](const std::function<void()>& ended) {
    runner.run({.program = "docker", .arguments = {"hang"}, .deadline = 300ms},
               [&, ended](const CommandOutcome& result) {
                 outcome = result;
                 ended();
               });
  });
  EXPECT_EQ(outcome.exitCode, CommandOutcome::neverEnded);
  EXPECT_FALSE(outcome.errorText.empty());
  const auto pid = LinuxFiles().read(tool.world.file("pid"));
  // A slow machine may not have come so far; then nothing was left to kill.
  if (!pid || pid->empty()) return;
  EXPECT_TRUE(eventually([&] { return ::kill(std::stoi(*pid), 0) != 0; }));
}

}  // namespace
}  // namespace kestrin::test
