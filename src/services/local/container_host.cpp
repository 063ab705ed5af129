#include "services/local/container_host.h"

#include <utility>

namespace kestrin {

ContainerHost::ContainerHost(Platform& platform, Logger& logger, const Endpoints& endpoints)
    : service_(platform.dispatch, platform.http, platform.processes, platform.files, logger,
               endpoints, [&platform, &logger](const std::string& address) {
                 platform.dispatch.globalQueue()->post([&platform, &logger, address] {
                   const auto opened = platform.workspace.open(address);
                   if (!opened) logger.print("❌ " + opened.error().description);
                 });
               }) {}

void ContainerHost::start(ServiceHostEvents events) {
  service_.onLogOutput = std::move(events.onProgress);
  service_.onPrompt = std::move(events.onPrompt);
  service_.startService([onStatus = std::move(events.onStatus)](const DockerASRStatus& status) {
    if (onStatus) onStatus(status.hostStatus());
  });
}

void ContainerHost::stop(std::function<void()> completion) {
  service_.stopService(std::move(completion));
}

}  // namespace kestrin
