#include "app/start_sequence.h"

#include <algorithm>
#include <utility>

#include "dictation/sse_client.h"

namespace kestrin {
namespace {

using State = ServiceHostStatus::State;

/// 2.5 s at first, half a second more each time, 5 s at most.
Duration waitBeforeRetry(int retriesSoFar) {
  const double seconds = std::min((retriesSoFar + 1) * 0.5 + 2.0, 5.0);
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

StartSequence::StartSequence(Parts parts)
    : parts_(std::move(parts)),
      dispatch_(parts_.platform.dispatch),
      logger_(parts_.core.logger),
      endpoints_(parts_.core.endpoints),
      warmup_(dispatch_, parts_.platform.http, parts_.platform.settings, logger_,
              parts_.core.geminiKey, endpoints_),
      sharedSession_(parts_.platform.http.makeSession({.requestTimeout = prewarmTimeout})) {
  warmup_.idToken = [&core = parts_.core] { return core.authToken(); };
  warmup_.onStatusChange = lifetime_.guard(
      [this](const ServiceStatus& status) { showServices(status, ServiceState::pending); });
}

void StartSequence::startApp(bool accessibilityTrusted) {
  if (terminated_) return;
  loadingOverlay_.show();
  showServices({}, ServiceState::pending);
  show("Initializing services...");
  parts_.recorder.prepareEngine();
  if (!accessibilityTrusted) show("⚠️ Accessibility required");
  parts_.delegate.setupGlobalEventTap();
  startDockerASRWithWarmup();
  SSEClient::prewarm(*sharedSession_, endpoints_.agent + "/process/stream");
  SSEClient::prewarm(*sharedSession_, endpoints_.asr + "/");
  if (hooks.startPresence) hooks.startPresence();
  if (hooks.setupGlobalIncomingCallHandler) hooks.setupGlobalIncomingCallHandler();
  if (hooks.bringToFront) hooks.bringToFront();
}

void StartSequence::startDockerASRWithWarmup() {
  if (terminated_) return;
  // What the setting says now counts: a restart may find another host chosen.
  const auto kind = chosenServiceHost(parts_.platform.settings, endpoints_);
  if (kind != ServiceHostKind::external) show("Starting Kestrin Intelligence...");
  showServices({}, ServiceState::pending);
  if (!host_ || kind != hostKind_) {
    hostKind_ = kind;
    host_ = makeServiceHost(parts_.platform, logger_, endpoints_, parts_.companionProgram);
  }
  host_->start({.onStatus = lifetime_.guard(
                    [this](const ServiceHostStatus& status) { hostStatusChanged(status); }),
                .onProgress = lifetime_.guard([this](const std::string& line) {
                  logger_.log("Services", LogLevel::info, line);
                }),
                .onPrompt = lifetime_.guard([this](const ServicePrompt& prompt) {
                  if (hooks.onPrompt) hooks.onPrompt(prompt);
                })});
}

void StartSequence::hostStatusChanged(const ServiceHostStatus& status) {
  if (terminated_ || parts_.delegate.isAppReady) return;
  switch (status.state) {
    case State::starting:
      return show(status.text.empty() ? "Initializing AI models..." : status.text);
    case State::needsUser:
      return show(status.text);
    case State::running:
      return servicesRun();
    case State::failed:
      return hostFailed(status.text);
    case State::stopped:
      return;
  }
}

void StartSequence::hostFailed(const std::string& text) {
  if (servicesRan_) return;  // the probes tell what has become of them
  show(text, StatusColor::red);
  loadingOverlay_.updateServiceStatus(ServiceState::failed, ServiceState::failed,
                                      ServiceState::failed, loadingOverlay_.services().backend);
  retryTimer_ = dispatch_.after(dispatch_.mainQueue(), restartPause, lifetime_.guard([this] {
    show("Restarting services...");
    startDockerASRWithWarmup();
  }));
}

void StartSequence::servicesRun() {
  if (std::exchange(servicesRan_, true)) return;
  warmupConnectionsWithRetry();
  prewarmLLM();
  startLLMKeepAlive();
  parts_.mainWindow.fetchHistoryFromServer();
  parts_.mainWindow.history().fetchStats();
}

void StartSequence::warmupConnectionsWithRetry() {
  show("Connecting to services...");
  warmup_.warmup(lifetime_.guard([this](bool allReady) { warmedUp(allReady); }));
}

void StartSequence::warmedUp(bool allReady) {
  if (terminated_) return;
  if (lastWarmupLLMProviderLogged_ != warmup_.llmProvider()) {
    lastWarmupLLMProviderLogged_ = warmup_.llmProvider();
    logger_.log("App", LogLevel::info, warmup_.llmServiceDisplayName());
  }
  if (allReady) {
    return loadingOverlay_.performRevealAnimation([this] {
      becomeReady(nameHoldKey("✅ Ready — Hold fn 🌐 to record", parts_.holdKeyName),
                  StatusColor::primary);
    });
  }
  if (warmupRetryCount_ < maxWarmupRetries) {
    const auto wait = waitBeforeRetry(warmupRetryCount_++);
    show("Waiting for services... (" + std::to_string(warmupRetryCount_) + "/" +
         std::to_string(maxWarmupRetries) + ")");
    retryTimer_ = dispatch_.after(dispatch_.mainQueue(), wait,
                                  lifetime_.guard([this] { warmupConnectionsWithRetry(); }));
    return;
  }
  showServices(warmup_.status(), ServiceState::failed);
  loadingOverlay_.dismiss(
      [this] { becomeReady("⚠️ Some services may be slow", StatusColor::orange); });
}

/// Each dictation reports its own error from here on.
void StartSequence::becomeReady(const std::string& text, StatusColor color) {
  parts_.delegate.isAppReady = true;
  if (hooks.startAllBackgroundCaches) hooks.startAllBackgroundCaches();
  logger_.log("App", LogLevel::info, text);
  parts_.mainWindow.updateStatus(text, color);
  if (onChange) onChange();
}

void StartSequence::prewarmLLM() {
  std::function<void(const std::string&)> print =
      lifetime_.guard([this](const std::string& line) { logger_.print(line); });
  sharedSession_->data(
      {.url = endpoints_.llm + "/health", .timeout = prewarmTimeout},
      [main = dispatch_.mainQueue(), print](const Result<HttpResponse>& answer) {
        std::string failure;
        if (!answer) failure = answer.error().description;
        if (answer && answer->status != 200) failure = "status " + std::to_string(answer->status);
        main->post([print, line = failure.empty()
                                      ? "🔥 LLM pre-warmed and ready"
                                      : "⚠️ LLM pre-warm failed: " + failure] { print(line); });
      });
}

void StartSequence::startLLMKeepAlive() {
  llmKeepAliveTimer_ = dispatch_.every(dispatch_.mainQueue(), keepAliveInterval,
                                       lifetime_.guard([this] { prewarmLLM(); }));
}

void StartSequence::applicationWillTerminate(std::function<void()> completion) {
  const bool first = !std::exchange(terminated_, true);
  retryTimer_.reset();
  llmKeepAliveTimer_.reset();
  if (first && hooks.stopPresence) hooks.stopPresence();
  if (first && host_) return host_->stop(std::move(completion));
  if (completion) completion();
}

/// A service that has not answered yet is `otherwise`.
void StartSequence::showServices(const ServiceStatus& status, ServiceState otherwise) {
  const auto state = [otherwise](bool ready) { return ready ? ServiceState::ready : otherwise; };
  loadingOverlay_.setLLMName(warmup_.llmServiceDisplayName());
  loadingOverlay_.updateServiceStatus(state(status.asrReady), state(status.llmReady),
                                      state(status.agentReady), state(status.backendReady));
  if (onChange) onChange();
}

void StartSequence::show(const std::string& text, StatusColor color) {
  if (parts_.delegate.isAppReady) return;
  logger_.log("App", LogLevel::info, text);
  loadingOverlay_.updateStatus(text);
  parts_.mainWindow.updateStatus(text, color);
}

}  // namespace kestrin
