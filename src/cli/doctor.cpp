#include <iostream>

#include "app/hold_key.h"
#include "cli/commands.h"
#include "cli/examination.h"
#include "platform/linux/layer_surface.h"
#include "platform/linux/linux_platform.h"

namespace kestrin::cli {
namespace {

/// "X11" or "Wayland", and what the overlay lacks there.
struct Display {
  std::string name;
  std::string overlayLoss;
};

Display displayOf(Platform& platform) {
  switch (displaySession()) {
    case DisplaySession::x11:
      return {"X11", ""};
    case DisplaySession::none:
      return {};
    case DisplaySession::wayland:
      break;
  }
  const auto layers = LayerSurface::offered(std::chrono::seconds(2));
  if (layers) return {"Wayland", ""};
  // XWayland may be there all the same.
  const bool answers = layers.error().code == LayerSurface::noLayers;
  return {answers || platform.workspace.screenSize() ? "Wayland" : "",
          LayerSurface::loss(layers.error())};
}

}  // namespace

Doctor::Options examinationOptions(Platform& platform) {
  const bool mayTry = displaySession() != DisplaySession::wayland;
  const auto display = displayOf(platform);
  return {.endpoints = Endpoints::fromEnvironment(),
          .holdKey = chosenHoldKey(platform.settings, platform.keyMonitor),
          .display = display.name,
          .overlayLoss = display.overlayLoss,
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
