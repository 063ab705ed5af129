#pragma once

#include "services/local/docker_asr_service.h"
#include "services/local/service_host.h"

namespace kestrin {

/// The unified container as a host of the local services. A container outlives us unless `stop` was
/// called: its restart policy is its own.
class ContainerHost final : public ServiceHost {
 public:
  /// Nobody who quits waits longer; a stop that is under way goes on without us.
  static constexpr std::chrono::seconds stopLimit{20};

  ContainerHost(Platform& platform, Logger& logger, const Endpoints& endpoints);

  void start(ServiceHostEvents events) override;
  void stop(std::function<void()> completion = {}) override;
  ServiceHostStatus status() const override { return service_.status().hostStatus(); }

  /// For the views that check and download the local language model.
  DockerASRService& service() { return service_; }

 private:
  Dispatch& dispatch_;
  DockerASRService service_;
  TimerHandle stopTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
