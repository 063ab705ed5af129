#include "services/local/docker_asr_service.h"

#include <utility>

#include "platform/text/text.h"
#include "services/local/docker_commands.h"

namespace kestrin {
namespace {

using State = DockerASRStatus::State;

constexpr std::chrono::seconds daemonDeadline{15};
constexpr std::chrono::seconds openDeadline{60};

}  // namespace

DockerASRService::DockerASRService(Dispatch& dispatch, Http& http, Processes& processes,
                                   Files& files, Logger& logger, const Endpoints& endpoints,
                                   std::function<void(const std::string&)> open,
                                   std::vector<std::string> toolPaths)
    : dispatch_(dispatch),
      logger_(logger),
      open_(std::move(open)),
      tool_(files, processes, std::move(toolPaths)),
      health_(dispatch, http, endpoints),
      questions_(dispatch, processes),
      requests_(dispatch, processes),
      models_(requests_, tool_),
      container_(dispatch, processes, files, logger, tool_, health_, observer()) {}

DockerContainer::Observer DockerASRService::observer() {
  return {.setStatus = [this](DockerASRStatus status) { updateStatus(std::move(status)); },
          .tell = [this](const std::string& line) { tell(line); },
          .onRunning = [this] { startHealthCheck(); }};
}

void DockerASRService::checkDockerDaemon(std::function<void(bool)> completion) {
  requests_.run({.program = tool_.dockerPath(),
                 .arguments = docker::daemonCheck(),
                 .deadline = daemonDeadline},
                [completion = std::move(completion)](const CommandOutcome& outcome) {
                  completion(outcome.succeeded());
                });
}

void DockerASRService::checkImageExists(std::function<void(bool)> completion) {
  requests_.run({.program = tool_.dockerPath(),
                 .arguments = docker::imageCheck(),
                 .deadline = daemonDeadline},
                [completion = std::move(completion)](const CommandOutcome& outcome) {
                  completion(!text::trim(outcome.output).empty());
                });
}

void DockerASRService::startService(std::function<void(DockerASRStatus)> onStatusChange) {
  statusCallback_ = std::move(onStatusChange);
  print("🐳 Starting Docker ASR service...");
  if (!isDockerInstalled()) {
    print("❌ Docker not installed");
    updateStatus({State::notInstalled});
    return promptInstallDocker();
  }
  endFlow();
  container_.whenIdle(flow_->guard([this] { beginStart(); }));
}

/// With a tool. The container is left as an earlier start or stop made it.
void DockerASRService::beginStart() {
  updateStatus({State::containerStarting});
  askDaemon([this](const CommandOutcome& outcome) {
    if (outcome.succeeded()) return container_.bringUp();
    print("⚠️ Docker daemon not running");
    updateStatus({State::dockerStopped});
    promptStartDocker(outcome.errorText);
  });
}

void DockerASRService::stopService(std::function<void()> completion) {
  print("🛑 Stopping ASR container...");
  endFlow();
  if (!isDockerInstalled()) {
    updateStatus({State::stopped});
    if (completion) completion();
    return;
  }
  container_.stop([this, completion = std::move(completion)] {
    updateStatus({State::stopped});
    if (completion) completion();
  });
}

/// Whatever an earlier start still waits for never comes.
void DockerASRService::endFlow() {
  flow_ = std::make_unique<Lifetime>();
  isAutoInstallingDocker_ = false;
  retryTimer_.reset();
  healthCheckTimer_.reset();
  questions_.abandonAll();
  container_.cancel();
}

/// No image of an installer exists for this system: the user's own package tool does it.
void DockerASRService::promptInstallDocker() {
  if (isAutoInstallingDocker_) return;
  endFlow();
  isAutoInstallingDocker_ = true;
  print("📦 Auto-installing Docker Desktop...");
  updateStatus({State::installingDocker});
  const std::string command = tool_.installCommand();
  tell("📦 Docker is missing. Install it with: " + command);
  prompt({.title = "Docker Installation",
          .text = "Docker is needed for the local services. Install it with this command:\n\n" +
                  command + "\n\nKestrin goes on by itself once Docker runs.",
          .acceptLabel = "Copy Command",
          .declineLabel = "Later",
          .command = command});
  waitForDockerAfterAutoInstall(0);
}

void DockerASRService::waitForDockerAfterAutoInstall(int attempts) {
  if (attempts >= installRounds) {
    tell("⚠️ Docker taking too long to start");
    isAutoInstallingDocker_ = false;
    return fallbackToManualInstall();
  }
  if (attempts > 0 && attempts % 5 == 0) {
    tell("⏳ Waiting for Docker Desktop to initialize... (" + std::to_string(attempts * 2) + "s)");
  }
  const auto again = [this, attempts] {
    afterPause([this, attempts] { waitForDockerAfterAutoInstall(attempts + 1); });
  };
  if (!isDockerInstalled()) return again();
  askDaemon([this, again](const CommandOutcome& outcome) {
    if (!outcome.succeeded()) return again();
    tell("✅ Docker Desktop is ready!");
    isAutoInstallingDocker_ = false;
    startService(statusCallback_);
  });
}

void DockerASRService::fallbackToManualInstall() {
  prompt({.title = "Docker Installation",
          .text = "Automatic installation couldn't complete. Please download Docker Desktop "
                  "manually and restart Kestrin.",
          .acceptLabel = "Download Docker",
          .declineLabel = "Later",
          .accept = [this] { open_(dockerDownloadURL); }});
}

void DockerASRService::promptStartDocker(const std::string& reason) {
  if (reason.find("permission denied") != std::string::npos) {
    const std::string command = "sudo usermod -aG docker \"$USER\"";
    return prompt({.title = "Start Docker Desktop",
                   .text = "Docker runs, but your account may not use it. Run this command, then "
                           "log out and in again:\n\n" +
                           command,
                   .acceptLabel = "Copy Command",
                   .declineLabel = "Later",
                   .command = command,
                   .accept = [this] { openDocker({}); }});
  }
  const auto start = tool_.startCommand();
  if (!start.words.empty()) {
    return prompt({.title = "Start Docker Desktop",
                   .text = "Docker Desktop needs to be running for speech recognition.\n\nPlease "
                           "start Docker Desktop and wait for the whale icon to appear in your "
                           "menu bar.",
                   .acceptLabel = "Open Docker",
                   .declineLabel = "Later",
                   .accept = [this, start] { openDocker(start); }});
  }
  prompt({.title = "Start Docker",
          .text = "Docker needs to be running for speech recognition.\n\nPlease start it with "
                  "this command:\n\n" +
                  start.text,
          .acceptLabel = "Copy Command",
          .declineLabel = "Later",
          .command = start.text,
          .accept = [this, start] { openDocker(start); }});
}

void DockerASRService::openDocker(const DockerTool::StartCommand& command) {
  updateStatus({State::dockerStopped});
  if (!command.words.empty()) {
    questions_.run({.program = command.words.front(),
                    .arguments = {command.words.begin() + 1, command.words.end()},
                    .deadline = openDeadline},
                   [this](const CommandOutcome& outcome) {
                     if (!outcome.succeeded()) print("⚠️ " + text::trim(outcome.errorText));
                   });
  }
  waitForDockerDaemon(0);
}

void DockerASRService::waitForDockerDaemon(int attempts) {
  if (attempts >= daemonRounds) {
    return print("⚠️ Docker daemon not ready after 2 minutes");
  }
  askDaemon([this, attempts](const CommandOutcome& outcome) {
    if (outcome.succeeded()) {
      print("✅ Docker daemon is now running");
      return startService(statusCallback_);
    }
    afterPause([this, attempts] { waitForDockerDaemon(attempts + 1); });
  });
}

/// A failure is only told: bringing the container up again is left to a new start.
void DockerASRService::startHealthCheck() {
  healthCheckTimer_ = dispatch_.every(dispatch_.mainQueue(), healthInterval, flow_->guard([this] {
    health_.check(flow_->guard([this](bool healthy) {
      if (healthy) return;
      print("⚠️ ASR service health check failed");
      updateStatus({State::stopped});
    }));
  }));
}

void DockerASRService::ensureLocalLLMModelPresent(DockerModels::Completion completion) {
  models_.ensureLocalLLMModelPresent(std::move(completion));
}

void DockerASRService::downloadLocalLLMModel(DockerModels::Completion completion) {
  models_.downloadLocalLLMModel(lifetime_.guard([this](const std::string& line) { tell(line); }),
                                std::move(completion));
}

void DockerASRService::askDaemon(std::function<void(const CommandOutcome&)> completion) {
  questions_.run({.program = tool_.dockerPath(),
                  .arguments = docker::daemonCheck(),
                  .deadline = daemonDeadline},
                 flow_->guard(std::move(completion)));
}

void DockerASRService::afterPause(std::function<void()> job) {
  retryTimer_ = dispatch_.after(dispatch_.mainQueue(), roundPause, flow_->guard(std::move(job)));
}

void DockerASRService::prompt(ServicePrompt prompt) {
  // A button of a window that stayed open counts once, and only while its question still stands.
  prompt.accept = flow_->guard([accept = std::make_shared<std::function<void()>>(prompt.accept)] {
    if (const auto once = std::exchange(*accept, nullptr)) once();
  });
  if (onPrompt) onPrompt(prompt);
}

void DockerASRService::tell(const std::string& line) {
  if (onLogOutput) onLogOutput(line);
}

void DockerASRService::updateStatus(DockerASRStatus status) {
  status_ = std::move(status);
  // The observer may start or stop us from within.
  const auto callback = statusCallback_;
  if (callback) callback(status_);
}

}  // namespace kestrin
