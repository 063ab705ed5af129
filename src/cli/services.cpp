#include <array>
#include <iostream>

#include "cli/commands.h"
#include "cli/companion_process.h"
#include "platform/linux/linux_platform.h"
#include "services/local/embedded_host.h"
#include "services/local/service_health.h"
#include "services/local/service_host.h"

namespace kestrin::cli {
namespace {

/// A companion that loads its models from a cold disk takes half of it.
constexpr std::chrono::seconds upLimit{60};
constexpr std::chrono::milliseconds upInterval{150};
/// Longer than the supervisor itself waits for a daemon that hangs.
constexpr std::chrono::minutes daemonLimit{20};
constexpr std::chrono::seconds probeTimeout{5};

void warn(const std::string& line) { std::cerr << "kestrin: " << line << std::endl; }

std::string_view nameOf(ServiceHostKind kind) {
  switch (kind) {
    case ServiceHostKind::companion:
      return "companion";
    case ServiceHostKind::container:
      return "container";
    case ServiceHostKind::external:
      break;
  }
  return "external";
}

/// What the subcommands share. `run` serves the main queue until `quit`.
struct Terminal {
  LinuxPlatform backends{warn};
  Platform& platform = backends.platform();
  const Endpoints endpoints = Endpoints::fromEnvironment();
  const ServiceHostKind kind = chosenServiceHost(platform.settings, endpoints);
  Logger logger{platform.dispatch, platform.notifications};

  ~Terminal() { backends.endJobs(); }
  /// Whether recogniser and agent answer now.
  bool answers() {
    ServiceHealth health(platform.dispatch, platform.http, endpoints);
    health.check([this](bool up) { quit(up ? done : failed); });
    return run() == done;
  }
  int run() { return backends.mainLoop().run(); }
  void quit(int status) { backends.mainLoop().quit(status); }
};

int refuseExternal() {
  warn("The services are not run from here (pref_serviceHost, or addresses of another machine)");
  return failed;
}

/// Asks until recogniser and agent answer, or until `giveUp` says why they will not.
class Waiting {
 public:
  explicit Waiting(Terminal& terminal)
      : terminal_(terminal),
        health_(terminal.platform.dispatch, terminal.platform.http, terminal.endpoints),
        began_(terminal.platform.dispatch.clock().steadyNow()) {}

  void ask(CompanionProcess& companion) {
    health_.check([this, &companion](bool up) {
      // What answers may be another's: our child counts only while it lives.
      if (const auto code = companion.exitCode()) {
        warn("The companion ended with status " + std::to_string(*code) + "; see " +
             companion.logFile());
        return terminal_.quit(failed);
      }
      if (up) return terminal_.quit(done);
      if (terminal_.platform.dispatch.clock().steadyNow() - began_ > upLimit) {
        warn("The companion does not answer; see " + companion.logFile());
        return terminal_.quit(failed);
      }
      timer_ =
          terminal_.platform.dispatch.after(terminal_.platform.dispatch.mainQueue(), upInterval,
                                            [this, &companion] { ask(companion); });
    });
  }

