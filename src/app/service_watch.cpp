#include "app/service_watch.h"

#include <algorithm>
#include <utility>

#include "platform/dispatch/background.h"

namespace kestrin {
namespace {

/// What is behind a status of this kind is not the service, or cannot work.
constexpr int firstServerFailure = 500;

std::string failureOf(const Result<HttpResponse>& answer) {
  if (!answer) {
    const std::string& why = answer.error().description;
    return why.empty() ? "no answer" : why;
  }
  return answer->status < firstServerFailure ? "" : "status " + std::to_string(answer->status);
}

}  // namespace

ServiceWatch::ServiceWatch(Dispatch& dispatch, Http& http, const Endpoints& endpoints)
    : dispatch_(dispatch),
      session_(http.makeSession({.requestTimeout = probeTimeout, .resourceTimeout = probeTimeout})),
      states_{
          {Service::recogniser, "The speech recogniser", endpoints.asr, "/", ""},
          {Service::agent, "The agent", endpoints.agent, "/health", ""},
          {Service::records, "The service that keeps the records", endpoints.backend, "/", ""}} {}

void ServiceWatch::check() {
  if (isChecking()) return;
  asked_ = states_.size();
  for (State& state : states_) ask(state, state.failure.empty());
  changed();
}

void ServiceWatch::ask(State& state, bool mayMiss) {
  const std::function<void(const Result<HttpResponse>&)> take =
      [this, &state, mayMiss](const Result<HttpResponse>& answer) {
        const std::string failure = failureOf(answer);
        if (mayMiss && !failure.empty()) {
          ask(state, false);
          return;
        }
        state.failure = failure;
        --asked_;
        changed();
      };
  session_->data({.url = state.address + state.probe, .timeout = probeTimeout},
                 onMain(dispatch_, lifetime_, take));
}

bool ServiceWatch::isDown(Service service) const {
  return std::any_of(states_.begin(), states_.end(), [service](const State& state) {
    return state.service == service && !state.failure.empty();
  });
}

bool ServiceWatch::isAnyDown(const Services& needed) const {
  return std::any_of(needed.begin(), needed.end(),
                     [this](Service service) { return isDown(service); });
}

std::string ServiceWatch::text(const Services& needed) const {
  std::string text;
  for (const State& state : states_) {
    const bool wanted = std::find(needed.begin(), needed.end(), state.service) != needed.end();
    if (!wanted || state.failure.empty()) continue;
    text += (text.empty() ? "" : "\n") + std::string(state.name) + " (" + state.address +
            ") does not answer: " + state.failure;
  }
  return text;
}

}  // namespace kestrin
