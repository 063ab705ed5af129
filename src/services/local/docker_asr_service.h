#pragma once

#include <functional>
#include <memory>
#include <string>

#include "services/local/docker_container.h"
#include "services/local/docker_models.h"
#include "services/local/docker_status.h"
#include "services/local/docker_tool.h"
#include "services/local/service_health.h"

namespace kestrin {

/// Brings the unified container up through the command-line tool and keeps watch on it: finds the
/// tool (or says how to install it), waits for the daemon, leaves image and container to
/// `DockerContainer`, and checks the services every 30 seconds from then on. Main queue only;
/// completions and callbacks arrive there.
class DockerASRService {
 public:
  static constexpr const char* dockerDownloadURL =
      "https://docs.docker.com/get-started/get-docker/";
  static constexpr std::chrono::seconds roundPause{2};
  /// Rounds of waiting for an installation, and for a daemon that was started.
  static constexpr int installRounds = 91;
  static constexpr int daemonRounds = 61;
  static constexpr std::chrono::seconds healthInterval{30};

  /// `open` opens an address in the user's browser.
  DockerASRService(Dispatch& dispatch, Http& http, Processes& processes, Files& files,
                   Logger& logger, const Endpoints& endpoints,
                   std::function<void(const std::string&)> open,
                   std::vector<std::string> toolPaths = DockerTool::usualPaths());

  bool isDockerInstalled() const { return tool_.isInstalled(); }
  void checkDockerDaemon(std::function<void(bool)> completion);
  void checkImageExists(std::function<void(bool)> completion);
  /// Runs the start-up sequence; after a start or stop that is under way, from its beginning.
  void startService(std::function<void(DockerASRStatus)> onStatusChange);
  /// Ends the watch and stops the container, after a command that is changing it just now.
  void stopService(std::function<void()> completion = {});
  void checkServiceHealth(std::function<void(bool)> completion) { health_.check(completion); }
  void ensureLocalLLMModelPresent(DockerModels::Completion completion);
  void downloadLocalLLMModel(DockerModels::Completion completion);

  const DockerASRStatus& status() const { return status_; }
  bool isAutoInstallingDocker() const { return isAutoInstallingDocker_; }

  /// Progress lines for the user.
  std::function<void(const std::string&)> onLogOutput;
  std::function<void(const ServicePrompt&)> onPrompt;

 private:
  DockerContainer::Observer observer();
  void beginStart();
  void promptInstallDocker();
  void waitForDockerAfterAutoInstall(int attempts);
  void fallbackToManualInstall();
  void promptStartDocker(const std::string& reason);
  void openDocker(const DockerTool::StartCommand& command);
  void waitForDockerDaemon(int attempts);
  void startHealthCheck();
  void askDaemon(std::function<void(const CommandOutcome&)> completion);
  void afterPause(std::function<void()> job);
  void endFlow();
  void prompt(ServicePrompt prompt);
  void tell(const std::string& line);
  void print(const std::string& line) { logger_.print(line); }
  void updateStatus(DockerASRStatus status);

  Dispatch& dispatch_;
  Logger& logger_;
  const std::function<void(const std::string&)> open_;
  const DockerTool tool_;
  DockerASRStatus status_;
  std::function<void(DockerASRStatus)> statusCallback_;
  bool isAutoInstallingDocker_ = false;
  TimerHandle retryTimer_;
  TimerHandle healthCheckTimer_;
  ServiceHealth health_;
  CommandRunner questions_;  ///< of the start-up sequence
  CommandRunner requests_;   ///< of other callers
  DockerModels models_;
  DockerContainer container_;
  /// Guards what belongs to the current start.
  std::unique_ptr<Lifetime> flow_ = std::make_unique<Lifetime>();
  Lifetime lifetime_;
};

}  // namespace kestrin
