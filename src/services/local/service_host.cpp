#include "services/local/service_host.h"

#include <utility>

#include "services/local/container_host.h"
#include "services/local/embedded_host.h"

namespace kestrin {
namespace {

constexpr const char* serviceHostSetting = "pref_serviceHost";

/// Services that somebody else looks after: they are taken as they are.
class ExternalHost final : public ServiceHost {
 public:
  void start(ServiceHostEvents events) override {
    status_.state = ServiceHostStatus::State::running;
    if (events.onStatus) events.onStatus(status_);
  }
  void stop(std::function<void()> completion) override {
    status_.state = ServiceHostStatus::State::stopped;
    if (completion) completion();
  }
  ServiceHostStatus status() const override { return status_; }

 private:
  ServiceHostStatus status_;
};

}  // namespace

ServiceHostKind chosenServiceHost(SettingsStore& settings, const Endpoints& endpoints) {
  const std::string chosen = settings.string(serviceHostSetting, "companion");
  if (chosen == "container") return ServiceHostKind::container;
  if (chosen == "external" || !EmbeddedHost::canServe(endpoints)) return ServiceHostKind::external;
  return ServiceHostKind::companion;
}

std::unique_ptr<ServiceHost> makeServiceHost(Platform& platform, Logger& logger,
                                             const Endpoints& endpoints,
                                             const std::string& companionProgram) {
  switch (chosenServiceHost(platform.settings, endpoints)) {
    case ServiceHostKind::companion:
      return std::make_unique<EmbeddedHost>(platform.dispatch, platform.http, platform.processes,
                                            logger, platform.settings, endpoints, companionProgram);
    case ServiceHostKind::container:
      return std::make_unique<ContainerHost>(platform, logger, endpoints);
    case ServiceHostKind::external:
      break;
  }
  return std::make_unique<ExternalHost>();
}

}  // namespace kestrin
