#pragma once

#include <gtest/gtest.h>

#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"
#include "services/local/docker_asr_service.h"

namespace kestrin::test {

using namespace std::chrono_literals;
using DockerState = DockerASRStatus::State;

/// A machine whose container tool does as it is told: one scripted answer for each subcommand.
struct DockerWorld : SimulatedWorld {
  explicit DockerWorld(uint64_t seed = 0) : SimulatedWorld(seed) {
    installDocker();
    logger.setSink([this](std::string_view line) { printed.emplace_back(line); });
    service->onLogOutput = [this](const std::string& line) { told.push_back(line); };
    service->onPrompt = [this](const ServicePrompt& prompt) { prompts.push_back(prompt); };
  }
  ~DockerWorld() {
    service.reset();
    simulation->runFor(2min);
  }

  void installDocker() {
    processes.on("docker", [this](const ProcessSpec& spec) {
      const auto found = answers.find(spec.arguments.at(0));
      return found == answers.end() ? ScriptedProgram{} : found->second;
    });
  }
  void servicesAnswer(const ScriptedReply& reply = ScriptedReply::body("x")) {
    http.on("GET", "127.0.0.1:8001/", reply);
    http.on("GET", "127.0.0.1:8765/health", reply);
  }
  void start() {
    service->startService(
        [this](const DockerASRStatus& status) { states.push_back(status.state); });
  }
  /// Command lines of the tool, with blanks between the arguments.
  std::vector<std::string> calls() const {
    std::vector<std::string> out;
    for (const auto& seen : processes.seen()) {
      if (seen.spec.program.ends_with("docker"))
        out.push_back(text::join(seen.spec.arguments, " "));
    }
    return out;
  }
  bool wasTold(const std::string& line) const {
    return std::find(told.begin(), told.end(), line) != told.end();
  }
  static ScriptedProgram failing(const std::string& why) {
    return {.lines = {{0ms, why, true}}, .exitCode = 1};
  }

  std::map<std::string, ScriptedProgram> answers;
  std::vector<DockerState> states;
  std::vector<std::string> printed;
  std::vector<std::string> told;
  std::vector<ServicePrompt> prompts;
  std::vector<std::string> opened;
  Logger logger{dispatch, notifications};
  std::unique_ptr<DockerASRService> service = std::make_unique<DockerASRService>(
      dispatch, http, processes, files, logger,
      Endpoints{"http://127.0.0.1:8001", "http://127.0.0.1:8082", "http://127.0.0.1:8765", ""},
      [this](const std::string& address) { opened.push_back(address); });
};

inline const std::string infoCall = "info";
inline const std::string statusCall = "ps -a --filter name=^kestrin-unified$ --format {{.Status}}";
inline const std::string imageCall = "images -q kestrinasr/unified-nollm:latest";
inline const std::string createCall =
    "run -d --name kestrin-unified -p 8001:8001 -p 8082:8082 -p 8765:8765 --restart unless-stopped "
    "kestrinasr/unified-nollm:latest";

}  // namespace kestrin::test