 private:
  Terminal& terminal_;
  ServiceHealth health_;
  const SteadyTime began_;
  TimerHandle timer_;
};

int companionUp(Terminal& terminal) {
  CompanionProcess companion(terminal.platform.files);
  if (!companion.pid() && terminal.answers()) {
    warn("The services answer already: the application or somebody else runs them");
    return failed;
  }
  const auto started =
      companion.start(siblingProgram("kestrin-companion"),
                      EmbeddedHost::arguments(terminal.endpoints, terminal.platform.settings));
  if (!started) {
    warn(started.error().description);
    return failed;
  }
  Waiting waiting(terminal);
  waiting.ask(companion);
  const int status = terminal.run();
  if (status == done) {
    std::cout << "The companion runs (process " << *started << ")" << std::endl;
  } else if (companion.pid()) {
    if (const auto ended = companion.end(); !ended) warn(ended.error().description);
  }
  return status;
}

int containerUp(Terminal& terminal) {
  const auto host = makeServiceHost(terminal.platform, terminal.logger, terminal.endpoints, "");
  TimerHandle limit;
  using State = ServiceHostStatus::State;
  ServiceHostEvents events{
      .onStatus =
          [&](const ServiceHostStatus& status) {
            if (status.state != State::needsUser) limit.reset();
            if (status.state == State::running) terminal.quit(done);
            if (status.state != State::failed) return;
            warn(status.text);
            terminal.quit(failed);
          },
      .onProgress = [](const std::string& line) { std::cerr << line << std::endl; },
      .onPrompt =
          [&](const ServicePrompt& prompt) {
            if (prompt.command.empty()) {
              limit = terminal.platform.dispatch.after(terminal.platform.dispatch.mainQueue(),
                                                       daemonLimit, [&terminal] {
                                                         warn("Docker does not answer");
                                                         terminal.quit(failed);
                                                       });
              return prompt.accept();
            }
            warn(prompt.text);
            terminal.quit(failed);
          }};
  terminal.platform.dispatch.mainQueue()->post([&] { host->start(events); });
  const int status = terminal.run();
  if (status == done) std::cout << "The container runs" << std::endl;
  return status;
}

struct Service {
  const char* name;
  std::string url;
  bool up = false;
};

}  // namespace

int servicesUp() {
  Terminal terminal;
  switch (terminal.kind) {
    case ServiceHostKind::companion:
      return companionUp(terminal);
    case ServiceHostKind::container:
      return containerUp(terminal);
    case ServiceHostKind::external:
      break;
  }
  return refuseExternal();
}

int servicesDown() {
  Terminal terminal;
  if (terminal.kind == ServiceHostKind::external) return refuseExternal();
  if (terminal.kind == ServiceHostKind::companion) {
    const auto ended = CompanionProcess(terminal.platform.files).end();
    if (!ended) warn(ended.error().description);
    return ended ? done : failed;
  }
  const auto host = makeServiceHost(terminal.platform, terminal.logger, terminal.endpoints, "");
  terminal.platform.dispatch.mainQueue()->post(
      [&] { host->stop([&terminal] { terminal.quit(done); }); });
  terminal.run();
  if (!terminal.answers()) return done;
  warn("The services still answer: the container was not stopped, or is not what runs them");
  return failed;
}

int servicesStatus(bool json) {
  Terminal terminal;
  std::array<Service, 4> services{{{"asr", terminal.endpoints.asr + "/"},
                                   {"llm", terminal.endpoints.llm + "/health"},
                                   {"agent", terminal.endpoints.agent + "/health"},
                                   {"backend", terminal.endpoints.backend + "/"}}};
  const auto session = terminal.platform.http.makeSession(
      {.requestTimeout = probeTimeout, .resourceTimeout = probeTimeout});
  size_t left = services.size();
  for (Service& service : services) {
    session->data({.url = service.url}, [&](const Result<HttpResponse>& response) {
      service.up = response && response->status == 200;
      if (--left == 0) terminal.quit(done);
    });
  }
  terminal.run();
  const auto pid = CompanionProcess(terminal.platform.files).pid();
  if (json) {
    auto line = Json::object({{"host", nameOf(terminal.kind)}});
    if (pid) line.set("pid", *pid);
    for (const Service& service : services) line.set(service.name, service.up);
    std::cout << line.dump() << std::endl;
    return done;
  }
  std::cout << "host: " << nameOf(terminal.kind);
  if (pid) std::cout << " (process " << *pid << ")";
  std::cout << "\n";
  for (const Service& service : services) {
    std::cout << service.name << ": " << (service.up ? "up" : "down") << "\n";
  }
  return done;
}

}  // namespace kestrin::cli
