#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "platform/files.h"
#include "platform/lifetime.h"
#include "services/local/command_runner.h"
#include "services/local/docker_status.h"
#include "services/local/docker_tool.h"
#include "services/local/pull_progress.h"
#include "services/local/service_health.h"

namespace kestrin {

/// Brings the container up, whatever state it is in, and takes it down. At most one command changes
/// it at a time: a stop waits for the start that is under way, because the daemon would carry out a
/// start whose tool was killed. Main queue only.
class DockerContainer {
 public:
  /// Rounds 0 to 180, two seconds apart.
  static constexpr int healthRounds = 181;
  static constexpr std::chrono::seconds roundPause{2};

  struct Observer {
    std::function<void(DockerASRStatus)> setStatus;
    std::function<void(const std::string&)> tell;
    /// Both health endpoints answered, or the container was up already.
    std::function<void()> onRunning;
  };

  DockerContainer(Dispatch& dispatch, Processes& processes, Files& files, Logger& logger,
                  const DockerTool& tool, ServiceHealth& health, Observer observer);

  /// From the container's status on, with a daemon that answers.
  void bringUp();
  /// Drops `bringUp`; a command that changes the container runs to its end.
  void cancel();
  /// Stops the container once nothing else changes it; `completion` whatever comes of it.
  void stop(std::function<void()> completion);
  /// Runs `job` once no command changes the container: at once, or later.
  void whenIdle(std::function<void()> job);

 private:
  using OnOutcome = std::function<void(const CommandOutcome&)>;

  void pullAndStartContainer();
  void pull();
  void createAndStartContainer();
  void startContainer();
  void waitForHealthy(int attempts);
  /// A question; dropped by `cancel`. Without an answer the whole attempt fails.
  void ask(std::vector<std::string> arguments, OnOutcome completion);
  /// A change: runs to its end; only the completion is dropped by `cancel`.
  void change(CommandRunner::Command command, OnOutcome completion);
  void print(const std::string& line) { logger_.print(line); }

  Dispatch& dispatch_;
  Processes& processes_;
  Files& files_;
  Logger& logger_;
  const DockerTool& tool_;
  ServiceHealth& health_;
  const Observer observer_;
  PullProgress progress_;
  bool changing_ = false;
  std::vector<std::function<void()>> whenIdle_;
  TimerHandle roundTimer_;
  CommandRunner questions_;
  CommandRunner changes_;
  /// Guards what belongs to the current `bringUp`.
  std::unique_ptr<Lifetime> flow_ = std::make_unique<Lifetime>();
  Lifetime lifetime_;
};

}  // namespace kestrin
