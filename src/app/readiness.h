#pragma once

#include <functional>
#include <memory>
#include <string>

#include "app/status_line.h"
#include "diagnostics/logger.h"
#include "platform/dispatch/dispatch.h"
#include "platform/http.h"
#include "platform/lifetime.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// Which services answered last.
struct ServiceStates {
  bool asr = false, llm = false, agent = false, backend = false;
  bool operator==(const ServiceStates&) const = default;
};

/// Finds out when dictation can work: probes the services until recogniser and agent answer, with
/// growing waits, and gives up after ten retries. Main queue only.
class Readiness {
 public:
  static constexpr int maxRetries = 10;

  Readiness(Dispatch& dispatch, Http& http, Logger& logger, const Endpoints& endpoints);

  /// `onDone` runs once: true when all that dictation needs answered.
  void start(std::function<void(bool)> onDone);
  const ServiceStates& services() const { return services_; }

  /// One probe of all four, later; `onAnswer` on the main queue.
  void probe(std::function<void()> onAnswer);

  /// Progress for the status line.
  std::function<void(const StatusLine&)> onStatus;
  std::function<void()> onServicesChange;

 private:
  void attempt();
  void show(const std::string& text, StatusColor color);

  Dispatch& dispatch_;
  Logger& logger_;
  const Endpoints endpoints_;
  std::shared_ptr<HttpSession> session_;
  ServiceStates services_;
  int retries_ = 0;
  std::function<void(bool)> onDone_;
  Lifetime lifetime_;
};

}  // namespace kestrin
