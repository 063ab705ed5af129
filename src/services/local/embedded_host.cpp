#include "services/local/embedded_host.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>
#include <utility>

namespace kestrin {
namespace {

/// The port of an address on this machine.
std::optional<int> loopbackPort(const std::string& url) {
  for (const std::string_view host : {"http://127.0.0.1:", "http://localhost:"}) {
    if (!url.starts_with(host)) continue;
    int port = 0;
    const char* end = url.data() + url.size();
    const auto parsed = std::from_chars(url.data() + host.size(), end, port);
    if (parsed.ec == std::errc() && (parsed.ptr == end || *parsed.ptr == '/')) return port;
  }
  return std::nullopt;
}

}  // namespace

bool EmbeddedHost::canServe(const Endpoints& endpoints) {
  return loopbackPort(endpoints.asr) && loopbackPort(endpoints.agent);
}

/// The companion listens where we shall ask, and leaves out what is elsewhere.
std::vector<std::string> EmbeddedHost::arguments() const {
  struct Service {
    const char* name;
    const std::string& url;
    int otherwise;
  };
  std::string ports;
  std::string services;
  for (const Service& service :
       {Service{"asr", endpoints_.asr, 8001}, Service{"llm", endpoints_.llm, 8082},
        Service{"agent", endpoints_.agent, 8765}, Service{"backend", endpoints_.backend, 8780}}) {
    const auto port = loopbackPort(service.url);
    ports += (ports.empty() ? "" : ",") + std::to_string(port.value_or(service.otherwise));
    if (port) services += (services.empty() ? "" : ",") + std::string(service.name);
  }
  return {"--ports", ports, "--services", services};
}

EmbeddedHost::EmbeddedHost(Dispatch& dispatch, Http& http, Processes& processes, Logger& logger,
                           const Endpoints& endpoints, std::string program)
    : dispatch_(dispatch),
      processes_(processes),
      logger_(logger),
      endpoints_(endpoints),
      program_(std::move(program)),
      session_(http.makeSession({.requestTimeout = std::chrono::seconds(2)})) {}

EmbeddedHost::~EmbeddedHost() { stop(); }

void EmbeddedHost::start(std::function<void(bool)> onUp) {
  stopped_ = false;
  onUp_ = std::move(onUp);
  waitingSince_ = dispatch_.clock().steadyNow();
  probe([this](bool up) {
    if (stopped_) return;
    // A companion that somebody else runs (systemd, another session) serves us as well.
    if (up) return finishStart(true);
    spawn();
    if (onUp_) waitUntilUp();
  });
}

void EmbeddedHost::stop() {
  stopped_ = true;
  onUp_ = nullptr;
  restartTimer_.reset();
  probeTimer_.reset();
  if (child_) child_->terminate();
  child_.reset();
}

/// Asks recogniser and agent; answers on the main queue whether both are there.
void EmbeddedHost::probe(std::function<void(bool)> onAnswer) {
  struct Both {
    int left = 2;
    bool up = true;
  };
  auto both = std::make_shared<Both>();
  std::function<void(bool)> answered =
      lifetime_.guard([both, onAnswer = std::move(onAnswer)](bool up) {
        both->up = both->up && up;
        if (--both->left == 0) onAnswer(both->up);
      });
  for (const auto& url : {endpoints_.asr + "/", endpoints_.agent + "/health"}) {
    session_->data({.url = url}, [main = dispatch_.mainQueue(), answered](Result<HttpResponse> r) {
      main->post([answered, up = r && r->status == 200] { answered(up); });
    });
  }
}

void EmbeddedHost::spawn() {
  if (stopped_) return;
  startedAt_ = dispatch_.clock().steadyNow();
  auto started =
      processes_.start({.program = program_, .arguments = arguments()}, dispatch_.mainQueue(),
                       lifetime_.guard([this](const std::string& line, bool) {
                         logger_.print("[Companion] " + line);
                       }),
                       lifetime_.guard([this](int exitCode) { childEnded(exitCode); }));
  if (started) {
    child_ = *started;
    return;
  }
  logger_.print("❌ The companion cannot be started: " + started.error().description);
  // Waiting for its services makes no sense now; somebody may still install it.
  probeTimer_.reset();
  finishStart(false);
  childEnded(127);
}

void EmbeddedHost::waitUntilUp() {
  probeTimer_ = dispatch_.after(dispatch_.mainQueue(), probeInterval, lifetime_.guard([this] {
    probe([this](bool up) {
      if (stopped_ || !onUp_) return;
      if (up) return finishStart(true);
      if (dispatch_.clock().steadyNow() - waitingSince_ > probeLimit) return finishStart(false);
      waitUntilUp();
    });
  }));
}

void EmbeddedHost::childEnded(int exitCode) {
  child_.reset();
  if (stopped_) return;
  if (dispatch_.clock().steadyNow() - startedAt_ > healthyAfter) pause_ = firstPause;
  const auto seconds = std::chrono::duration<double>(pause_).count();
  logger_.print("⚠️ The companion ended (" + std::to_string(exitCode) +
                "), starting it again in " + std::to_string(seconds).substr(0, 4) + " s");
  restartTimer_ =
      dispatch_.after(dispatch_.mainQueue(), pause_, lifetime_.guard([this] { spawn(); }));
  pause_ = std::min<Duration>(pause_ * 2, longestPause);
}

void EmbeddedHost::finishStart(bool up) {
  const auto onUp = std::move(onUp_);
  onUp_ = nullptr;
  if (onUp) onUp(up);
}

}  // namespace kestrin
