#include <array>
#include <iostream>

#include "app/status_report.h"
#include "cli/commands.h"
#include "platform/linux/control_bus.h"

namespace kestrin::cli {
namespace {

struct Named {
  const char* name;
  ControlCommand command;
};
constexpr std::array<Named, 9> commands{{{"press", ControlCommand::press},
                                         {"release", ControlCommand::release},
                                         {"toggle", ControlCommand::toggle},
                                         {"cancel", ControlCommand::cancel},
                                         {"show", ControlCommand::show},
                                         {"quit", ControlCommand::quit},
                                         {"retry", ControlCommand::retry},
                                         {"elevate", ControlCommand::elevate},
                                         {"lower", ControlCommand::lower}}};

}  // namespace

int control(const std::string& command) {
  for (const auto& [name, value] : commands) {
    if (command != name) continue;
    const auto sent = LinuxControlBus().send(value);
    if (sent) return done;
    std::cerr << "kestrin: " << sent.error().description << "\n";
    return failed;
  }
  return wrongUsage;
}

int status(bool json) {
  const auto answer = LinuxControlBus().status();
  if (!answer && answer.error().code != controlNotRunning && answer.error().code != controlNoBus) {
    std::cerr << "kestrin: " << answer.error().description << "\n";
    return failed;
  }
  // Nobody there is a status as well: not ready.
  const auto status =
      answer ? Json::parse(*answer).value_or(Json::object()) : ApplicationStatus{}.toJson();
  if (json) {
    std::cout << status.dump() << "\n";
    return done;
  }
  if (!answer) {
    std::cout << "not running\n";
    return done;
  }
  std::cout << status.stringAt("status_line", "") << "\n";
  std::cout << (status.boolAt("ready").value_or(false) ? "ready" : "starting");
  if (status.boolAt("recording").value_or(false)) std::cout << ", recording";
  std::cout << ", " << status.intAt("active").value_or(0) << " active\n";
  if (status.stringAt("action_tier") == "elevated") {
    std::cout << "actions may press keys and run scripts (kestrin lower)\n";
  }
  if (const auto* services = status.objectAt("services")) {
    for (const auto& [name, up] : services->members()) {
      std::cout << name << ": " << (up.asBool().value_or(false) ? "up" : "down") << "\n";
    }
  }
  return done;
}

}  // namespace kestrin::cli
