#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "platform/dispatch/dispatch.h"
#include "platform/http.h"
#include "platform/lifetime.h"
#include "platform/processes.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// Runs the companion (recogniser, agent and the rest in one process) as a supervised child:
/// started when nothing answers at the addresses yet, started again with growing pauses when it
/// dies, ended with the application. Main queue only.
class EmbeddedHost {
 public:
  static constexpr std::chrono::milliseconds firstPause{500};
  static constexpr std::chrono::seconds longestPause{30};
  /// A child that lived this long was healthy: the pauses begin small again.
  static constexpr std::chrono::seconds healthyAfter{60};
  static constexpr std::chrono::milliseconds probeInterval{150};
  static constexpr std::chrono::seconds probeLimit{60};

  /// `program`: path or name of the companion.
  EmbeddedHost(Dispatch& dispatch, Http& http, Processes& processes, Logger& logger,
               const Endpoints& endpoints, std::string program);
  ~EmbeddedHost();

  /// Only a recogniser and an agent of this machine can be started here.
  static bool canServe(const Endpoints& endpoints);

  /// `onUp` runs once, when recogniser and agent answer, or when waiting for that makes no more
  /// sense (false).
  void start(std::function<void(bool)> onUp);
  void stop();
  bool isRunning() const { return child_ != nullptr; }

 private:
  std::vector<std::string> arguments() const;
  void probe(std::function<void(bool)> onAnswer);
  void spawn();
  void waitUntilUp();
  void childEnded(int exitCode);
  void finishStart(bool up);

  Dispatch& dispatch_;
  Processes& processes_;
  Logger& logger_;
  const Endpoints endpoints_;
  const std::string program_;
  std::shared_ptr<HttpSession> session_;
  ChildProcessRef child_;
  SteadyTime startedAt_;
  SteadyTime waitingSince_;
  Duration pause_ = firstPause;
  bool stopped_ = false;
  std::function<void(bool)> onUp_;
  TimerHandle restartTimer_;
  TimerHandle probeTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
