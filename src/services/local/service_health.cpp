#include "services/local/service_health.h"

#include <utility>

namespace kestrin {

ServiceHealth::ServiceHealth(Dispatch& dispatch, Http& http, const Endpoints& endpoints)
    : dispatch_(dispatch),
      endpoints_(endpoints),
      session_(
          http.makeSession({.requestTimeout = probeTimeout, .resourceTimeout = probeTimeout})) {}

void ServiceHealth::check(std::function<void(bool)> completion) {
  checkEndpoint(endpoints_.asr + "/", [this, completion = std::move(completion)](bool up) {
    if (!up) return completion(false);
    checkEndpoint(endpoints_.agent + "/health", completion);
  });
}

void ServiceHealth::checkEndpoint(const std::string& url, std::function<void(bool)> completion) {
  const std::function<void(bool)> answered = lifetime_.guard(std::move(completion));
  session_->data(
      {.url = url}, [main = dispatch_.mainQueue(), answered](Result<HttpResponse> response) {
        main->post([answered, up = response && response->status == 200] { answered(up); });
      });
}

}  // namespace kestrin
