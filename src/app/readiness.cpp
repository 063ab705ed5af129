#include "app/readiness.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kestrin {
namespace {

constexpr std::chrono::seconds probeTimeout{10};

Duration waitBeforeRetry(int retriesSoFar) {
  const double seconds = std::min((retriesSoFar + 1) * 0.5 + 2.0, 5.0);
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

Readiness::Readiness(Dispatch& dispatch, Http& http, Logger& logger, const Endpoints& endpoints)
    : dispatch_(dispatch),
      logger_(logger),
      endpoints_(endpoints),
      session_(http.makeSession({.requestTimeout = probeTimeout})) {}

void Readiness::start(std::function<void(bool)> onDone) {
  onDone_ = std::move(onDone);
  retries_ = 0;
  show("Connecting to services...", StatusColor::orange);
  attempt();
}

void Readiness::attempt() {
  probe([this] {
    if (services_.asr && services_.agent) {
      if (const auto done = std::exchange(onDone_, nullptr)) done(true);
      return;
    }
    if (retries_ >= maxRetries) {
      show("⚠️ Some services may be slow", StatusColor::orange);
      if (const auto done = std::exchange(onDone_, nullptr)) done(false);
      return;
    }
    const auto wait = waitBeforeRetry(retries_++);
    show("Waiting for services... (" + std::to_string(retries_) + "/" + std::to_string(maxRetries) +
             ")",
         StatusColor::orange);
    dispatch_.mainQueue()->postAfter(wait, lifetime_.guard([this] { attempt(); }));
  });
}

void Readiness::probe(std::function<void()> onAnswer) {
  struct Target {
    std::string url;
    bool ServiceStates::*state;
  };
  const std::array<Target, 4> targets{{
      {endpoints_.asr + "/", &ServiceStates::asr},
      {endpoints_.llm + "/health", &ServiceStates::llm},
      {endpoints_.agent + "/health", &ServiceStates::agent},
      {endpoints_.backend + "/", &ServiceStates::backend},
  }};
  auto left = std::make_shared<size_t>(targets.size());
  auto found = std::make_shared<ServiceStates>();
  std::function<void(bool ServiceStates::*, bool)> answered = lifetime_.guard(
      [this, left, found, onAnswer = std::move(onAnswer)](bool ServiceStates::*state, bool up) {
        (*found).*state = up;
        if (--*left != 0) return;
        services_ = *found;
        if (onServicesChange) onServicesChange();
        onAnswer();
      });
  for (const auto& target : targets) {
    session_->data({.url = target.url}, [main = dispatch_.mainQueue(), answered,
                                         state = target.state](Result<HttpResponse> response) {
      const bool up = response && response->status == 200;
      main->post([answered, state, up] { answered(state, up); });
    });
  }
}

void Readiness::show(const std::string& text, StatusColor color) {
  logger_.log("App", LogLevel::info, text);
  if (onStatus) onStatus({text, color});
}

}  // namespace kestrin
