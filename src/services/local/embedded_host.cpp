#include "services/local/embedded_host.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/text/text.h"

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

using State = ServiceHostStatus::State;

}  // namespace

bool EmbeddedHost::canServe(const Endpoints& endpoints) {
  return loopbackPort(endpoints.asr) && loopbackPort(endpoints.agent);
}

std::vector<std::string> EmbeddedHost::arguments(const Endpoints& endpoints,
                                                 const SettingsStore& settings) {
  struct Service {
    const char* name;
    const std::string& url;
    int otherwise;
  };
  std::string ports;
  std::string services;
  for (const Service& service :
       {Service{"asr", endpoints.asr, 8001}, Service{"llm", endpoints.llm, 8082},
        Service{"agent", endpoints.agent, 8765}, Service{"backend", endpoints.backend, 8780}}) {
    const auto port = loopbackPort(service.url);
    ports += (ports.empty() ? "" : ",") + std::to_string(port.value_or(service.otherwise));
    if (port) services += (services.empty() ? "" : ",") + std::string(service.name);
  }
  std::vector<std::string> all{"--ports", ports, "--services", services};
  const auto add = [&all](const char* option, const std::string& url) {
    if (isHttpUrl(url)) all.insert(all.end(), {option, url});
  };
  add("--weather-url", settings.string("pref_weatherEndpoint"));
  for (const auto& feed : text::split(settings.string("pref_newsFeeds"), " "))
    add("--news-url", feed);
  return all;
}

EmbeddedHost::EmbeddedHost(Dispatch& dispatch, Http& http, Processes& processes, Logger& logger,
                           const SettingsStore& settings, const Endpoints& endpoints,
                           std::string program)
    : dispatch_(dispatch),
      processes_(processes),
      logger_(logger),
      settings_(settings),
      endpoints_(endpoints),
      program_(std::move(program)),
      health_(dispatch, http, endpoints) {}

EmbeddedHost::~EmbeddedHost() {
  // Whoever did not wait for `stop` leaves it no time.
  if (child_) child_->kill();
}

void EmbeddedHost::start(ServiceHostEvents events) {
  events_ = std::move(events);
  stopped_ = false;
  waitingSince_ = dispatch_.clock().steadyNow();
  setStatus(State::starting, "Initializing AI models...");
  health_.check([this](bool up) {
    if (stopped_) return;
    watch();
    // A companion that somebody else runs (systemd, another session) serves us as well.
    if (up) return setStatus(State::running);
    // One that is starting, or waits for its pause to pass, is not started a second time.
    if (!child_ && !restartTimer_) spawn();
    if (status_.state == State::starting) waitUntilUp();
  });
}

void EmbeddedHost::stop(std::function<void()> completion) {
  stopped_ = true;
  restartTimer_.reset();
  probeTimer_.reset();
  watchTimer_.reset();
  setStatus(State::stopped);
  if (completion) onEnded_.push_back(std::move(completion));
  if (child_) return endChild();
  for (const auto& ended : std::exchange(onEnded_, {})) ended();
}

/// Whoever took the ports in the meantime serves us as well.
void EmbeddedHost::restart() {
  health_.check([this](bool up) {
    restartTimer_.reset();
    if (stopped_ || child_) return;
    if (up) return setStatus(State::running);
    spawn();
  });
}

void EmbeddedHost::spawn() {
  startedAt_ = dispatch_.clock().steadyNow();
  silences_ = 0;
  auto started = processes_.start(
      {.program = program_, .arguments = arguments(endpoints_, settings_)}, dispatch_.mainQueue(),
      lifetime_.guard(
          [this](const std::string& line, bool) { logger_.print("[Companion] " + line); }),
      lifetime_.guard([this](int exitCode) { childEnded(exitCode); }));
  if (started) {
    child_ = *started;
    return;
  }
  logger_.print("❌ The companion cannot be started: " + started.error().description);
  childEnded(127);
  // Waiting for its services makes no sense now; somebody may still install it.
  probeTimer_.reset();
  setStatus(State::failed, "The companion cannot be started: " + started.error().description);
}

void EmbeddedHost::waitUntilUp() {
  probeTimer_ = dispatch_.after(dispatch_.mainQueue(), probeInterval, lifetime_.guard([this] {
    health_.check([this](bool up) {
      if (stopped_ || status_.state != State::starting) return;
      if (up) return setStatus(State::running);
      if (dispatch_.clock().steadyNow() - waitingSince_ > probeLimit)
        return setStatus(State::failed, "The local services do not answer");
      waitUntilUp();
    });
  }));
}

void EmbeddedHost::watch() {
  watchTimer_ = dispatch_.every(dispatch_.mainQueue(), watchInterval, lifetime_.guard([this] {
    health_.check([this](bool up) {
      if (!stopped_) watched(up);
    });
  }));
}

void EmbeddedHost::watched(bool up) {
  if (up) {
    silences_ = 0;
    if (status_.state != State::running) setStatus(State::running);
    return;
  }
  const bool young = dispatch_.clock().steadyNow() - startedAt_ < probeLimit;
  if (restartTimer_ || (child_ && (young || ++silences_ < silencesOfAHang))) return;
  if (status_.state == State::running) waitForRestart();
  if (!child_) return spawn();
  logger_.print("⚠️ The companion does not answer, ending it");
  endChild();
}

/// Its end arrives at `childEnded`.
void EmbeddedHost::endChild() {
  child_->terminate();
  killTimer_ = dispatch_.after(dispatch_.mainQueue(), endGrace, lifetime_.guard([this] {
    if (child_) child_->kill();
  }));
}

void EmbeddedHost::childEnded(int exitCode) {
  child_.reset();
  killTimer_.reset();
  for (const auto& ended : std::exchange(onEnded_, {})) ended();
  if (stopped_) return;
  if (dispatch_.clock().steadyNow() - startedAt_ > healthyAfter) pause_ = firstPause;
  const auto seconds = std::chrono::duration<double>(pause_).count();
  logger_.print("⚠️ The companion ended (" + std::to_string(exitCode) +
                "), starting it again in " + std::to_string(seconds).substr(0, 4) + " s");
  if (status_.state == State::running) waitForRestart();
  restartTimer_ =
      dispatch_.after(dispatch_.mainQueue(), pause_, lifetime_.guard([this] { restart(); }));
  pause_ = std::min<Duration>(pause_ * 2, longestPause);
}

void EmbeddedHost::waitForRestart() {
  waitingSince_ = dispatch_.clock().steadyNow();
  setStatus(State::starting, "Restarting services...");
  waitUntilUp();
}

void EmbeddedHost::setStatus(State state, const std::string& text) {
  if (status_ == ServiceHostStatus{state, text}) return;
  status_ = {state, text};
  // The observer may start or stop us from within.
  const auto tell = events_.onStatus;
  if (tell) tell(status_);
}

}  // namespace kestrin
