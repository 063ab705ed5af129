#include <iostream>

#include "app/hold_key.h"
#include "cli/commands.h"
#include "cli/examination.h"
#include "platform/linux/linux_platform.h"

namespace kestrin::cli {
namespace {

std::string displayName(DisplaySession session) {
  switch (session) {
    case DisplaySession::x11:
      return "X11";
    case DisplaySession::wayland:
      return "Wayland";
    case DisplaySession::none:
      break;
  }
  return {};
}

}  // namespace

Doctor::Options examinationOptions(Platform& platform) {
  const bool mayTry = displaySession() != DisplaySession::wayland;
  return {.endpoints = Endpoints::fromEnvironment(),
          .holdKey = chosenHoldKey(platform.settings, platform.keyMonitor),
          .display = displayName(displaySession()),
          .keyTrial = mayTry ? Doctor::KeyTrial::tries : Doctor::KeyTrial::desktopBinds,
          .companionProgram = siblingProgram("kestrin-companion")};
}

int doctor(bool json) {
  LinuxPlatform backends([](const std::string& line) { std::cerr << "kestrin: " << line << "\n"; });
  auto& platform = backends.platform();
  Logger logger(platform.dispatch, platform.notifications);
  Doctor doctor(platform, logger, examinationOptions(platform));
  std::vector<Finding> findings;
  platform.dispatch.globalQueue()->post([&] {
    findings = doctor.examine();
    backends.mainLoop().quit(Doctor::allThere(findings) ? done : failed);
  });
  const int status = backends.mainLoop().run();
  backends.endJobs();
  for (const auto& finding : findings) {
    std::cout << (json ? finding.toJson().dump() : finding.line()) << "\n";
  }
  return status;
}

}  // namespace kestrin::cli
