#pragma once

#include <mutex>
#include <string>

#include "platform/json/json.h"
#include "services/local/connection_warmup_service.h"

namespace kestrin {

/// What `kestrin status` tells of the running application.
struct ApplicationStatus {
  bool ready = false;
  bool recording = false;
  int active = 0;
  std::string statusLine;
  std::string actionTier = "safe";
  ServiceStatus services;

  Json toJson() const {
    return Json::object({{"ready", ready},
                         {"recording", recording},
                         {"active", active},
                         {"status_line", statusLine},
                         {"action_tier", actionTier},
                         {"services", Json::object({{"asr", services.asrReady},
                                                    {"llm", services.llmReady},
                                                    {"agent", services.agentReady},
                                                    {"backend", services.backendReady}})}});
  }
};

/// The latest status, set on the main queue and read from any thread without waiting for that
/// queue.
class StatusReport {
 public:
  void set(ApplicationStatus status) {
    const std::lock_guard lock(mutex_);
    status_ = std::move(status);
  }
  ApplicationStatus get() const {
    const std::lock_guard lock(mutex_);
    return status_;
  }

 private:
  mutable std::mutex mutex_;
  ApplicationStatus status_;
};

}  // namespace kestrin
