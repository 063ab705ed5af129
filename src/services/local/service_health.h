#pragma once

#include <functional>
#include <memory>

#include "platform/dispatch/dispatch.h"
#include "platform/http.h"
#include "platform/lifetime.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// The health of the local services: the recogniser's root and then the agent's /health must both
/// answer with status 200. Main queue only.
class ServiceHealth {
 public:
  static constexpr std::chrono::seconds probeTimeout{5};

  ServiceHealth(Dispatch& dispatch, Http& http, const Endpoints& endpoints);

  /// `completion` on the main queue; never later than twice the time-out.
  void check(std::function<void(bool)> completion);

 private:
  /// `completion` on the main queue.
  void checkEndpoint(const std::string& url, std::function<void(bool)> completion);

  Dispatch& dispatch_;
  const Endpoints endpoints_;
  std::shared_ptr<HttpSession> session_;
  Lifetime lifetime_;
};

}  // namespace kestrin
