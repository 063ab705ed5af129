#include "services/local/container_host.h"

#include <utility>

namespace kestrin {

ContainerHost::ContainerHost(Platform& platform, Logger& logger, const Endpoints& endpoints)
    : dispatch_(platform.dispatch),
      service_(platform.dispatch, platform.http, platform.processes, platform.files, logger,
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
  const auto once = std::make_shared<std::function<void()>>(std::move(completion));
  const std::function<void()> finish = lifetime_.guard([this, once] {
    stopTimer_.reset();
    if (const auto waiting = std::exchange(*once, nullptr)) waiting();
  });
  stopTimer_ = dispatch_.after(dispatch_.mainQueue(), stopLimit, finish);
  service_.stopService(finish);
}

}  // namespace kestrin
