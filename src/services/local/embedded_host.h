#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/lifetime.h"
#include "platform/settings.h"
#include "services/local/service_health.h"
#include "services/local/service_host.h"

namespace kestrin {

/// Runs the companion (recogniser, agent and the rest in one process) as a supervised child:
/// started when nothing answers at the addresses yet, asked every 30 s, started again with growing
/// pauses when it dies or hangs, ended with the application. Main queue only.
class EmbeddedHost final : public ServiceHost {
 public:
  static constexpr std::chrono::milliseconds firstPause{500};
  static constexpr std::chrono::seconds longestPause{30};
  /// A child that lived this long was healthy: the pauses begin small again.
  static constexpr std::chrono::seconds healthyAfter{60};
  static constexpr std::chrono::milliseconds probeInterval{150};
  /// A start that takes longer has failed; a child this young is not judged for its silence.
  static constexpr std::chrono::seconds probeLimit{60};
  static constexpr std::chrono::seconds watchInterval{30};
  /// One silence may be a machine that just woke up; this many in a row are a hang.
  static constexpr int silencesOfAHang = 2;
  /// How long a child that was told to end may take.
  static constexpr std::chrono::seconds endGrace{3};

  /// `program`: path or name of the companion.
  EmbeddedHost(Dispatch& dispatch, Http& http, Processes& processes, Logger& logger,
               const SettingsStore& settings, const Endpoints& endpoints, std::string program);
  ~EmbeddedHost() override;

  /// Only a recogniser and an agent of this machine can be started here.
  static bool canServe(const Endpoints& endpoints);
  /// The companion's arguments: it listens where we shall ask, leaves out what is elsewhere, and
  /// asks the weather and the news where the settings say.
  static std::vector<std::string> arguments(const Endpoints& endpoints,
                                            const SettingsStore& settings);

  void start(ServiceHostEvents events) override;
  void stop(std::function<void()> completion = {}) override;
  ServiceHostStatus status() const override { return status_; }

 private:
  void restart();
  void spawn();
  void waitUntilUp();
  void watch();
  void watched(bool up);
  void endChild();
  void childEnded(int exitCode);
  void waitForRestart();
  void setStatus(ServiceHostStatus::State state, const std::string& text = {});

  Dispatch& dispatch_;
  Processes& processes_;
  Logger& logger_;
  const SettingsStore& settings_;
  const Endpoints endpoints_;
  const std::string program_;
  ServiceHealth health_;
  ServiceHostEvents events_;
  ServiceHostStatus status_;
  ChildProcessRef child_;
  SteadyTime startedAt_;
  SteadyTime waitingSince_;
  Duration pause_ = firstPause;
  int silences_ = 0;
  bool stopped_ = true;
  std::vector<std::function<void()>> onEnded_;
  TimerHandle restartTimer_;
  TimerHandle probeTimer_;
  TimerHandle watchTimer_;
  TimerHandle killTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
