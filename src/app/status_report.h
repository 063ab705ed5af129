#pragma once

#include <mutex>
#include <string>

#include "app/readiness.h"
#include "platform/json/json.h"

namespace kestrin {

/// What `kestrin status` tells of the running application.
struct ApplicationStatus {
  bool ready = false;
  bool recording = false;
  int active = 0;
  std::string statusLine;
  std::string actionTier = "safe";
  ServiceStates services;

  Json toJson() const {
    return Json::object({{"ready", ready},
                         {"recording", recording},
                         {"active", active},
                         {"status_line", statusLine},
                         {"action_tier", actionTier},
                         {"services", Json::object({{"asr", services.asr},
                                                    {"llm", services.llm},
                                                    {"agent", services.agent},
                                                    {"backend", services.backend}})}});
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
